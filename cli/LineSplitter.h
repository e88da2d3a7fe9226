#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// Makes lines of bytes that come in pieces. A line without end comes in pieces too, each once it is longer than a
/// limit, so that no more than that is kept for whoever never ends a line. Not thread-safe.
class LineSplitter {
public:
    /// `longest` in bytes.
    explicit LineSplitter(std::size_t longest) : longest_(longest) {}

    /// The lines that these bytes complete, without their ends.
    std::vector<std::string> take(std::string_view bytes);

    /// The start of a line whose end has not come; nothing if there is none. It is not given again.
    std::optional<std::string> rest();

private:
    const std::size_t longest_;
    std::string unfinished_;
};

} // namespace cli
