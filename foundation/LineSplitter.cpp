#include "foundation/LineSplitter.h"

#include <utility>

namespace foundation {
namespace {

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
}

// Where to cut: at `longest`, or before the character that goes beyond it. Bytes that are no UTF-8 are cut anywhere.
std::size_t cutIn(const std::string& text, std::size_t longest) {
    constexpr std::size_t longestCharacter = 4;
    for (std::size_t cut = longest; cut + longestCharacter > longest; --cut)
        if (!continuesCharacter(text[cut]))
            return cut;
    return longest;
}

} // namespace

void LineSplitter::cutTooLong(std::vector<std::string>& lines) {
    while (unfinished_.size() > longest_) {
        const std::size_t cut = cutIn(unfinished_, longest_);
        lines.push_back(unfinished_.substr(0, cut));
        unfinished_.erase(0, cut);
    }
}

std::vector<std::string> LineSplitter::take(std::string_view bytes) {
    std::vector<std::string> lines;
    for (;;) {
        const auto end = bytes.find('\n');
        unfinished_ += bytes.substr(0, end);
        cutTooLong(lines);
        if (end == std::string_view::npos)
            return lines;
        lines.push_back(std::exchange(unfinished_, {}));
        bytes.remove_prefix(end + 1);
    }
}

std::optional<std::string> LineSplitter::rest() {
    if (unfinished_.empty())
        return std::nullopt;
    return std::exchange(unfinished_, {});
}

} // namespace foundation
