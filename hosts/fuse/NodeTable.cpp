#include "hosts/fuse/NodeTable.h"

#include <algorithm>
#include <functional>

namespace fusehost {

std::size_t NodeTable::Hash::operator()(const Name& name) const {
    const std::size_t text = std::hash<std::string_view>()(name.name);
    return text ^ (reinterpret_cast<std::uintptr_t>(name.parent) >> 4) * 0x9E3779B97F4A7C15u;
}

NodeTable::NodeTable() {
    auto root = std::make_unique<Node>();
    root->id = rootNodeID;
    root->lookups = 1; // the kernel always holds the root and never forgets it
    root->type = fskit::FSItemType::directory;
    root_ = root.get();
    nodes_.emplace(rootNodeID, std::move(root));
}

NodeTable::~NodeTable() = default;

Node* NodeTable::find(NodeID id) {
    const auto found = nodes_.find(id);
    return found == nodes_.end() ? nullptr : found->second.get();
}

Node* NodeTable::child(const Node& directory, std::string_view name) {
    const auto found = names_.find(Name{&directory, name});
    return found == names_.end() ? nullptr : *found;
}

Node& NodeTable::childOrNew(Node& directory, std::string_view name) {
    if (Node* known = child(directory, name))
        return *known;
    auto made = std::make_unique<Node>();
    made->id = nextID_++;
    Node& node = *made;
    nodes_.emplace(node.id, std::move(made));
    attach(node, directory, name);
    return node;
}

void NodeTable::attach(Node& node, Node& directory, std::string_view name) {
    node.parent = &directory;
    node.name = name;
    node.previousSibling = nullptr;
    node.nextSibling = directory.firstChild;
    if (directory.firstChild != nullptr)
        directory.firstChild->previousSibling = &node;
    directory.firstChild = &node;
    names_.insert(&node);
}

void NodeTable::detach(Node& node) {
    if (node.parent == nullptr)
        return;
    names_.erase(&node);
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
    detach(node);
    attach(node, directory, name);
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
    return reclaimed;
}

void NodeTable::deleteIfUnused(Node& node) {
    Node* current = &node;
    while (current != nullptr && current != root_ && current->lookups == 0 && !current->isOpen() && !current->hidden &&
           current->firstChild == nullptr) {
        Node* parent = current->parent;
        // What the table no longer knows of the child, the directory remembers: an older listing must not be believed.
        if (parent != nullptr)
            parent->changed = std::max(parent->changed, current->changed);
        detach(*current);
        nodes_.erase(current->id);
        current = parent;
    }
}

} // namespace fusehost
