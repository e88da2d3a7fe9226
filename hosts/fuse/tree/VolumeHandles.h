#pragma once

#include "fskit/FSVolumeTypes.h"
#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/tree/IdleWork.h"
#include "hosts/fuse/tree/NodeTable.h"
#include "hosts/fuse/tree/OpenItems.h"
#include "hosts/fuse/tree/ReadAhead.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fusehost {

/// What is open in the volume: opened, read and written through, and closed here and nowhere else, and so are the
/// operations with which the volume closes by itself what is open. Looks nothing up: whoever calls sees to it that the
/// node has its item (`Nodes::itemOf`). Failures are KernelErrors unless a function says otherwise.
///
/// Two rules hold throughout. Of items that share an identifier one at a time is open, and what would open another has
/// the first give way. And the handles of files that were only read are closed when the kernel asks for nothing, or
/// before names or files change (`Changes`), whichever is first.
class VolumeHandles final : public IdleWork {
public:
    /// `attrTimeout` is for how long a block that was read ahead may serve.
    VolumeHandles(VolumeCalls& volume, NodeTable& table, Seconds attrTimeout);

    // Use
    void open(Node& node, fskit::FSVolumeOpenModes modes);
    /// One request. Bytes read; 0 at the end of the file.
    std::size_t read(Node& node, std::int64_t offset, std::span<std::byte> into);
    /// One request. Bytes written.
    std::size_t write(Node& node, std::int64_t offset, std::span<const std::byte> contents);
    /// Sets the size to 0; the volume closes what is open of the file. The attributes after that.
    fskit::FSItemAttributes makeEmpty(Node& node);
    void remove(const fskit::FSItemPtr& item, const fskit::FSItemPtr& directory, const std::string& name);
    void rename(const fskit::FSItemPtr& item, const fskit::FSItemPtr& from, const std::string& oldName,
                const fskit::FSItemPtr& to, const std::string& newName);
    /// Has the helper make safe all files that are open for writing.
    void synchronize();

    // Reading ahead
    /// Begins to read a block of a file that was just read.
    void readAhead(const Node& node, std::int64_t offset, std::size_t size);
    /// Takes what was read ahead of the block at `offset`: bytes, 0 if nothing was.
    std::size_t takeReadAhead(const Node& node, std::int64_t offset, std::span<std::byte> into);
    /// What was read ahead of the file is true no more.
    void dropReadAhead(const Node& node);

    // Closing
    /// Closes what no opener of the node needs.
    void closeUnused(Node& node);
    /// The same where nobody is left to be told of a failure, or another one is to be reported: it is logged.
    void closeQuietly(Node& node) noexcept;
    /// Closes what is open at the node, needed or not. A failure is kept for the file's next flush.
    void closeEverything(Node& node);
    /// Closes everything that is open at the node and beneath it: the volume's handles are tied to paths. They open
    /// again when next used. A failure is kept for the file's next flush.
    void closeForMove(Node& node);
    /// The volume is another one from now on: nothing is open in it. Waits for a block that is being read ahead.
    void forgetAll();
    /// Closes what other files have open for writing. They open again when next written. One that could not, because
    /// its mode was changed, stays open. Failures are kept for the files' next flushes.
    void closeOtherWriters(const Node& node);

    // Readers that nobody uses any more
    /// What is open for reading alone, at a node that nobody has open, may wait to be closed.
    void closeWhenIdle(Node& node);

    /// Whether what waits to be closed is of the node's file.
    bool isUnused(const Node& node) const { return open_.isUnused(*node.item); }

    /// Closes all that waits. Failures are logged.
    void closeAllUnused() noexcept;

    bool isPending() const override { return open_.unused() > 0; }

    /// Closes the one that waits longest.
    void doNext() noexcept override;

    bool isUnderWay() override { return readAhead_.isUnderWay(); }

    /// Whether the volume is known to answer no more, and another one is to take its place.
    bool hasEnded() const { return volume_.hasEnded(); }

    // The account
    bool mayBeWritten(const Node& node) const;
    /// The other nodes whose files may be open for writing.
    std::vector<Node*> otherWriters(const Node& node);

    /// Items of which something may be open.
    std::size_t openItems() const { return open_.size(); }

private:
    void close(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes keeping);
    void closeUnusedReader(const fskit::FSItemPtr& item) noexcept;
    void haveRivalsGiveWay(const fskit::FSItem& item);
    void giveWay(const fskit::FSItemPtr& item);

    VolumeCalls& volume_;
    NodeTable& table_;
    ReadAhead readAhead_;
    OpenItems open_;
};

} // namespace fusehost
