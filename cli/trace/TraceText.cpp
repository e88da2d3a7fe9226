#include "cli/trace/TraceText.h"

#include "foundation/ControlCharacters.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

namespace cli {

namespace {

using kemvi::JSONObject;
using kemvi::JSONValue;

std::string text(const JSONObject& object, std::string_view name) {
    const JSONValue* value = object.find(name);
    return value != nullptr && value->asString() != nullptr ? foundation::escapedControls(*value->asString())
                                                            : std::string();
}

std::optional<std::int64_t> number(const JSONObject& object, std::string_view name) {
    const JSONValue* value = object.find(name);
    if (value == nullptr || value->asNumber() == nullptr)
        return std::nullopt;
    return static_cast<std::int64_t>(*value->asNumber());
}

std::string numberText(const JSONObject& object, std::string_view name) {
    const auto value = number(object, name);
    return value ? std::to_string(*value) : std::string("?");
}

/// At least so wide, and always something behind it.
std::string padded(std::string text, std::size_t width) {
    text.append(text.size() < width ? width - text.size() : 0, ' ');
    return text + "  ";
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

/// "12:01:03.123456" of the local time; what is no time of ours as it is.
std::string localTime(const std::string& utc) {
    std::tm parts{};
    const char* fraction = ::strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (fraction == nullptr)
        return utc;
    const std::time_t seconds = ::timegm(&parts);
    ::localtime_r(&seconds, &parts);
    std::array<char, 16> clock{};
    std::strftime(clock.data(), clock.size(), "%H:%M:%S", &parts);
    std::string rest = fraction;
    while (rest.ends_with('Z'))
        rest.pop_back();
    return clock.data() + rest;
}

std::string timeText(std::int64_t microseconds) {
    constexpr std::int64_t manyMicroseconds = 100'000;
    constexpr std::int64_t manyMilliseconds = 100'000'000;
    if (microseconds < manyMicroseconds)
        return std::to_string(microseconds) + " us";
    if (microseconds < manyMilliseconds)
        return std::to_string(microseconds / 1000) + " ms";
    return std::to_string(microseconds / 1'000'000) + " s";
}

std::string callerOf(const JSONObject& line) {
    const auto pid = number(line, "pid");
    if (!pid)
        return "-";
    if (*pid == 0)
        return "?";
    const std::string process = text(line, "process");
    return (process.empty() ? "?" : process) + "[" + std::to_string(*pid) + "]";
}

std::string subjectOf(const JSONObject& line) {
    const std::string operation = text(line, "op");
    std::string subject = text(line, "path");
    if (operation == "read" || operation == "write")
        subject += " " + numberText(line, "offset") + "+" + numberText(line, "size");
    else if (const auto size = number(line, "size"); size && operation == "setattr")
        subject += " size " + std::to_string(*size);
    if (const std::string to = text(line, "to"); !to.empty())
        subject += " -> " + to;
    if (const std::string from = text(line, "from"); !from.empty())
        subject += " <- " + from;
    if (const std::string target = text(line, "target"); !target.empty())
        subject += " -> " + target;
    return subject;
}

std::string resultOf(const JSONObject& line) {
    if (std::string error = text(line, "errno"); !error.empty())
        return error;
    if (const auto bytes = number(line, "bytes"))
        return std::to_string(*bytes) + " bytes";
    return text(line, "result");
}

std::string exchangesOf(const JSONObject& line) {
    const JSONValue* exchanges = line.find("exchanges");
    std::string list;
    if (exchanges == nullptr || exchanges->asArray() == nullptr)
        return list;
    for (const JSONValue& value : *exchanges->asArray()) {
        const JSONObject* exchange = value.asObject();
        if (exchange == nullptr)
            continue;
        list += (list.empty() ? "" : ", ") + text(*exchange, "op") + " " +
                timeText(number(*exchange, "microseconds").value_or(0));
        if (const std::string error = text(*exchange, "error"); !error.empty())
            list += " " + error;
    }
    return list;
}

} // namespace

std::string traceText(const JSONObject& line) {
    constexpr std::size_t callerWidth = 16;
    constexpr std::size_t operationWidth = 8;
    constexpr std::size_t subjectWidth = 34;
    constexpr std::size_t resultWidth = 10;
    constexpr std::size_t timeWidth = 7;
    std::string shown = localTime(text(line, "time")) + " " + padded(callerOf(line), callerWidth) +
                        padded(upper(text(line, "op")), operationWidth) + padded(subjectOf(line), subjectWidth) +
                        padded(resultOf(line), resultWidth) +
                        padded(timeText(number(line, "microseconds").value_or(0)), timeWidth) + exchangesOf(line);
    if (const auto waited = number(line, "waited"))
        shown += " (waited " + timeText(*waited) + ")";
    while (shown.ends_with(' '))
        shown.pop_back();
    return shown;
}

} // namespace cli
