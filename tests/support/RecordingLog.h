#pragma once

#include "foundation/Log.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

/// Catches every log line of the process from its construction to its destruction, which restores the default.
class RecordingLog {
public:
    struct Line {
        foundation::LogLevel level;
        std::string subsystem;
        std::string category;
        std::string text;

        friend bool operator==(const Line&, const Line&) = default;
    };

    RecordingLog();
    ~RecordingLog();
    RecordingLog(const RecordingLog&) = delete;
    RecordingLog& operator=(const RecordingLog&) = delete;

    std::vector<Line> lines() const;
    /// The texts alone.
    std::vector<std::string> texts() const;

private:
    class Sink;
    std::shared_ptr<Sink> sink_;
};

void PrintTo(const RecordingLog::Line& line, std::ostream* out);

} // namespace testsupport
