#include "hosts/fuse/tree/NodePath.h"

#include <algorithm>
#include <cstring>

namespace fusehost {
namespace {

/// Writes backwards, as much as there is room for.
class BackwardWriter {
public:
    explicit BackwardWriter(std::span<char> room)
        : begin_(room.data()), at_(room.data() + room.size()), end_(room.data() + room.size()) {}

    void prepend(std::string_view text) {
        const std::size_t fits = std::min(text.size(), static_cast<std::size_t>(at_ - begin_));
        at_ -= fits;
        std::memcpy(at_, text.data() + (text.size() - fits), fits);
    }

    bool isEmpty() const { return at_ == end_; }

    std::string_view text() const { return {at_, static_cast<std::size_t>(end_ - at_)}; }

private:
    char* const begin_;
    char* at_;
    char* const end_;
};

} // namespace

std::string_view pathOf(const Node& node, std::string_view name, std::span<char> room) {
    BackwardWriter path(room);
    if (!name.empty()) {
        path.prepend(name);
        path.prepend("/");
    }
    const Node* top = &node;
    for (; top->parent != nullptr; top = top->parent) {
        path.prepend(top->name);
        path.prepend("/");
    }
    if (top->id != rootNodeID) {
        path.prepend(top->name);
        path.prepend("(removed)/");
    } else if (path.isEmpty()) {
        path.prepend("/");
    }
    return path.text();
}

} // namespace fusehost
