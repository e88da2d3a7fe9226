#include "hosts/fuse/tree/NodeTable.h"

#include <algorithm>
#include <functional>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace fusehost {

namespace {

// Fewer are not worth a pass over all free memory.
constexpr std::size_t manyNodes = 20'000;

std::uint32_t hashOf(const Node& directory, std::string_view name) {
    const std::size_t text = std::hash<std::string_view>()(name);
    const std::size_t mixed = text ^ directory.id * 0x9E3779B97F4A7C15u;
    return static_cast<std::uint32_t>(mixed ^ mixed >> 32);
}

// What the allocator keeps of nodes that are gone lies between nodes that are not, and it gives such memory back only
// when it is told to. Others do so by themselves.
void giveFreeMemoryBack() {
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
}

} // namespace

NodeTable::NodeTable() : root_(new Node) {
    root_->id = rootNodeID;
    root_->lookups = 1; // the kernel always holds the root and never forgets it
    root_->type = fskit::FSItemType::directory;
    ids_.insert(*root_);
}

NodeTable::~NodeTable() {
    ids_.forEach([](Node& node) { delete &node; });
}

Node* NodeTable::find(NodeID id) {
    Node* node = ids_.chain(id);
    while (node != nullptr && node->id != id)
        node = node->nextOfID;
    return node;
}

Node* NodeTable::child(const Node& directory, std::string_view name) {
    return childOfHash(directory, name, hashOf(directory, name));
}

Node* NodeTable::childOfHash(const Node& directory, std::string_view name, std::uint32_t hash) {
    Node* node = names_.chain(hash);
    while (node != nullptr && (node->nameHash != hash || node->parent != &directory || node->name != name))
        node = node->nextOfName;
    return node;
}

Node& NodeTable::childOrNew(Node& directory, std::string_view name) {
    const std::uint32_t hash = hashOf(directory, name);
    if (Node* known = childOfHash(directory, name, hash))
        return *known;
    auto made = std::make_unique<Node>();
    made->id = nextID_++;
    ids_.insert(*made);
    Node& node = *made.release();
    attach(node, directory, name, hash);
    return node;
}

void NodeTable::attach(Node& node, Node& directory, std::string_view name, std::uint32_t hash) {
    node.parent = &directory;
    node.name = name;
    node.previousSibling = nullptr;
    node.nextSibling = directory.firstChild;
    if (directory.firstChild != nullptr)
        directory.firstChild->previousSibling = &node;
    directory.firstChild = &node;
    node.nameHash = hash;
    names_.insert(node);
}

void NodeTable::detach(Node& node) {
    const Node* directory = node.parent;
    unlink(node);
    if (directory != nullptr && isUnused(*directory))
        bereaved_.push_back(directory->id);
}

void NodeTable::unlink(Node& node) {
    if (node.parent == nullptr)
        return;
    names_.erase(node);
    if (node.previousSibling != nullptr)
        node.previousSibling->nextSibling = node.nextSibling;
    else
        node.parent->firstChild = node.nextSibling;
    if (node.nextSibling != nullptr)
        node.nextSibling->previousSibling = node.previousSibling;
    node.parent = nullptr;
    node.nextSibling = nullptr;
    node.previousSibling = nullptr;
    dropItemsBeneath(node);
}

void NodeTable::dropItemsBeneath(Node& node) {
    node.item.reset();
    for (Node* child = node.firstChild; child != nullptr; child = child->nextSibling)
        dropItemsBeneath(*child);
}

void NodeTable::move(Node& node, Node& directory, std::string_view name) {
    if (Node* replaced = child(directory, name); replaced != nullptr && replaced != &node) {
        detach(*replaced);
        deleteIfUnused(*replaced);
    }
    Node* oldParent = node.parent;
    unlink(node);
    attach(node, directory, name, hashOf(directory, name));
    if (oldParent != nullptr)
        deleteIfUnused(*oldParent);
}

std::shared_ptr<fskit::FSItem> NodeTable::forget(NodeID id, std::uint64_t lookups) {
    Node* node = find(id);
    if (node == nullptr || node == root_)
        return nullptr;
    node->lookups -= std::min(lookups, node->lookups);
    std::shared_ptr<fskit::FSItem> reclaimed;
    if (node->lookups == 0 && !node->isOpen())
        reclaimed = std::move(node->item);
    deleteIfUnused(*node);
    deleteBereaved();
    return reclaimed;
}

void NodeTable::deleteIfUnused(Node& node) {
    Node* current = &node;
    while (current != nullptr && isUnused(*current)) {
        Node* parent = current->parent;
        // What the table no longer knows of the child, the directory remembers: an older listing must not be believed.
        if (parent != nullptr) {
            parent->changed = std::max(parent->changed, current->changed);
            forgottenDue_ = forgottenDue_ || current->safety == Safety::due;
        }
        unlink(*current);
        erase(*current);
        current = parent;
    }
}

bool NodeTable::isUnused(const Node& node) const {
    return &node != root_ && node.lookups == 0 && !node.isOpen() && !node.hidden && node.firstChild == nullptr;
}

void NodeTable::deleteBereaved() {
    for (const NodeID id : std::exchange(bereaved_, {}))
        if (Node* node = find(id))
            deleteIfUnused(*node);
}

void NodeTable::erase(Node& node) {
    ids_.erase(node);
    delete &node;
    // In proportion to what is left, so that the time for it never adds up.
    if (++erased_ < std::max(manyNodes, size()))
        return;
    erased_ = 0;
    giveFreeMemoryBack();
}

} // namespace fusehost
