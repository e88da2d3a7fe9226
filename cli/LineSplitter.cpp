#include "cli/LineSplitter.h"

#include <utility>

namespace cli {

std::vector<std::string> LineSplitter::take(std::string_view bytes) {
    std::vector<std::string> lines;
    for (auto end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        lines.push_back(std::exchange(unfinished_, {}).append(bytes.substr(0, end)));
        bytes.remove_prefix(end + 1);
    }
    unfinished_ += bytes;
    if (unfinished_.size() > longest_)
        lines.push_back(std::exchange(unfinished_, {}));
    return lines;
}

std::optional<std::string> LineSplitter::rest() {
    if (unfinished_.empty())
        return std::nullopt;
    return std::exchange(unfinished_, {});
}

} // namespace cli
