#pragma once

#include <cstddef>
#include <vector>

namespace fusehost {

struct Node;

/// A hash table of nodes that are chained through themselves: it allocates nothing per node, of which there may be
/// millions, and gives memory back as nodes go. `Key` says how: `Key::hash(node)`, a hash that stays the same while the
/// node is in the table, and `Key::next(node)`, a reference to the pointer that links the chain. Owns no node.
template <typename Key>
class NodeIndex {
public:
    NodeIndex() : slots_(fewestSlots) {}

    /// The first of the chain in which nodes of that hash are; null if it is empty.
    Node* chain(std::size_t hash) const { return slots_[hash & (slots_.size() - 1)]; }

    void insert(Node& node) {
        if (count_ == slots_.size())
            resize(2 * slots_.size());
        link(node);
        ++count_;
    }

    /// The node must be in the table.
    void erase(Node& node) {
        Node** at = &slotOf(node);
        while (*at != &node)
            at = &Key::next(**at);
        *at = Key::next(node);
        --count_;
        if (slots_.size() > fewestSlots && count_ < slots_.size() / 8)
            resize(slots_.size() / 4);
    }

    std::size_t size() const { return count_; }

    /// Calls `use(Node&)` for each node, which it may delete.
    template <typename Use>
    void forEach(const Use& use) const {
        for (Node* node : slots_)
            while (node != nullptr) {
                Node& current = *node;
                node = Key::next(current);
                use(current);
            }
    }

private:
    static constexpr std::size_t fewestSlots = 64; // a power of two, as every number of slots

    Node*& slotOf(Node& node) { return slots_[Key::hash(node) & (slots_.size() - 1)]; }

    void link(Node& node) {
        Node*& slot = slotOf(node);
        Key::next(node) = slot;
        slot = &node;
    }

    void resize(std::size_t slots) {
        NodeIndex resized(slots);
        forEach([&](Node& node) { resized.link(node); });
        slots_.swap(resized.slots_);
    }

    explicit NodeIndex(std::size_t slots) : slots_(slots) {}

    std::vector<Node*> slots_;
    std::size_t count_ = 0;
};

} // namespace fusehost
