#include "cli/StatusText.h"

#include "cli/HelperCommand.h"
#include "foundation/ControlCharacters.h"
#include "foundation/ISO8601.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <pwd.h>
#include <string_view>
#include <vector>

namespace cli {

namespace {

using foundation::escapedControls;
using kemvi::JSONObject;

constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;

// Members, as far as they are there and of the type that is looked for.

std::string textOf(const JSONObject& object, std::string_view name) {
    const auto* value = object.find(name);
    return value != nullptr && value->asString() != nullptr ? escapedControls(*value->asString()) : std::string();
}

const double* numberOf(const JSONObject& object, std::string_view name) {
    const auto* value = object.find(name);
    return value != nullptr ? value->asNumber() : nullptr;
}

const JSONObject* objectOf(const JSONObject& object, std::string_view name) {
    const auto* value = object.find(name);
    return value != nullptr ? value->asObject() : nullptr;
}

std::string wholeNumber(double number) {
    return std::to_string(static_cast<std::int64_t>(number));
}

/// "cat (pid 1234)"
std::string processText(const JSONObject& current) {
    const auto* pid = numberOf(current, "pid");
    const std::string name = textOf(current, "process");
    if (pid == nullptr)
        return "a process that is gone";
    return name.empty() ? "process " + wholeNumber(*pid) : name + " (pid " + wholeNumber(*pid) + ")";
}

std::string waitingText(const JSONObject& status) {
    const auto* current = objectOf(status, "current");
    if (current == nullptr)
        return "waiting";
    std::string text = "waiting";
    if (const auto* seconds = numberOf(*current, "seconds"))
        text += " since " + durationText(*seconds);
    const std::string operation = textOf(*current, "op");
    const bool isOwn = operation == "idle"; // what the host does while nobody asks for anything
    text += isOwn ? " for work of its own" : " for " + operation;
    if (const auto path = textOf(*current, "path"); !path.empty())
        text += (isOwn ? " on " : " of ") + path;
    return isOwn ? text : text + " on behalf of " + processText(*current);
}

/// Each text of the array of that name.
std::vector<std::string> textsOf(const JSONObject& object, std::string_view name) {
    std::vector<std::string> texts;
    const auto* value = object.find(name);
    if (value != nullptr && value->asArray() != nullptr)
        for (const auto& each : *value->asArray())
            if (each.asString() != nullptr)
                texts.push_back(*each.asString());
    return texts;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
    std::string text;
    for (const std::string& each : texts)
        text.append(text.empty() ? "" : separator).append(escapedControls(each));
    return text;
}

/// What the helper is: the command that runs, where the script is but its launcher.
std::string helperText(const JSONObject& helper) {
    std::string text;
    if (const auto* pid = numberOf(helper, "pid"))
        text += "pid " + wholeNumber(*pid);
    if (const auto end = textOf(helper, "end"); !end.empty())
        text += (text.empty() ? "" : ", ") + end;
    const auto command = textsOf(helper, "command");
    const std::string name = command.empty() ? textOf(helper, "path") : escapedControls(commandText(command));
    if (!name.empty())
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

std::string hostText(const JSONObject& status) {
    std::string text;
    if (const auto* host = objectOf(status, "host"))
        if (const auto* pid = numberOf(*host, "pid"))
            text = "pid " + wholeNumber(*pid);
    if (const auto* owner = numberOf(status, "owner"))
        text += " of " + userName(static_cast<uid_t>(*owner));
    if (const auto version = textOf(status, "version"); !version.empty())
        text += ", kemvi " + version;
    return text;
}

/// The files for whose changes the helper is started anew.
std::string watchedText(const JSONObject& helper) {
    const auto paths = textsOf(helper, "watched");
    if (paths.empty())
        return {};
    std::string text = escapedControls(paths.front());
    if (paths.size() > 1)
        text += paths.size() == 2 ? " and another file" : " and " + std::to_string(paths.size() - 1) + " other files";
    return text;
}

/// In the time of whoever reads it.
std::string sinceText(const JSONObject& status) {
    constexpr std::size_t longest = 64;
    std::string text;
    if (const auto date = foundation::ISO8601DateFormatter().date(textOf(status, "since"))) {
        const auto seconds = static_cast<std::time_t>(date->secondsSince1970);
        std::tm parts{};
        std::array<char, longest> local{};
        if (::localtime_r(&seconds, &parts) != nullptr)
            text.assign(local.data(), std::strftime(local.data(), local.size(), "%Y-%m-%d %H:%M:%S", &parts));
    }
    if (const auto* seconds = numberOf(status, "seconds"))
        text += " (" + durationText(*seconds) + ")";
    return text;
}

} // namespace

std::string userName(uid_t user) {
    const passwd* known = ::getpwuid(user);
    return known != nullptr ? escapedControls(known->pw_name) : std::to_string(user);
}

std::string durationText(double seconds) {
    const auto whole = static_cast<std::int64_t>(seconds);
    const auto two = [](std::int64_t first, const char* unit, std::int64_t second, const char* smaller) {
        return std::to_string(first) + unit + (second != 0 ? " " + std::to_string(second) + smaller : "");
    };
    if (whole < minute)
        return std::to_string(whole) + " s";
    if (whole < hour)
        return two(whole / minute, " min", whole % minute, " s");
    if (whole < day)
        return two(whole / hour, " h", whole % hour / minute, " min");
    return two(whole / day, " d", whole % day / hour, " h");
}

std::string stateText(const JSONObject& status) {
    std::string state = textOf(status, "state");
    if (state == "waiting")
        return waitingText(status);
    if (state == "helperDead") {
        const auto* helper = objectOf(status, "helper");
        const std::string end = helper != nullptr ? textOf(*helper, "end") : std::string();
        return "helper dead" + (end.empty() ? "" : ": it " + end);
    }
    if (state == "writing")
        return "ending; writes what programs have changed";
    return state;
}

std::string statusText(const JSONObject& status) {
    std::string text = textOf(status, "mountPoint") + "\n";
    const auto addLine = [&](std::string_view title, const std::string& value) {
        constexpr std::size_t width = 10;
        if (!value.empty())
            text.append("  ").append(title).append(width - title.size(), ' ').append(value).append("\n");
    };
    addLine("source", textOf(status, "source"));
    addLine("state", stateText(status));
    addLine("host", hostText(status));
    if (const auto* helper = objectOf(status, "helper")) {
        addLine("helper", helperText(*helper));
        addLine("settings", joined(textsOf(*helper, "settings"), ", "));
        addLine("watched", watchedText(*helper));
    }
    addLine("since", sinceText(status));
    if (const auto* requests = numberOf(status, "requests"))
        addLine("requests", wholeNumber(*requests));
    addLine("options", joined(textsOf(status, "options"), ","));
    return text;
}

} // namespace cli
