#include "cli/stats/FiguresText.h"

#include "cli/StatusText.h"
#include "foundation/ControlCharacters.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace cli {

namespace {

template <typename... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string timeText(std::chrono::nanoseconds time) {
    constexpr double thousand = 1000;
    double value = static_cast<double>(time.count()) / thousand;
    const char* unit = "us";
    if (value >= thousand) {
        value /= thousand;
        unit = "ms";
    }
    if (value >= thousand) {
        value /= thousand;
        unit = "s";
    }
    constexpr double few = 9.95;
    return formatted(value < few ? "%.1f %s" : "%.0f %s", value, unit);
}

std::string bytesText(double bytes) {
    constexpr double thousand = 1000;
    const char* const units[] = {"B", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    for (; bytes >= thousand && unit + 1 < std::size(units); ++unit)
        bytes /= thousand;
    return formatted(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
}

std::uint64_t errorsOf(const OperationFigures& figures) {
    std::uint64_t all = 0;
    for (const auto& [name, count] : figures.errors)
        all += count;
    return all;
}

std::string row(const OperationFigures& figures, double seconds) {
    const std::uint64_t count = figures.latency.count();
    const auto mean = count > 0 ? figures.latency.sum / static_cast<std::int64_t>(count) : std::chrono::nanoseconds(0);
    constexpr double most = 0.9;
    constexpr double nearlyAll = 0.99;
    std::string line =
        formatted("  %-12s %9llu %7llu", figures.operation.c_str(), static_cast<unsigned long long>(count),
                  static_cast<unsigned long long>(errorsOf(figures)));
    if (seconds > 0)
        line += formatted(" %8.1f", static_cast<double>(count) / seconds);
    line += formatted(" %8s %8s %8s %8s", timeText(mean).c_str(), timeText(figures.latency.quantile(0.5)).c_str(),
                      timeText(figures.latency.quantile(most)).c_str(),
                      timeText(figures.latency.quantile(nearlyAll)).c_str());
    // The longest is known of all time only.
    return seconds > 0 ? line + "\n" : line + formatted(" %8s\n", timeText(figures.latency.longest).c_str());
}

/// `seconds` is the length of an interval; 0 where rates mean nothing.
std::string table(const char* title, std::vector<OperationFigures> operations, double seconds) {
    std::sort(operations.begin(), operations.end(), [](const OperationFigures& a, const OperationFigures& b) {
        return a.latency.sum != b.latency.sum ? a.latency.sum > b.latency.sum : a.operation < b.operation;
    });
    std::string text = formatted("%-14s %9s %7s", title, "count", "failed");
    if (seconds > 0)
        text += formatted(" %8s", "per s");
    text += formatted(" %8s %8s %8s %8s", "mean", "p50", "p90", "p99");
    text += seconds > 0 ? "\n" : formatted(" %8s\n", "longest");
    for (const OperationFigures& figures : operations)
        text += row(figures, seconds);
    return text;
}

std::string errorList(const std::vector<OperationFigures>& operations) {
    std::string list;
    for (const OperationFigures& figures : operations)
        for (const auto& [name, count] : figures.errors)
            list += (list.empty() ? "" : ", ") + figures.operation + " " + foundation::escapedControls(name) + " " +
                    std::to_string(count);
    return list.empty() ? "none" : list;
}

std::string shares(const MountFigures& figures) {
    const double all = figures.requestSeconds;
    std::string text = "time           " + formatted("%.3f s in requests", std::max(0.0, all));
    if (all <= 0)
        return text + "\n";
    constexpr double hundred = 100;
    const double helper = std::clamp(figures.helperSeconds / all, 0.0, 1.0);
    const double waiting = std::clamp(figures.waitingSeconds / all, 0.0, 1.0 - helper);
    return text + formatted(": %.0f %% helper, %.0f %% host, %.0f %% waiting for one another\n", hundred * helper,
                            hundred * (1 - helper - waiting), hundred * waiting);
}

std::string gauges(const MountFigures& figures) {
    std::string text = formatted("now            %.0f nodes, %.0f open files, %.0f helper handles, %.0f hidden files, "
                                 "%.0f requests waiting\n",
                                 figures.nodes, figures.openFiles, figures.helperHandles, figures.hiddenFiles,
                                 figures.waitingRequests);
    text += "helper         " + std::string(figures.helperUp ? "answers" : "answers no more");
    if (figures.currentExchangeSeconds >= 1)
        text += formatted("; has been asked for %s", durationText(figures.currentExchangeSeconds).c_str());
    if (figures.helperRestarts > 0)
        text += formatted("; restarted %.0f times", figures.helperRestarts);
    text += "\nmemory         host " + bytesText(figures.hostBytes);
    if (figures.helperBytes)
        text += ", helper " + bytesText(*figures.helperBytes);
    return text + "\n";
}

std::string all(const MountFigures& figures, double secondsSinceMount, double interval) {
    return foundation::escapedControls(figures.mountPoint) + "  (" + foundation::escapedControls(figures.source) +
           ", since " + durationText(secondsSinceMount) + ")\n\n" + table("kernel", figures.kernel, interval) + "\n" +
           table("helper", figures.exchanges, interval) + "\nfailed         kernel: " + errorList(figures.kernel) +
           "\n               helper: " + errorList(figures.exchanges) + "\n" + "bytes          " +
           bytesText(figures.bytesRead) + " read, " + bytesText(figures.bytesWritten) +
           " written; lines: " + bytesText(figures.bytesSent) + " sent, " + bytesText(figures.bytesReceived) +
           " received\n" + shares(figures) + gauges(figures);
}

} // namespace

std::string figuresText(const MountFigures& figures) {
    return all(figures, figures.seconds, 0);
}

std::string figuresOfInterval(const MountFigures& interval, double secondsSinceMount) {
    return all(interval, secondsSinceMount, interval.seconds);
}

} // namespace cli
