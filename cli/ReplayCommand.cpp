#include "cli/ReplayCommand.h"

#include "cli/CommandError.h"
#include "cli/HelperScript.h"
#include "cli/MountSource.h"
#include "cli/Paths.h"
#include "cli/RecordedFile.h"
#include "cli/ReplayText.h"
#include "cli/Signals.h"
#include "cli/check/Attention.h"
#include "cli/check/CheckedHelper.h"
#include "foundation/Error.h"
#include "recording/RecordingError.h"
#include "recording/Replayer.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace cli {

namespace {

struct Request {
    std::string file;
    std::string helper;
    std::string source;
    std::string driveId;
    std::string home;
    std::string repoRoot;
    recording::CompareOptions compare;
    double opTimeout = 10; // in seconds, as it is typed
    std::uint64_t limit = 100;
    bool write = false;
    bool json = false;
};

/// The helper that is asked: as a mount would start it, talked to with a time limit.
class ReplayedHelper : public recording::AskedHelper {
public:
    ReplayedHelper(const kemvi::KemviMountConfig& config, std::chrono::milliseconds limit, check::Attention& attention)
        : config_(config), limit_(limit), attention_(attention) {
        start();
    }

    std::optional<std::string> ask(kemvi::HelperRequest& request) override {
        request.id = helper_->nextID();
        const auto line = encoder_.encode(request);
        std::string text = std::string(line.head).append(line.payload).append(line.tail);
        text.pop_back();
        check::Exchange exchange = helper_->exchange(std::move(text));
        if (exchange.answered())
            return std::move(exchange.answer);
        whyNot_ = exchange.outcome == check::Exchange::Outcome::timedOut
                      ? "none within " + std::to_string(limit_.count()) + " ms"
                      : "the helper has ended";
        return std::nullopt;
    }

    std::string whyNot() const override { return whyNot_; }

    bool restart() override {
        helper_.reset(); // ends it first: it may hold what the next one needs
        try {
            start();
        } catch (const foundation::Error& error) {
            whyNot_ = "it cannot be started again: " + error.description();
        }
        return whyNot_.empty();
    }

private:
    void start() {
        helper_ = std::make_unique<check::CheckedHelper>(config_, limit_, attention_);
        helper_->start();
    }

    const kemvi::KemviMountConfig& config_;
    const std::chrono::milliseconds limit_;
    check::Attention& attention_;
    std::unique_ptr<check::CheckedHelper> helper_;
    kemvi::HelperRequestEncoder encoder_;
    std::string whyNot_;
};

/// What is to be asked: a source's helper, or the one that was named, told what the options say.
MountSource sourceOf(const Request& request) {
    MountSource source;
    if (!request.source.empty())
        source = readMountSource(request.source);
    if (!request.helper.empty()) {
        source.config.helperPath = helperScript(request.helper);
        if (isProgram(source.config.helperPath) || foreignInterpreter(source.config.helperPath)) {
            throw CommandError(ExitCode::usage, "--helper " + request.helper,
                               "is no script for node; write a source directory for it (kemvi init SOURCE --command "
                               "COMMAND) and name that with --source");
        }
    }
    if (source.config.helperPath.empty())
        throw CommandError(ExitCode::usage, "replay", "which helper? Give --helper SCRIPT or --source SOURCE");
    if (!request.driveId.empty())
        source.config.driveId = request.driveId;
    if (!request.home.empty())
        source.config.kemviHome = absolutePath(request.home);
    if (!request.repoRoot.empty())
        source.config.repoRoot = absolutePath(request.repoRoot);
    return source;
}

/// A replay asks for everything anew, also what removes and overwrites.
void checkChanges(const Request& request) {
    recording::Reader reader(request.file);
    std::uint64_t changes = 0;
    while (const auto entry = reader.next())
        if (const auto* const exchange = std::get_if<recording::Exchange>(&*entry))
            changes += recording::isChange(*exchange) ? 1 : 0;
    if (changes > 0 && !request.write) {
        throw CommandError(ExitCode::usage, request.file,
                           "holds " + std::to_string(changes) +
                               " requests that change what is served (files would be written and removed again); "
                               "--write asks them too: let the helper serve a copy that may be changed");
    }
    if (reader.header().settings.names == recording::Names::scrambled)
        printMessage(request.file + ": its names are scrambled: only the helper \"replay\" knows them");
}

ExitCode replay(const Request& request) {
    const MountSource source = sourceOf(request);
    checkHelperAvailable(source);
    checkChanges(request);
    tellSourceToHelpers(source);
    blockStopSignals();
    recording::Reader reader(request.file);
    check::Attention attention("replay");
    attention.begin("replaying");
    const auto limit =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(request.opTimeout));
    ReplayedHelper helper(source.config, limit, attention);
    ReplayText text(request.limit, request.json ? ReplayText::Form::json : ReplayText::Form::plain);
    recording::Replayer replayer(reader, helper, request.compare,
                                 [&](const recording::DifferentAnswer& found) { text.add(found); });
    const recording::ReplayTotals totals = replayer.run([&] { return attention.mustStop(); });
    text.end(totals, attention.interrupted());
    if (attention.interrupted())
        return ExitCode::interrupted;
    return totals.isSame() ? ExitCode::success : ExitCode::findings;
}

ExitCode run(const Request& request) {
    return readingRecording(request.file, [&] {
        try {
            return replay(request);
        } catch (const foundation::Error& error) {
            throw CommandError(ExitCode::helperFailed, request.helper,
                               "the helper could not be started: " + error.description());
        }
    });
}

} // namespace

void addReplayCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("replay", "Ask a helper what was recorded, and tell which answers differ");
    command->add_option("FILE", request->file, "Recording, as \"kemvi record\" makes it")->required();
    command->add_option("--helper", request->helper, "Helper to ask: a script, or the name of a shipped one")
        ->type_name("PATH");
    command
        ->add_option("--source", request->source, "Source directory whose helper is asked, as a mount would start it")
        ->type_name("DIR");
    command->add_option("--repo-root", request->repoRoot, "Directory that the helper works on")->type_name("DIR");
    command->add_option("--home", request->home, "Directory for the helper's own files")->type_name("DIR");
    command->add_option("--drive-id", request->driveId, "Identifier of the drive")->type_name("ID");
    command->add_flag("--write", request->write, "Ask what changes the served tree, too");
    command->add_flag("--compare-times", request->compare.times, "Compare when files were modified, too");
    command->add_flag("--compare-messages", request->compare.messages, "Compare the messages of errors, too");
    command->add_option("--op-timeout", request->opTimeout, "Longest time for one answer, in seconds (default: 10)")
        ->check(CLI::Range(0.001, 86400.0));
    command->add_option("--limit", request->limit, "Most differences to show; 0 shows all (default: 100)")
        ->type_name("N");
    command->add_flag("--json", request->json, "Print the result as one JSON object");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
