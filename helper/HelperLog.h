#pragma once

#include "foundation/LineSplitter.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kemvi {

/// Makes lines of the log of what helpers write to standard error. Not thread-safe.
class HelperLog {
public:
    /// A line that grows longer than `longest` bytes is logged in pieces.
    explicit HelperLog(std::size_t longest) : lines_(longest) {}

    void take(std::string_view bytes);

    /// Nothing more comes: the start of a line without end is one.
    void finish();

private:
    static void log(const std::string& line);

    foundation::LineSplitter lines_;
};

} // namespace kemvi
