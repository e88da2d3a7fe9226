#include "cli/ListCommand.h"

#include "cli/CommandError.h"
#include "cli/HostRecord.h"
#include "cli/MountTarget.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "control/JSONText.h"
#include "control/ManyChannels.h"
#include "control/SocketFolder.h"
#include "hosts/fuse/mounting/MountTable.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace cli {

namespace {

using control::ChannelError;
using control::Members;
using namespace std::chrono_literals;

/// All are asked at once, so this is also what the whole list takes at most.
constexpr auto limit = 1000ms;

/// One mount, or a process that has one in the making or behind it, and what became of asking it.
struct Listed {
    std::string mountPoint;
    std::string source;
    std::optional<uid_t> owner;
    std::optional<pid_t> host;
    std::string controlPath;
    std::optional<kemvi::JSONObject> status; // what it answered
    std::string state;                       // one word for programs, where it did not answer
    std::string stateWords;                  // the same for people
};

void setState(Listed& listed, const char* state, std::string words) {
    listed.state = state;
    listed.stateWords = std::move(words);
}

/// What is known of a mount that nobody can be asked about.
void explainUnseen(Listed& listed) {
    if (listed.owner && *listed.owner != ::geteuid() && ::geteuid() != 0)
        setState(listed, "foreign", "another user's");
    else
        setState(listed, "unseen", "its process has ended, or runs in another container");
}

void explainProblem(Listed& listed, const ChannelError& problem) {
    if (problem.kind() == ChannelError::Kind::silent)
        setState(listed, "silent", "does not answer; its process may be stopped");
    else
        setState(listed, "noAnswer", std::string("cannot be asked: ") + problem.what());
}

/// The mounts in the kernel's table, then those of the user's processes that have none there.
std::vector<Listed> found() {
    std::vector<Listed> all;
    auto serving = servingProcesses();
    std::vector<bool> isListed(serving.size(), false);
    for (const auto& entry : fusehost::readMountTable()) {
        if (!entry.isOurs())
            continue;
        Listed listed{entry.mountPoint, entry.source, entry.owner, std::nullopt, {}, std::nullopt, {}, {}};
        for (std::size_t i = 0; i < serving.size(); ++i) {
            if (isBehind(serving[i], {entry.mountPoint, entry})) {
                listed.host = serving[i].process.pid();
                listed.controlPath = serving[i].controlPath;
                isListed[i] = true;
            }
        }
        all.push_back(std::move(listed));
    }
    for (std::size_t i = 0; i < serving.size(); ++i)
        if (!isListed[i] && !serving[i].process.gone())
            all.push_back({serving[i].mountPoint,
                           {},
                           serving[i].owner,
                           serving[i].process.pid(),
                           serving[i].controlPath,
                           std::nullopt,
                           {},
                           {}});
    return all;
}

void askAll(std::vector<Listed>& all) {
    std::vector<Listed*> asked;
    std::vector<control::ChannelAddress> channels;
    for (auto& listed : all) {
        if (!listed.host) {
            explainUnseen(listed);
        } else if (listed.controlPath.empty()) {
            setState(listed, "noChannel", "has no control channel");
        } else {
            asked.push_back(&listed);
            channels.push_back({listed.controlPath, *listed.host});
        }
    }
    auto answers = control::askAll(channels, "status", limit);
    for (std::size_t i = 0; i < asked.size(); ++i) {
        asked[i]->status = std::move(answers[i].members);
        if (answers[i].problem)
            explainProblem(*asked[i], *answers[i].problem);
    }
}

/// The path in the mount table comes before what the mount says: it may have been mounted elsewhere once more.
std::string json(const Listed& listed) {
    Members members;
    members.add("mountPoint", listed.mountPoint);
    if (listed.status) {
        for (const auto& [name, value] : listed.status->members())
            if (name != "ok" && name != "mountPoint")
                members.addJSON(name, control::jsonText(value));
        return members.json();
    }
    members.add("source", listed.source).add("state", listed.state);
    if (listed.host)
        members.add("host", Members().add("pid", *listed.host));
    if (listed.owner)
        members.add("owner", *listed.owner);
    return members.json();
}

std::string jsonList(const std::vector<Listed>& all) {
    std::string text = "[";
    for (const auto& listed : all)
        text += (text.size() > 1 ? ",\n " : "") + json(listed);
    return text + "]\n";
}

std::vector<std::string> row(const Listed& listed) {
    const auto* source = listed.status ? listed.status->find("source") : nullptr;
    const bool isKnown = source != nullptr && source->asString() != nullptr;
    return {escapedControls(listed.mountPoint), escapedControls(isKnown ? *source->asString() : listed.source),
            listed.owner ? userName(*listed.owner) : "?", listed.host ? std::to_string(*listed.host) : "-",
            listed.status ? stateText(*listed.status) : escapedControls(listed.stateWords)};
}

/// Every column as wide as its longest text, but for the last.
std::string table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& cells : rows)
        for (std::size_t i = 0; i < cells.size(); ++i)
            widths[i] = std::max(widths[i], cells[i].size());
    std::string text;
    for (const auto& cells : rows) {
        for (std::size_t i = 0; i + 1 < cells.size(); ++i)
            text.append(cells[i]).append(widths[i] - cells[i].size() + 2, ' ');
        text.append(cells.back()).append("\n");
    }
    return text;
}

/// Sockets whose processes were killed are removed by whoever meets them.
void removeDeadSockets() {
    try {
        control::SocketFolder::ofThisUser().clear();
    } catch (const ChannelError&) {
        // There is no folder, so there is no socket.
    }
}

ExitCode run(bool asJSON) {
    removeDeadSockets();
    auto all = found();
    askAll(all);
    if (asJSON) {
        print(jsonList(all));
        return ExitCode::success;
    }
    std::vector<std::vector<std::string>> rows{{"MOUNTPOINT", "SOURCE", "OWNER", "PID", "STATE"}};
    for (const auto& listed : all)
        rows.push_back(row(listed));
    if (!all.empty())
        print(table(rows));
    return ExitCode::success;
}

} // namespace

void addListCommand(CLI::App& app, ExitCode& result) {
    auto asJSON = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("list", "List what is mounted, with the state of each mount");
    command->add_flag("--json", *asJSON, "As a JSON array of objects");
    command->footer("Mounts that do not answer, and those of other users, are listed as such.");
    command->callback([asJSON, &result] { result = run(*asJSON); });
}

} // namespace cli
