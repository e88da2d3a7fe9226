#include "support/RecordingLog.h"

#include <ostream>

namespace testsupport {

class RecordingLog::Sink final : public foundation::LogSink {
public:
    void write(foundation::LogLevel level, std::string_view subsystem, std::string_view category,
               std::string_view line) override {
        std::lock_guard guard(lock_);
        lines_.push_back({level, std::string(subsystem), std::string(category), std::string(line)});
    }

    std::vector<Line> lines() const {
        std::lock_guard guard(lock_);
        return lines_;
    }

private:
    mutable std::mutex lock_;
    std::vector<Line> lines_;
};

RecordingLog::RecordingLog() : sink_(std::make_shared<Sink>()) {
    foundation::Log::setSink(sink_);
}

RecordingLog::~RecordingLog() {
    foundation::Log::setSink(nullptr);
}

std::vector<RecordingLog::Line> RecordingLog::lines() const {
    return sink_->lines();
}

std::vector<std::string> RecordingLog::texts() const {
    std::vector<std::string> texts;
    for (const Line& line : lines())
        texts.push_back(line.text);
    return texts;
}

void PrintTo(const RecordingLog::Line& line, std::ostream* out) {
    *out << "level " << static_cast<int>(line.level) << " " << line.subsystem << " " << line.category << ": "
         << line.text;
}

} // namespace testsupport
