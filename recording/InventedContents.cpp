#include "recording/InventedContents.h"

#include <utility>

namespace recording {

void InventedContents::renamed(const std::string& from, const std::string& to) {
    const bool moved = paths_.erase(from) > 0;
    paths_.erase(to); // replaced
    if (moved)
        paths_.insert(to);
    const std::string beneath = from + "/";
    std::set<std::string> others;
    for (auto at = paths_.lower_bound(beneath); at != paths_.end() && at->starts_with(beneath); at = paths_.erase(at))
        others.insert(to + at->substr(from.size()));
    paths_.merge(others);
}

} // namespace recording
