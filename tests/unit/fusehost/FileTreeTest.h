#pragma once

#include "ErrnoOf.h"
#include "MemoryVolume.h"
#include "ServedTree.h"

#include "foundation/Error.h"
#include "foundation/PosixErrno.h"
#include "hosts/fuse/tree/FileTree.h"
#include "support/RecordingLog.h"

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace fusehosttests {

namespace posixErrno = foundation::posixErrno;

using fusehost::NodeID;
using fusehost::OpenFileID;
using fusehost::rootNodeID;
using fusehost::TreeEntry;
using testing::ElementsAre;
using testing::IsEmpty;

/// Fails as a volume does that has ended, if `isGone` is what tells an end.
[[noreturn]] void throwGone();
bool isGone(const foundation::ErrorOrigin& origin);

/// A file tree over a MemoryVolume. The test plays the kernel through the functions below, which keep account of what
/// was handed out. At the end of each test everything is given back, and then nothing may be left: no helper handle, no
/// node but the root, no hidden file.
class FileTreeTest : public testing::Test {
protected:
    /// The tree, made with `options` when it is first asked for.
    fusehost::FileTree& tree();

    fusehost::VolumeCalls& calls() {
        tree();
        return *calls_;
    }

    /// Looks every name of the path up, as the kernel does.
    TreeEntry lookup(const std::string& path);

    NodeID node(const std::string& path) { return lookup(path).node; }

    /// The node of a path's directory and the last name.
    std::pair<NodeID, std::string> place(const std::string& path);

    OpenFileID open(const std::string& path, int flags);
    OpenFileID create(const std::string& path, int flags = O_RDWR, mode_t mode = 0644);
    void makeNode(const std::string& path, mode_t mode = S_IFREG | 0644);
    void makeDirectory(const std::string& path, mode_t mode = 0755);
    void write(OpenFileID file, std::int64_t offset, std::string_view bytes);
    std::string read(OpenFileID file, std::int64_t offset = 0, std::size_t count = 4096);
    /// What close(2) of the last descriptor does: a flush, whose errno is returned, and a release.
    int close(OpenFileID file);
    /// What the end of the last map of a file does: no flush, and nobody is told anything.
    void release(OpenFileID file);
    /// The kernel asks for nothing for a while.
    void idle();
    void remove(const std::string& path);
    void removeDirectory(const std::string& path);
    void rename(const std::string& oldPath, const std::string& newPath, unsigned flags = 0);
    struct stat truncate(const std::string& path, std::uint64_t size);
    /// All names that a program would see.
    std::vector<std::string> list(const std::string& path);
    /// Takes back what the tests holds of a node.
    void forget(NodeID node);

    /// Another volume over the same served tree takes the place of this one, which goes in good order.
    void changeVolume();
    /// The same after the volume has ended by itself.
    void loseVolume();

    /// The end of the mount; what is open then stays the tree's.
    void end();
    void TearDown() override;

    /// What was released without `release`.
    void forgetOpen(OpenFileID file) { open_.erase(file); }

    fusehost::EndTest endTest; // to be set before the tree is asked for
    ServedTree served;
    fusehost::MountOptions options;
    testsupport::RecordingLog log;
    std::shared_ptr<MemoryVolume> volume = std::make_shared<MemoryVolume>(served);

private:
    TreeEntry counted(const TreeEntry& entry);
    void takeAnotherVolume();

    std::unique_ptr<fusehost::VolumeCalls> calls_;
    std::unique_ptr<fusehost::FileTree> tree_;
    std::map<NodeID, std::uint64_t> held_;
    std::set<OpenFileID> open_;
    bool ended_ = false;
};

} // namespace fusehosttests
