#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation {

/// Makes lines of bytes that come in pieces. One that grows longer than a limit comes in pieces too, so that no more
/// than that is kept for whoever never ends a line, and nobody is given more at once. Not thread-safe.
class LineSplitter {
public:
    /// `longest` in bytes, at least 4. A piece may be up to 3 bytes shorter, so that no character of UTF-8 is cut.
    explicit LineSplitter(std::size_t longest) : longest_(longest) {}

    /// The lines that these bytes complete, without their ends.
    std::vector<std::string> take(std::string_view bytes);

    /// The start of a line whose end has not come; nothing if there is none. It is not given again.
    std::optional<std::string> rest();

private:
    void cutTooLong(std::vector<std::string>& lines);

    const std::size_t longest_;
    std::string unfinished_;
};

} // namespace foundation
