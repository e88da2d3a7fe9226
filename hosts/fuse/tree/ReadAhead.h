#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/tree/NodeTable.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace fusehost {

/// Reads the next block of a file while the last one is on its way to the program, so that host and helper work at the
/// same time. One block of one file; the helper still gets one request at a time. To be used by one thread.
class ReadAhead {
public:
    /// A block serves for `maximumAge` from when it was asked for. With 0 nothing is asked before it is wanted.
    ReadAhead(VolumeCalls& volume, Seconds maximumAge) : volume_(volume), maximumAge_(maximumAge) {}

    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;
    /// Waits for the read under way.
    ~ReadAhead();

    /// Begins to read `size` bytes at `offset` of a node's file, which must be open. A block that nobody took is
    /// forgotten.
    void start(const Node& node, std::int64_t offset, std::size_t size);

    /// What was read of the block at `offset`, waiting for it if need be: the number of bytes, at most the size of
    /// `into`. 0 if that block was not asked for, was asked for too long ago, or could not be read: whoever reads it
    /// then meets the error.
    std::size_t take(NodeID node, std::int64_t offset, std::span<std::byte> into);

    /// Whether a block is being read.
    bool isUnderWay();

    /// Forgets what was read of the node's file, by whatever name, and waits for the read under way: it uses the
    /// volume's handle of the file.
    void drop(const Node& node);
    /// The same for whatever file it is of.
    void dropAll();

private:
    using Guard = std::unique_lock<std::mutex>;

    enum class State { empty, asked, read };

    struct Block {
        NodeID node = 0;
        fskit::FSItemPtr item;
        std::int64_t offset = 0;
        std::size_t size = 0;
        std::chrono::steady_clock::time_point asked;
    };

    void work();
    /// Starts the thread where there is none yet; false if there can be none.
    bool hasThread();
    void clear(Guard& guard);

    VolumeCalls& volume_;
    const Seconds maximumAge_;
    std::mutex lock_;
    std::condition_variable changed_;
    State state_ = State::empty;
    Block block_;                  // the reader's own while `asked`, except for what `drop` compares
    std::vector<std::byte> bytes_; // the reader's own while `asked`
    std::size_t count_ = 0;        // bytes that were read
    bool ending_ = false;
    std::thread reader_;
};

} // namespace fusehost
