#include "hosts/fuse/tree/OutsideChanges.h"

#include <unordered_set>

namespace fusehost {

OutsideChanges::OutsideChanges(Nodes& nodes, Contents& contents, Freshness& freshness, Absence& absence,
                               ToldAbsences& absences)
    : nodes_(nodes), contents_(contents), freshness_(freshness), absence_(absence), absences_(absences) {}

void OutsideChanges::note(std::string_view path, ToForget& toForget) {
    absence_.take();
    const auto [node, unknown] = placeOf(path);
    if (unknown.empty()) {
        if (node->parent != nullptr)
            noteName(*node->parent, node->name, !node->isDirectory(), toForget);
        noteEverything(*node, toForget);
        return;
    }
    // That nothing lies behind a file says that it is none any more.
    if (!node->isDirectory()) {
        noteName(*node->parent, node->name, true, toForget);
        noteNode(*node, toForget);
        return;
    }
    noteName(*node, unknown, false, toForget);
}

OutsideChanges::Place OutsideChanges::placeOf(std::string_view path) {
    Node* node = &nodes_.at(rootNodeID);
    std::string name;
    while (true) {
        const std::size_t start = path.find_first_not_of('/');
        if (start == std::string_view::npos)
            return {node, {}};
        path.remove_prefix(start);
        name = path.substr(0, path.find('/'));
        path.remove_prefix(name.size());
        Node* child = nodes_.child(*node, name);
        if (child == nullptr)
            return {node, name};
        node = child;
    }
}

// A listing that was taken before is not to be believed, neither of the name nor of others that are not known: one of
// them may have become this one.
void OutsideChanges::noteName(Node& directory, const std::string& name, bool isFile, ToForget& toForget) {
    freshness_.noteChange(directory);
    toForget.names.push_back({directory.id, name, isFile});
    if (toForget.directories.empty() || toForget.directories.back() != directory.id)
        toForget.directories.push_back(directory.id);
}

void OutsideChanges::noteEverything(Node& top, ToForget& toForget) {
    std::unordered_set<NodeID> directories;
    std::vector<Node*> ahead{&top};
    while (!ahead.empty()) {
        Node& node = *ahead.back();
        ahead.pop_back();
        noteNode(node, toForget);
        if (node.isDirectory())
            directories.insert(node.id);
        for (Node* child = node.firstChild; child != nullptr; child = child->nextSibling) {
            toForget.names.push_back({node.id, child->name, !child->isDirectory()});
            ahead.push_back(child);
        }
    }
    if (!directories.empty())
        absences_.forEach([&](NodeID directory) { return directories.count(directory) != 0; },
                          [&](NodeID directory, const std::string& name) {
                              toForget.names.push_back({directory, name, false});
                          });
}

void OutsideChanges::noteNode(Node& node, ToForget& toForget) {
    contents_.noteChange(node);
    toForget.nodes.push_back(node.id);
}

} // namespace fusehost
