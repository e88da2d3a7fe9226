#include "cli/stats/PrometheusText.h"

#include "foundation/Utf8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

namespace cli {

namespace {

using fusehost::LatencyBuckets;
using fusehost::LatencyCounts;

constexpr int shortestExponent = 13; // 8 us
constexpr int longestExponent = 36;  // 69 s

std::string numberText(double value) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

/// A label must be UTF-8, or a server takes nothing of the whole page; the path of a mount point need not be.
std::string escapedLabel(std::string_view value) {
    constexpr const char* replacement = "\xef\xbf\xbd"; // U+FFFD
    std::string text;
    while (!value.empty()) {
        const std::size_t length = foundation::utf8CharacterLength(value);
        const char first = value.front();
        if (first == '\\' || first == '"')
            text += '\\';
        if (first == '\n')
            text += "\\n";
        else if (length == 0)
            text += replacement;
        else
            text += value.substr(0, length);
        value.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return text;
}

using Labels = std::vector<std::pair<const char*, std::string>>;

class Page {
public:
    void begin(const char* name, const char* type, const char* help) {
        name_ = name;
        text_ += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }

    void add(const Labels& labels, double value, const char* suffix = "") {
        text_ += name_;
        text_ += suffix;
        text_ += '{';
        for (std::size_t i = 0; i < labels.size(); ++i)
            text_ += std::string(i > 0 ? "," : "") + labels[i].first + "=\"" + escapedLabel(labels[i].second) + "\"";
        text_ += "} " + numberText(value) + "\n";
    }

    void addHistogram(Labels labels, const LatencyCounts& latency) {
        labels.emplace_back("le", "");
        std::uint64_t below = 0;
        std::size_t bucket = 0;
        for (int exponent = shortestExponent; exponent <= longestExponent; ++exponent) {
            const std::uint64_t bound = std::uint64_t{1} << exponent;
            for (; LatencyBuckets::lowerBound(bucket) < bound; ++bucket)
                below += latency.buckets[bucket];
            labels.back().second = numberText(static_cast<double>(bound) * 1e-9);
            add(labels, static_cast<double>(below), "_bucket");
        }
        labels.back().second = "+Inf";
        const auto all = static_cast<double>(latency.count());
        add(labels, all, "_bucket");
        labels.pop_back();
        add(labels, static_cast<double>(latency.sum.count()) * 1e-9, "_sum");
        add(labels, all, "_count");
    }

    std::string take() { return std::move(text_); }

private:
    std::string name_;
    std::string text_;
};

/// All series of all mounts, one metric after the other as the format wants it.
class Scrape {
public:
    explicit Scrape(const std::vector<ScrapedMount>& mounts) : mounts_(mounts) {}

    std::string text() {
        addState();
        addOperations("kemvi_kernel_requests_total", "Requests of the kernel that were executed.",
                      "kemvi_kernel_request_seconds", "Time from reading a request of the kernel to its answer.",
                      &MountFigures::kernel);
        addErrors("kemvi_kernel_errors_total", "Requests of the kernel that were answered with an error.", "errno",
                  &MountFigures::kernel);
        addOperations("kemvi_exchanges_total", "Requests to the helper.", "kemvi_exchange_seconds",
                      "Time from sending a request to the helper to its answer.", &MountFigures::exchanges);
        addErrors("kemvi_exchange_errors_total", "Requests to the helper that failed.", "code",
                  &MountFigures::exchanges);
        addBytes();
        addGauges();
        return page_.take();
    }

private:
    using Operations = std::vector<OperationFigures> MountFigures::*;
    using Value = double MountFigures::*;

    static Labels labelsOf(const MountFigures& figures) {
        return {{"source", figures.source}, {"mountpoint", figures.mountPoint}};
    }

    static Labels with(Labels labels, const char* name, std::string value) {
        labels.emplace_back(name, std::move(value));
        return labels;
    }

    void forEach(const std::function<void(const MountFigures&, const Labels&)>& use) const {
        for (const ScrapedMount& mount : mounts_)
            if (mount.figures)
                use(*mount.figures, labelsOf(*mount.figures));
    }

    void addState() {
        page_.begin("kemvi_up", "gauge", "Whether the mount answered.");
        for (const ScrapedMount& mount : mounts_)
            page_.add({{"mountpoint", mount.mountPoint}}, mount.figures ? 1 : 0);
        page_.begin("kemvi_build_info", "gauge", "The version that serves the mount.");
        forEach([&](const MountFigures& figures, const Labels& labels) {
            page_.add(with(labels, "version", figures.version), 1);
        });
    }

    void addOperations(const char* total, const char* totalHelp, const char* seconds, const char* secondsHelp,
                       Operations operations) {
        page_.begin(total, "counter", totalHelp);
        forEach([&](const MountFigures& figures, const Labels& labels) {
            for (const OperationFigures& counted : figures.*operations)
                page_.add(with(labels, "op", counted.operation), static_cast<double>(counted.latency.count()));
        });
        page_.begin(seconds, "histogram", secondsHelp);
        forEach([&](const MountFigures& figures, const Labels& labels) {
            for (const OperationFigures& counted : figures.*operations)
                page_.addHistogram(with(labels, "op", counted.operation), counted.latency);
        });
    }

    void addErrors(const char* name, const char* help, const char* label, Operations operations) {
        page_.begin(name, "counter", help);
        forEach([&](const MountFigures& figures, const Labels& labels) {
            for (const OperationFigures& counted : figures.*operations)
                for (const auto& [error, count] : counted.errors)
                    page_.add(with(with(labels, "op", counted.operation), label, error), static_cast<double>(count));
        });
    }

    void addBytes() {
        page_.begin("kemvi_bytes_total", "counter", "Bytes of file contents that programs have read and written.");
        forEach([&](const MountFigures& figures, const Labels& labels) {
            page_.add(with(labels, "direction", "read"), figures.bytesRead);
            page_.add(with(labels, "direction", "write"), figures.bytesWritten);
        });
        page_.begin("kemvi_exchange_bytes_total", "counter", "Bytes of the lines to and from the helper.");
        forEach([&](const MountFigures& figures, const Labels& labels) {
            page_.add(with(labels, "direction", "sent"), figures.bytesSent);
            page_.add(with(labels, "direction", "received"), figures.bytesReceived);
        });
    }

    void addValue(const char* name, const char* type, const char* help, Value value) {
        page_.begin(name, type, help);
        forEach([&](const MountFigures& figures, const Labels& labels) { page_.add(labels, figures.*value); });
    }

    void addGauges() {
        addValue("kemvi_nodes", "gauge", "Files and directories that the kernel knows.", &MountFigures::nodes);
        addValue("kemvi_open_files", "gauge", "Files that programs have open.", &MountFigures::openFiles);
        addValue("kemvi_helper_handles", "gauge", "Handles that the helper has given.", &MountFigures::helperHandles);
        addValue("kemvi_hidden_files", "gauge", "Files that were removed while open.", &MountFigures::hiddenFiles);
        addValue("kemvi_waiting_requests", "gauge", "Requests that wait for the one under way.",
                 &MountFigures::waitingRequests);
        addValue("kemvi_current_exchange_seconds", "gauge", "How long the helper has been asked by now.",
                 &MountFigures::currentExchangeSeconds);
        addValue("kemvi_helper_restarts_total", "counter", "How often the helper was started anew.",
                 &MountFigures::helperRestarts);
        page_.begin("kemvi_helper_up", "gauge", "Whether the helper answers.");
        forEach(
            [&](const MountFigures& figures, const Labels& labels) { page_.add(labels, figures.helperUp ? 1 : 0); });
        page_.begin("kemvi_process_resident_bytes", "gauge", "Memory that a process of the mount holds.");
        forEach([&](const MountFigures& figures, const Labels& labels) {
            page_.add(with(labels, "process", "host"), figures.hostBytes);
            if (figures.helperBytes)
                page_.add(with(labels, "process", "helper"), *figures.helperBytes);
        });
    }

    const std::vector<ScrapedMount>& mounts_;
    Page page_;
};

} // namespace

std::string prometheusText(const std::vector<ScrapedMount>& mounts) {
    return Scrape(mounts).text();
}

} // namespace cli
