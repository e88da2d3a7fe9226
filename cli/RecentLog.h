#pragma once

#include "control/Reply.h"
#include "foundation/Log.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Keeps the last lines of a mount's log in memory, on their way to where the log goes, for whoever asks the mount
/// itself (kemvi log): the system's log may not be theirs to read, or not be there. Thread-safe.
class RecentLog final : public foundation::LogSink, public std::enable_shared_from_this<RecentLog> {
public:
    static constexpr std::size_t mostLines = 1000;
    static constexpr std::size_t mostBytes = std::size_t{256} * 1024;

    /// The sink that keeps each line and hands it to `next`.
    std::shared_ptr<foundation::LogSink> before(std::shared_ptr<foundation::LogSink> next);

    void write(foundation::LogLevel level, std::string_view subsystem, std::string_view category,
               std::string_view line) override;

    /// What is kept, the oldest first: "TIME CATEGORY: LINE" with the time in UTC.
    std::vector<std::string> lines() const;

    /// Answers {"lines":[...]} and sends {"line":...} for each that comes from then on; none is missed in between.
    void follow(control::Reply& reply);

private:
    std::vector<std::string> linesWithLock() const;
    void keep(std::string text);

    mutable std::mutex lock_; // guards what follows
    std::shared_ptr<foundation::LogSink> next_;
    std::deque<std::string> lines_;
    std::size_t bytes_ = 0; // of all lines
    std::vector<std::shared_ptr<control::LineStream>> followers_;
};

} // namespace cli
