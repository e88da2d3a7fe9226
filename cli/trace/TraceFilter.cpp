#include "cli/trace/TraceFilter.h"

#include "cli/ErrnoName.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fnmatch.h>
#include <string_view>
#include <variant>

namespace cli {

namespace {

constexpr std::string_view readAhead = "readahead";
constexpr double longestTime = 1e9; // milliseconds

bool isOperation(const std::string& name) {
    for (std::size_t i = 0; i < fusehost::kernelOperationCount; ++i)
        if (fusehost::nameOf(static_cast<fusehost::KernelOperation>(i)) == name)
            return true;
    return name == readAhead;
}

bool matches(const std::string& pattern, const std::string& text) {
    return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

bool isAt(const std::string& path, const std::string& pattern) {
    if (pattern.find_first_of("*?[") != std::string::npos)
        return matches(pattern, path);
    std::string_view folder = pattern;
    while (folder.ends_with('/'))
        folder.remove_suffix(1);
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

/// Also what is renamed from elsewhere to that path.
bool concerns(const fusehost::RequestEvent& event, const std::string& pattern) {
    return isAt(event.path, pattern) ||
           std::any_of(event.arguments.begin(), event.arguments.end(), [&](const auto& argument) {
               const auto* const other = std::get_if<std::string>(&argument.second);
               return other != nullptr && argument.first == "to" && isAt(*other, pattern);
           });
}

bool isBy(const fusehost::RequestEvent& event, const std::string& caller) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(caller.data(), caller.data() + caller.size(), number);
    if (error == std::errc() && end == caller.data() + caller.size())
        return number != 0 && (event.pid == number || event.thread == number);
    return !event.process.empty() && matches(caller, event.process);
}

} // namespace

const std::vector<std::string>& TraceFilter::members() {
    static const std::vector<std::string> names{"operations", "path", "caller", "error", "slowerThan"};
    return names;
}

TraceFilter TraceFilter::of(const control::Request& request) {
    TraceFilter filter;
    filter.operations = request.texts("operations").value_or(std::vector<std::string>());
    for (const std::string& operation : filter.operations)
        if (!isOperation(operation))
            control::refuseMember("operations",
                                  "names of operations, such as lookup or read; not \"" + operation + "\"");
    filter.path = request.text("path");
    filter.caller = request.text("caller");
    filter.error = request.text("error");
    constexpr double perMillisecond = 1000;
    const double least = request.number("slowerThan", 0, longestTime).value_or(0);
    filter.least = std::chrono::microseconds(static_cast<std::int64_t>(least * perMillisecond));
    return filter;
}

bool TraceFilter::passes(const TracedRequest& traced) const {
    const fusehost::RequestEvent& event = traced.event;
    const std::string_view operation = traced.isReadAhead ? readAhead : fusehost::nameOf(event.operation);
    if (!operations.empty() && std::find(operations.begin(), operations.end(), operation) == operations.end())
        return false;
    if (event.duration < least)
        return false;
    if (error && (event.error == 0 || (*error != "any" && *error != errnoName(event.error))))
        return false;
    return (!path || concerns(event, *path)) && (!caller || isBy(event, *caller));
}

} // namespace cli
