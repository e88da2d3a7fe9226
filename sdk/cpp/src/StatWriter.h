#pragma once

#include "AnswerLine.h"
#include "kemvi/helper.h"

#include <chrono>
#include <string>
#include <string_view>

namespace kemvi::kit {

/// Writes what is known of files into an answer. What is no name, or no UTF-8, is refused with std::invalid_argument
/// before anything of it is written. Not thread-safe.
class StatWriter {
public:
    explicit StatWriter(AnswerLine& line) : line_(line) {}

    /// The one at `path`.
    void one(std::string_view path, const Stat& stat);

    /// Those that `member` then writes lie in `folder`.
    void beginMembers(std::string_view folder);
    void member(std::string_view name, const Stat& stat);

private:
    void facts(const Stat& stat);
    std::string_view timeText(Time time);

    AnswerLine& line_;
    std::string prefix_; // path of the folder as JSON, with a slash and without the quote at the end
    std::string separator_;
    std::chrono::sys_days knownDay_{std::chrono::days::min()};
    std::string time_; // of the last stat; its first characters are those of the known day
};

} // namespace kemvi::kit
