#include "cli/WaitWarnings.h"

#include <utility>

namespace cli {

namespace {

using namespace std::chrono_literals;
using fusehost::KernelOperation;
using fusehost::RequestUnderWay;

constexpr std::chrono::seconds first = 5s;
constexpr std::chrono::seconds second = 30s;
constexpr std::chrono::seconds further = 5min;

std::chrono::seconds after(std::chrono::seconds waited) {
    if (waited < second)
        return second;
    return (waited / further + 1) * further;
}

std::string nameOf(const RequestUnderWay& request) {
    return request.operation == KernelOperation::idle ? "the host's own work"
                                                      : "a request (" + std::string(nameOf(request.operation)) + ")";
}

std::string ofWhom(const RequestUnderWay& request) {
    return request.thread == 0 ? std::string() : " for process " + std::to_string(request.thread);
}

std::string seconds(std::chrono::steady_clock::duration time) {
    return std::to_string(std::chrono::floor<std::chrono::seconds>(time).count()) + " s";
}

WaitWarnings::Warning warning(const RequestUnderWay& request, std::string end) {
    return {nameOf(request) + (request.path.empty() ? "" : " of "), request.path, ofWhom(request) + std::move(end)};
}

} // namespace

std::optional<WaitWarnings::Warning> WaitWarnings::look(const std::optional<RequestUnderWay>& request,
                                                        const std::function<std::size_t()>& waiting,
                                                        Clock::time_point now) {
    if (told_ && (!request || request->number != told_->request.number)) {
        const Told over = *std::exchange(told_, std::nullopt);
        return warning(over.request, " is over after " + seconds(now - over.request.since));
    }
    const auto due = told_ ? told_->next : first;
    if (!request || now - request->since < due)
        return std::nullopt;
    told_ = Told{*request, after(std::chrono::floor<std::chrono::seconds>(now - request->since))};
    std::string end = " has been waiting for the helper for " + seconds(now - request->since);
    if (const std::size_t more = waiting(); more > 0)
        end += "; " + std::to_string(more) + (more == 1 ? " more waits" : " more wait") + " behind it";
    return warning(*request, std::move(end));
}

} // namespace cli
