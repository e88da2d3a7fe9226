#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/tree/DirectorySnapshot.h"
#include "hosts/fuse/tree/NodeTable.h"
#include "hosts/fuse/tree/VolumeHandles.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace fusehost {

/// Which item a node has now, and when a node may go. The kernel knows nodes, the volume knows items, which are paths:
/// here the one is made of the other, by a question to the volume where need be, and what is found to be gone loses its
/// node, after what is open of it was closed.
///
/// A node that a request names lives through the request. What a function may end beyond that, it says; the rules are
/// at `Node`. Failures are KernelErrors.
class Nodes {
public:
    Nodes(VolumeCalls& volume, NodeTable& table, VolumeHandles& handles);

    // Nodes by what the kernel calls them
    /// ESTALE if there is no such node.
    Node& at(NodeID id);

    /// Null if there is no such node.
    Node* find(NodeID id) { return table_.find(id); }

    /// ENOTDIR if it is no directory.
    Node& directoryAt(NodeID id);
    /// Null if it is not known.
    Node* child(const Node& directory, const std::string& name);
    /// ENAMETOOLONG
    void checkName(const std::string& name) const;

    /// Bytes.
    std::size_t maximumNameLength() const { return volume_.maximumNameLength(); }

    // The volume's side of them
    /// The node's item, made or looked up if the node has none. ESTALE if the node has lost its name or its file, which
    /// may end the node.
    const fskit::FSItemPtr& itemOf(Node& node);
    /// The same, but one that the volume has told and that was not made of a listing.
    const fskit::FSItemPtr& toldItemOf(Node& node);
    /// What the volume says of the node's item now.
    fskit::FSItemAttributes attributesOf(Node& node);
    /// What has the node's name now becomes its item. ESTALE if that is nothing, or of another type; which may end the
    /// node.
    FoundItem lookUpAgain(Node& node);
    /// Makes the node's file anew, empty.
    fskit::FSItemPtr makeAnew(Node& node);

    // Names in a directory
    /// A name that is not there ends the node that had it.
    SoughtItem seek(Node& directory, const std::string& name);
    /// The same; ENOENT if there is no such name.
    FoundItem find(Node& directory, const std::string& name);
    /// Whether the helper knows the name now. Nothing comes of it.
    bool isTaken(Node& directory, const std::string& name);

    /// A name resolved for a change: its item, and its node if the kernel knows it.
    struct Resolved {
        Node* node = nullptr;
        fskit::FSItemPtr item;
        bool isDirectory = false;
    };

    /// Asks the volume only where the node of that name, if there is one, does not say enough. ENOENT
    Resolved resolve(Node& directory, const std::string& name);

    // Coming and going
    /// The node for what was found or made in the directory. Ends an earlier one of that name of another type.
    Node& adopt(Node& directory, const FoundItem& found);
    /// The node for an entry of a listing. A known one must be of the entry's type.
    Node& adoptListed(Node& directory, const ListedEntry& entry);
    /// The node gets another name, after the volume has renamed its file. Ends a node that had it.
    void move(Node& node, Node& directory, const std::string& name);
    /// The node's file was removed, or replaced. Ends the node if nothing needs it.
    void drop(Node& node);
    /// Forgets a node whose file is gone or has become something else, and closes what is open of it first.
    void dropVanished(Node& node);

    /// How many nodes have lost their file behind the mount so far.
    std::uint64_t vanished() const { return vanished_; }

    /// Ends the node if nothing needs it.
    void dropIfUnused(Node& node);
    /// The kernel gives back references. May end the node.
    void forget(NodeID id, std::uint64_t lookups);

    /// Whether a node has gone whose file still has its name and something written to it that is not safe.
    bool hasForgottenDue() const { return table_.hasForgottenDue(); }

private:
    void makeItem(Node& node);
    void setItem(Node& node, const FoundItem& found);

    VolumeCalls& volume_;
    NodeTable& table_;
    VolumeHandles& handles_;
    std::uint64_t vanished_ = 0;
};

} // namespace fusehost
