#include "cli/trace/TraceLine.h"

#include "cli/ErrnoName.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <variant>
#include <vector>

namespace cli {

namespace {

using control::Members;

std::string timeText(std::chrono::system_clock::time_point time) {
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    constexpr std::int64_t perSecond = 1'000'000;
    const std::time_t seconds = microseconds / perSecond;
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>(microseconds % perSecond));
    return text.data();
}

std::int64_t microsecondsOf(std::chrono::nanoseconds time) {
    return std::chrono::round<std::chrono::microseconds>(time).count();
}

std::vector<Members> exchangesOf(const TracedRequest& request) {
    std::vector<Members> exchanges;
    for (const TracedExchange& exchange : request.exchanges) {
        Members& members = exchanges.emplace_back();
        members.add("op", exchange.operation).add("microseconds", microsecondsOf(exchange.duration));
        if (!exchange.error.empty())
            members.add("error", exchange.error);
    }
    return exchanges;
}

} // namespace

Members traceMembers(const TracedRequest& request) {
    const fusehost::RequestEvent& event = request.event;
    Members members;
    members.add("time", timeText(event.began));
    if (event.operation != fusehost::KernelOperation::idle)
        members.add("process", event.process).add("pid", event.pid).add("uid", event.user);
    members.add("op", request.isReadAhead ? "readahead" : fusehost::nameOf(event.operation));
    if (!event.path.empty())
        members.add("path", event.path);
    for (const auto& [name, value] : event.arguments)
        std::visit([&, key = name](const auto& shown) { members.add(key, shown); }, value);
    if (event.bytes)
        members.add("bytes", *event.bytes);
    if (event.error == 0)
        members.add("result", "ok");
    else
        members.add("errno", errnoName(event.error));
    members.add("microseconds", microsecondsOf(event.duration));
    if (const auto waited = microsecondsOf(event.waited); waited > 0)
        members.add("waited", waited);
    return members.add("exchanges", exchangesOf(request));
}

} // namespace cli
