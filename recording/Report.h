#pragma once

#include "recording/Reader.h"
#include "recording/Statistics.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace recording {

/// What a recording tells of the mount: counts, durations, the slowest, the busiest. Memory grows with the number of
/// different paths and with nothing else.
class Report {
public:
    static constexpr std::size_t mostShown = 50; // of slow exchanges, of paths, of errors

    /// Reads the recording to its end. Throws RecordingError.
    explicit Report(Reader& reader);

    /// Everything as one JSON object, for the page.
    std::string json() const;

    /// The page: one file of HTML that needs nothing else, with `title` on top.
    std::string page(const std::string& title) const;

private:
    struct ErrorTally {
        std::uint64_t count = 0;
        std::string path; // where it was met first
    };

    void take(const Exchange& exchange, std::uint64_t line);
    void take(const KernelRequest& request);
    std::string pathOf(const Exchange& exchange);
    void followHandle(const Exchange& exchange);
    void keepIfSlow(SlowExchange exchange);

    Header header_;
    bool cut_ = false;
    std::uint64_t lost_ = 0;
    double started_ = 0;                     // seconds since 1970
    std::int64_t end_ = 0;                   // microseconds since the recording began, of what came last
    std::map<std::string, Tally> exchanges_; // by operation
    std::map<std::string, Tally> requests_;
    std::map<std::string, PathTally> paths_;
    std::map<std::pair<std::string, std::string>, ErrorTally> errors_; // by operation and code
    std::map<std::string, std::uint64_t> processes_;                   // requests of the kernel, by who made them
    std::map<std::int64_t, std::string> files_;                        // paths by handle
    std::vector<SlowExchange> slowest_;                                // the slowest first
    TimeLine timeLine_;
    std::uint64_t read_ = 0; // bytes
    std::uint64_t written_ = 0;
    std::int64_t requestTime_ = 0;  // microseconds in requests of the kernel
    std::int64_t exchangeTime_ = 0; // of those, in exchanges
    std::int64_t helperTime_ = 0;   // in exchanges, whoever caused them
};

} // namespace recording
