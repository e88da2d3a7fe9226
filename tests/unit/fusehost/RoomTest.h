#pragma once

#include "ErrnoOf.h"
#include "MemoryVolume.h"
#include "ServedTree.h"

#include "foundation/Error.h"
#include "foundation/PosixErrno.h"
#include "hosts/fuse/tree/Attributes.h"
#include "hosts/fuse/tree/Changes.h"
#include "hosts/fuse/tree/Contents.h"
#include "hosts/fuse/tree/Durability.h"
#include "hosts/fuse/tree/HeadCopies.h"
#include "hosts/fuse/tree/HiddenFiles.h"
#include "hosts/fuse/tree/Nodes.h"
#include "hosts/fuse/tree/OpenFiles.h"
#include "hosts/fuse/tree/VolumeHandles.h"
#include "support/RecordingLog.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace fusehosttests {

namespace posixErrno = foundation::posixErrno;

using fskit::FSVolumeOpenModes;
using fusehost::Node;
using fusehost::NodeID;
using fusehost::OpenFileID;
using fusehost::rootNodeID;
using fusehost::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// The rooms of a file tree on which the others stand, over a MemoryVolume: a room is tested with those beneath it and
/// none above. The test says what time it is.
class RoomTest : public testing::Test {
protected:
    RoomTest() { table.root().item = calls.activate(); }

    /// A node for a file of that content in the root, which the kernel holds a reference of.
    Node& fileNamed(const std::string& name, std::string_view bytes) {
        served.put("/" + name, bytes);
        return found(name);
    }

    /// The same for what is there.
    Node& found(const std::string& name) {
        Node& node = nodes.adopt(root(), nodes.find(root(), name));
        node.lookups = 1;
        node.size = nodes.attributesOf(node).size();
        served.takeRequests();
        return node;
    }

    Node& root() { return table.root(); }

    static std::span<const std::byte> bytes(std::string_view text) { return std::as_bytes(std::span(text)); }

    std::string contentOf(Node& node, std::int64_t offset = 0) {
        std::string content(100, '?');
        content.resize(contents.read(node, offset, std::as_writable_bytes(std::span(content))));
        return content;
    }

    std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
    const fusehost::Clock clock = [this] { return now; };
    ServedTree served;
    testsupport::RecordingLog log;
    std::shared_ptr<MemoryVolume> volume = std::make_shared<MemoryVolume>(served);
    fusehost::VolumeCalls calls{volume};
    const fusehost::AttributeMap attributeMap{fusehost::MountOptions()};
    fusehost::NodeTable table;
    fusehost::HiddenNames hiddenNames;
    fusehost::Freshness freshness{Seconds(10), clock};
    fusehost::Absence absence{true, clock};
    fusehost::VolumeHandles handles{calls, table, Seconds(10)};
    fusehost::Nodes nodes{calls, table, handles};
    fusehost::Changes changes{handles, freshness, absence};
    fusehost::Attributes attributes{calls, nodes, freshness, attributeMap};
    fusehost::Contents contents{nodes, handles, freshness, 4096};
    fusehost::HiddenFiles hidden{nodes, handles, freshness, hiddenNames};
    fusehost::Durability durability{nodes, handles, attributes};
    fusehost::OpenFiles files{nodes, handles, hidden, false};
};

} // namespace fusehosttests
