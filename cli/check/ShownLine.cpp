#include "cli/check/ShownLine.h"

#include "cli/CommandError.h"

namespace cli::check {

namespace {

/// At most `size` bytes from the start of `text`, with no character of UTF-8 cut in two.
std::string_view start(std::string_view text, std::size_t size) {
    if (text.size() <= size)
        return text;
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xc0) == 0x80)
        --size;
    return text.substr(0, size);
}

} // namespace

std::string shownLine(std::string_view line, std::size_t length) {
    std::string shown = escapedControls(start(line, longestShown));
    if (length > longestShown)
        shown += "... (" + std::to_string(length) + " bytes)";
    return shown;
}

} // namespace cli::check
