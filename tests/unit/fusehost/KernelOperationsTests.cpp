#include "SessionTest.h"

#include "hosts/fuse/kernel/KernelOperations.h"
#include "hosts/fuse/kernel/LibFuse.h"

#include <chrono>
#include <dirent.h>
#include <linux/fuse.h>
#include <new>
#include <stdexcept>
#include <unistd.h>

namespace fusehosttests {
namespace {

using Answer = PlayedKernel::Answer;
using testing::Contains;
using testing::HasSubstr;

class KernelOperations : public SessionTest {
protected:
    std::string named(const std::string& name) { return name + '\0'; }

    Answer create(const std::string& name) {
        fuse_create_in made{};
        made.flags = O_RDWR | O_CREAT;
        made.mode = S_IFREG | 0644;
        return kernel.call(FUSE_CREATE, rootNodeID, bytesOf(made) + named(name));
    }

    fuse_open_out opened(NodeID node, int flags) {
        fuse_open_in asked{};
        asked.flags = static_cast<std::uint32_t>(flags);
        const Answer answer = kernel.call(FUSE_OPEN, node, bytesOf(asked));
        EXPECT_EQ(answer.error, 0);
        return fromBytes<fuse_open_out>(answer.body);
    }

    std::uint64_t openedRoot() {
        const Answer answer = kernel.call(FUSE_OPENDIR, rootNodeID, bytesOf(fuse_open_in{}));
        EXPECT_EQ(answer.error, 0);
        return fromBytes<fuse_open_out>(answer.body).fh;
    }

    std::string readOf(std::uint64_t handle, std::uint64_t offset, std::uint32_t size) {
        fuse_read_in asked{};
        asked.fh = handle;
        asked.offset = offset;
        asked.size = size;
        return bytesOf(asked);
    }

    /// A listing's names and node numbers.
    std::vector<std::pair<std::string, NodeID>> parsed(const std::string& listing) {
        std::vector<std::pair<std::string, NodeID>> entries;
        for (std::size_t at = 0; at < listing.size();) {
            const auto entry = fromBytes<fuse_entry_out>(listing, at);
            const auto dirent = fromBytes<fuse_dirent>(listing, at + sizeof entry);
            entries.emplace_back(listing.substr(at + FUSE_NAME_OFFSET_DIRENTPLUS, dirent.namelen), entry.nodeid);
            at += FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET_DIRENTPLUS + dirent.namelen);
        }
        return entries;
    }

    void forget(NodeID node) { kernel.ask(FUSE_FORGET, node, bytesOf(fuse_forget_in{1})); }

    /// Ends the loop, so that the test may look at the tree: how many nodes it holds beside the root.
    std::size_t nodesLeft() {
        requestStop();
        EXPECT_TRUE(waitForEnd());
        return tree().nodes().size() - 1;
    }

    /// An answer shows that everything before it has been executed.
    void settle() { EXPECT_EQ(kernel.call(FUSE_STATFS, rootNodeID).error, 0); }
};

// Greeting

/// What is wanted of a kernel that offers everything.
unsigned wantedWith(const fusehost::MountOptions& options, fusehost::FileTree& tree, unsigned capable) {
    fusehost::KernelContext context{tree, options, {}};
    fuse_conn_info connection{};
    connection.capable = capable;
    connection.want = FUSE_CAP_SPLICE_READ | FUSE_CAP_HANDLE_KILLPRIV; // defaults of libfuse's
    fusehost::kernelOperations().init(&context, &connection);
    return connection.want;
}

TEST_F(KernelOperations, wantWhatPaysAndRefuseTheRest) {
    const unsigned all = ~0U;
    const unsigned wanted = wantedWith(options, tree(), all);
    EXPECT_EQ(wanted, static_cast<unsigned>(FUSE_CAP_READDIRPLUS | FUSE_CAP_READDIRPLUS_AUTO |
                                            FUSE_CAP_AUTO_INVAL_DATA | FUSE_CAP_ATOMIC_O_TRUNC));
    options.writeback = true;
    EXPECT_EQ(wantedWith(options, tree(), all), wanted | FUSE_CAP_WRITEBACK_CACHE);
}

TEST_F(KernelOperations, wantNothingThatTheKernelDoesNotOffer) {
    options.writeback = true;
    EXPECT_EQ(wantedWith(options, tree(), 0), 0U);
}

TEST_F(KernelOperations, tellTheKernelTheirSizesAndThatTimesAreInMilliseconds) {
    options.requestSize = 128 * 1024;
    connect();
    const Answer answer = greet(FUSE_MAX_PAGES | FUSE_BIG_WRITES | FUSE_ATOMIC_O_TRUNC | FUSE_DO_READDIRPLUS |
                                FUSE_READDIRPLUS_AUTO | FUSE_AUTO_INVAL_DATA | FUSE_WRITEBACK_CACHE);
    EXPECT_EQ(answer.error, 0);
    const auto agreed = fromBytes<fuse_init_out>(answer.body);
    EXPECT_EQ(agreed.major, static_cast<unsigned>(FUSE_KERNEL_VERSION));
    EXPECT_EQ(agreed.max_write, 512U * 1024); // four requests to the helper
    EXPECT_EQ(agreed.max_pages, 128U);
    EXPECT_EQ(agreed.time_gran, 1000000U);
    EXPECT_EQ(agreed.flags & FUSE_WRITEBACK_CACHE, 0U);
    constexpr unsigned needed =
        FUSE_ATOMIC_O_TRUNC | FUSE_DO_READDIRPLUS | FUSE_READDIRPLUS_AUTO | FUSE_AUTO_INVAL_DATA;
    EXPECT_EQ(agreed.flags & needed, needed);
}

TEST_F(KernelOperations, gatherWritesInTheKernelWhereThatIsAskedFor) {
    options.writeback = true;
    connect();
    EXPECT_NE(fromBytes<fuse_init_out>(greet(FUSE_WRITEBACK_CACHE).body).flags & FUSE_WRITEBACK_CACHE, 0U);
}

// Replies

TEST_F(KernelOperations, lookupRepliesTheNodeAndHowLongItMayBeTrusted) {
    options.entryTimeout = fusehost::Seconds(2.5);
    options.attrTimeout = fusehost::Seconds(0.25);
    served.put("/a", "12345");
    start();
    const auto found = fromBytes<fuse_entry_out>(kernel.call(FUSE_LOOKUP, rootNodeID, named("a")).body);
    EXPECT_GT(found.nodeid, rootNodeID);
    EXPECT_EQ(found.attr.size, 5U);
    EXPECT_EQ(found.attr.mode, static_cast<unsigned>(S_IFREG | 0644));
    EXPECT_EQ(found.entry_valid, 2U);
    EXPECT_EQ(found.entry_valid_nsec, 500000000U);
    EXPECT_EQ(found.attr_valid, 0U);
    EXPECT_EQ(found.attr_valid_nsec, 250000000U);
}

TEST_F(KernelOperations, lookupOfAMissingNameIsENOENT) {
    start();
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, named("a")).error, ENOENT);
}

TEST_F(KernelOperations, lookupOfAMissingNameIsRememberedByTheKernelWhereThatIsAskedFor) {
    options.negativeTimeout = fusehost::Seconds(3);
    start();
    const Answer answer = kernel.call(FUSE_LOOKUP, rootNodeID, named("a"));
    EXPECT_EQ(answer.error, 0);
    EXPECT_EQ(fromBytes<fuse_entry_out>(answer.body).nodeid, 0U);
    EXPECT_EQ(fromBytes<fuse_entry_out>(answer.body).entry_valid, 3U);
}

TEST_F(KernelOperations, anAbsenceThatTheKernelRemembersIsKnownToWhoHasItForget) {
    options.negativeTimeout = fusehost::Seconds(3);
    start();
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, named("a")).error, 0);
    requestStop();
    EXPECT_TRUE(waitForEnd());
    const fusehost::ToForget toForget = tree().noteOutsideChanges({"/"});
    ASSERT_EQ(toForget.names.size(), 1U);
    EXPECT_EQ(toForget.names[0].name, "a");
}

// A kernel that took a failure for an absence would let programs make what is there already.
TEST_F(KernelOperations, lookupThatFailsIsNoAbsenceWhereAbsencesAreRemembered) {
    options.negativeTimeout = fusehost::Seconds(3);
    served.put("/a", "x");
    start();
    served.before = refuseOnce("getattr /a", posixErrno::EACCES_);
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, named("a")).error, EACCES);
    EXPECT_NE(lookedUp("a"), 0U);
}

TEST_F(KernelOperations, createWriteReadAndReleaseWorkTogether) {
    start();
    const Answer made = create("a");
    ASSERT_EQ(made.error, 0);
    const auto entry = fromBytes<fuse_entry_out>(made.body);
    const auto file = fromBytes<fuse_open_out>(made.body, sizeof entry);
    fuse_write_in asked{};
    asked.fh = file.fh;
    asked.size = 4;
    const Answer written = kernel.call(FUSE_WRITE, entry.nodeid, bytesOf(asked) + "0123");
    EXPECT_EQ(fromBytes<fuse_write_out>(written.body).size, 4U);
    EXPECT_EQ(kernel.call(FUSE_READ, entry.nodeid, readOf(file.fh, 1, 100)).body, "123");
    fuse_release_in released{};
    released.fh = file.fh;
    EXPECT_EQ(kernel.call(FUSE_RELEASE, entry.nodeid, bytesOf(released)).error, 0);
    EXPECT_EQ(kernel.call(FUSE_READ, entry.nodeid, readOf(file.fh, 0, 1)).error, EBADF);
    EXPECT_EQ(served.openHandles(), 0U);
}

TEST_F(KernelOperations, aWriteThatIsCutShortTellsHowMuchIsWrittenAndOneOfPagesIsAnError) {
    options.requestSize = 4096;
    start();
    const Answer made = create("a");
    const auto entry = fromBytes<fuse_entry_out>(made.body);
    const auto file = fromBytes<fuse_open_out>(made.body, sizeof entry);
    served.before = refuseAlways("write /a 4096", posixErrno::ENOSPC_);
    fuse_write_in asked{};
    asked.fh = file.fh;
    asked.size = 8192;
    const std::string bytes(asked.size, 'x');
    EXPECT_EQ(fromBytes<fuse_write_out>(kernel.call(FUSE_WRITE, entry.nodeid, bytesOf(asked) + bytes).body).size,
              4096U);
    asked.write_flags = FUSE_WRITE_CACHE;
    EXPECT_EQ(kernel.call(FUSE_WRITE, entry.nodeid, bytesOf(asked) + bytes).error, ENOSPC);
    fuse_fsync_in synchronized{};
    synchronized.fh = file.fh;
    EXPECT_EQ(kernel.call(FUSE_FSYNC, entry.nodeid, bytesOf(synchronized)).error, ENOSPC);
    EXPECT_EQ(kernel.call(FUSE_FSYNC, entry.nodeid, bytesOf(synchronized)).error, 0);
}

TEST_F(KernelOperations, openKeepsThePagesAndSparesReadersTheFlush) {
    served.put("/a", "x");
    start();
    const NodeID node = lookedUp("a");
    EXPECT_EQ(opened(node, O_RDONLY).open_flags, static_cast<unsigned>(FOPEN_KEEP_CACHE | FOPEN_NOFLUSH));
    EXPECT_EQ(opened(node, O_RDWR).open_flags, static_cast<unsigned>(FOPEN_KEEP_CACHE));
    const Answer made = create("b");
    EXPECT_EQ(fromBytes<fuse_open_out>(made.body, sizeof(fuse_entry_out)).open_flags,
              static_cast<unsigned>(FOPEN_KEEP_CACHE));
}

TEST_F(KernelOperations, setattrChangesOnlyWhatIsAsked) {
    served.put("/a", "12345");
    start();
    const NodeID node = lookedUp("a");
    served.takeRequests();
    fuse_setattr_in asked{};
    asked.valid = FATTR_MODE;
    asked.mode = S_IFREG | 0600;
    asked.size = 1;
    asked.mtime = 1;
    EXPECT_EQ(kernel.call(FUSE_SETATTR, node, bytesOf(asked)).error, 0);
    EXPECT_EQ(served.mode("/a"), 0600U);
    EXPECT_EQ(served.bytes("/a"), "12345");
    asked.valid = FATTR_SIZE;
    EXPECT_EQ(fromBytes<fuse_attr_out>(kernel.call(FUSE_SETATTR, node, bytesOf(asked)).body).attr.size, 1U);
    asked.valid = FATTR_MTIME;
    asked.mtime = 1234567;
    EXPECT_EQ(fromBytes<fuse_attr_out>(kernel.call(FUSE_SETATTR, node, bytesOf(asked)).body).attr.mtime, 1234567U);
    asked.valid = FATTR_MTIME | FATTR_MTIME_NOW;
    const auto now = fromBytes<fuse_attr_out>(kernel.call(FUSE_SETATTR, node, bytesOf(asked)).body).attr.mtime;
    EXPECT_GE(now, 1700000000U);
}

TEST_F(KernelOperations, accessIsToldByWhatIsShown) {
    served.put("/a", "");
    start();
    const NodeID node = lookedUp("a");
    served.takeRequests();
    const auto access = [&](std::uint32_t user, std::uint32_t wanted) {
        kernel.beUser(user);
        return kernel.call(FUSE_ACCESS, node, bytesOf(fuse_access_in{wanted, 0})).error;
    };
    EXPECT_EQ(access(1000, R_OK | W_OK), 0);
    EXPECT_EQ(access(1000, X_OK), EACCES);
    EXPECT_EQ(access(0, X_OK), EACCES);
    EXPECT_EQ(access(1001, R_OK), 0);
    EXPECT_EQ(access(1001, W_OK), EACCES);
    EXPECT_THAT(served.takeRequests(), testing::IsEmpty());
}

TEST_F(KernelOperations, nothingIsChangedForWhoMayNotChangeIt) {
    served.put("/a", "text");
    served.putDirectory("/d");
    start();
    const NodeID node = lookedUp("a");
    const NodeID folder = lookedUp("d");
    EXPECT_EQ(kernel.call(FUSE_GETATTR, rootNodeID, bytesOf(fuse_getattr_in{})).error, 0);
    served.takeRequests();
    kernel.beUser(1001);
    fuse_open_in asked{};
    for (const int flags : {O_WRONLY, O_RDWR, O_RDONLY | O_TRUNC}) {
        asked.flags = static_cast<std::uint32_t>(flags);
        EXPECT_EQ(kernel.call(FUSE_OPEN, node, bytesOf(asked)).error, EACCES) << flags;
    }
    EXPECT_EQ(create("b").error, EACCES);
    EXPECT_EQ(kernel.call(FUSE_MKNOD, rootNodeID, bytesOf(fuse_mknod_in{S_IFREG | 0644, 0, 0, 0}) + named("b")).error,
              EACCES);
    EXPECT_EQ(kernel.call(FUSE_MKDIR, rootNodeID, bytesOf(fuse_mkdir_in{0755, 0}) + named("b")).error, EACCES);
    EXPECT_EQ(kernel.call(FUSE_SYMLINK, rootNodeID, named("b") + named("a")).error, EACCES);
    EXPECT_EQ(kernel.call(FUSE_LINK, folder, bytesOf(fuse_link_in{node}) + named("b")).error, EACCES);
    EXPECT_EQ(kernel.call(FUSE_UNLINK, rootNodeID, named("a")).error, EACCES);
    EXPECT_EQ(kernel.call(FUSE_RMDIR, rootNodeID, named("d")).error, EACCES);
    EXPECT_EQ(
        kernel.call(FUSE_RENAME2, rootNodeID, bytesOf(fuse_rename2_in{folder, 0, 0}) + named("a") + named("b")).error,
        EACCES);
    fuse_setattr_in change{};
    for (const std::uint32_t ownersAlone : {FATTR_MODE, FATTR_UID, FATTR_GID, FATTR_MTIME, FATTR_ATIME}) {
        change.valid = ownersAlone;
        EXPECT_EQ(kernel.call(FUSE_SETATTR, node, bytesOf(change)).error, EPERM) << ownersAlone;
    }
    for (const std::uint32_t writing : {FATTR_SIZE, FATTR_MTIME | FATTR_MTIME_NOW, FATTR_ATIME | FATTR_ATIME_NOW}) {
        change.valid = writing;
        EXPECT_EQ(kernel.call(FUSE_SETATTR, node, bytesOf(change)).error, EACCES) << writing;
    }
    EXPECT_THAT(served.takeRequests(), testing::IsEmpty());
    change.valid = 0;
    EXPECT_EQ(kernel.call(FUSE_SETATTR, node, bytesOf(change)).error, 0) << "it changes nothing";
    EXPECT_EQ(served.bytes("/a"), "text");
}

TEST_F(KernelOperations, setattrOfTheAccessTimeAloneAsksTheHelperForNothing) {
    served.put("/a", "");
    start();
    const NodeID node = lookedUp("a");
    served.takeRequests();
    fuse_setattr_in asked{};
    asked.valid = FATTR_ATIME | FATTR_ATIME_NOW;
    EXPECT_EQ(kernel.call(FUSE_SETATTR, node, bytesOf(asked)).error, 0);
    for (const std::string& request : served.takeRequests())
        EXPECT_THAT(request, testing::StartsWith("getattr"));
}

TEST_F(KernelOperations, statfsTellsTheVolumesFigures) {
    start();
    const auto figures = fromBytes<fuse_statfs_out>(kernel.call(FUSE_STATFS, rootNodeID).body).st;
    EXPECT_EQ(figures.blocks, 1000U);
    EXPECT_EQ(figures.bfree, 900U);
    EXPECT_EQ(figures.bavail, 800U);
    EXPECT_EQ(figures.files, 70U);
    EXPECT_EQ(figures.ffree, 60U);
    EXPECT_EQ(figures.bsize, 1U << 20);
    EXPECT_EQ(figures.frsize, 4096U); // what the counts of blocks are in
    EXPECT_EQ(figures.namelen, 255U);
}

TEST_F(KernelOperations, anUnknownNodeIsESTALE) {
    start();
    EXPECT_EQ(kernel.call(FUSE_GETATTR, 4711, bytesOf(fuse_getattr_in{})).error, ESTALE);
}

TEST_F(KernelOperations, aDirectoryHandleThatIsNotOpenIsEBADF) {
    start();
    EXPECT_EQ(kernel.call(FUSE_READDIR, rootNodeID, readOf(4711, 0, 4096)).error, EBADF);
    EXPECT_EQ(kernel.call(FUSE_READDIRPLUS, rootNodeID, readOf(4711, 0, 4096)).error, EBADF);
}

// Listings

TEST_F(KernelOperations, readdirplusHandsOutOnlyTheEntriesThatFit) {
    for (const char* path : {"/a", "/b", "/c", "/d"})
        served.put(path, "x");
    start();
    const std::uint64_t directory = openedRoot();
    constexpr std::uint32_t room = 5 * FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET_DIRENTPLUS + 2) - 1;
    std::vector<std::string> names;
    std::size_t nodes = 0;
    for (std::uint64_t offset = 0, more = 1; more > 0;) {
        const auto part = parsed(kernel.call(FUSE_READDIRPLUS, rootNodeID, readOf(directory, offset, room)).body);
        more = part.size();
        offset += more;
        for (const auto& [name, node] : part) {
            names.push_back(name);
            nodes += node != 0 ? 1 : 0;
        }
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre(".", "..", "a", "b", "c", "d"));
    EXPECT_EQ(nodes, 4U);
    EXPECT_EQ(nodesLeft(), 4U);
}

TEST_F(KernelOperations, readdirStopsWhereTheBufferEnds) {
    for (const char* path : {"/a", "/b", "/c"})
        served.put(path, "x");
    start();
    const std::uint64_t directory = openedRoot();
    constexpr std::uint32_t room = 2 * FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + 1);
    std::size_t count = 0;
    for (std::uint64_t more = 1; more > 0; count += more) {
        const Answer part = kernel.call(FUSE_READDIR, rootNodeID, readOf(directory, count, room));
        EXPECT_LE(part.body.size(), room);
        more = part.body.size() / FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + 1);
    }
    EXPECT_EQ(count, 5U);
}

TEST_F(KernelOperations, readdirTellsTypeAndInodeNumberOfEachName) {
    served.put("/a", "x");
    served.putDirectory("/d");
    start();
    const std::string listing = kernel.call(FUSE_READDIR, rootNodeID, readOf(openedRoot(), 0, 4096)).body;
    std::map<std::string, fuse_dirent> entries;
    for (std::size_t at = 0; at < listing.size();) {
        const auto entry = fromBytes<fuse_dirent>(listing, at);
        entries[listing.substr(at + FUSE_NAME_OFFSET, entry.namelen)] = entry;
        at += FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + entry.namelen);
    }
    const auto looked = [&](const char* name) {
        return fromBytes<fuse_entry_out>(kernel.call(FUSE_LOOKUP, rootNodeID, named(name)).body).attr.ino;
    };
    EXPECT_EQ(entries["a"].type, static_cast<unsigned>(DT_REG));
    EXPECT_EQ(entries["a"].ino, looked("a"));
    EXPECT_EQ(entries["d"].type, static_cast<unsigned>(DT_DIR));
    EXPECT_EQ(entries["d"].ino, looked("d"));
    EXPECT_EQ(entries["."].type, static_cast<unsigned>(DT_DIR));
}

TEST_F(KernelOperations, readdirplusTrustsWhatItHandsOutNoLongerThanTheListing) {
    options.entryTimeout = options.attrTimeout = fusehost::Seconds(1000);
    served.put("/a", "x");
    start();
    const std::uint64_t directory = openedRoot();
    constexpr std::uint32_t dots = 2 * FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET_DIRENTPLUS + 2);
    const std::string first = kernel.call(FUSE_READDIRPLUS, rootNodeID, readOf(directory, 0, dots)).body;
    EXPECT_EQ(fromBytes<fuse_dirent>(first, sizeof(fuse_entry_out)).type, static_cast<unsigned>(DT_DIR));
    const auto coarseTime = [] {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
        return std::pair(now.tv_sec, now.tv_nsec);
    };
    for (const auto before = coarseTime(); coarseTime() == before;) // by which a listing's age is told
        std::this_thread::yield();
    const std::string rest = kernel.call(FUSE_READDIRPLUS, rootNodeID, readOf(directory, 2, 4096)).body;
    const auto entry = fromBytes<fuse_entry_out>(rest);
    EXPECT_NE(entry.nodeid, 0U);
    EXPECT_EQ(entry.attr_valid, 999U);
    EXPECT_EQ(entry.entry_valid, 999U);
}

TEST_F(KernelOperations, aListingIsMadeWhenItBeginsAndNotForEachPiece) {
    for (const char* path : {"/a", "/b", "/c"})
        served.put(path, "x");
    start();
    for (const auto operation : {FUSE_READDIR, FUSE_READDIRPLUS}) {
        const std::uint64_t directory = openedRoot();
        kernel.call(operation, rootNodeID, readOf(directory, 0, 4096));
        served.takeRequests();
        kernel.call(operation, rootNodeID, readOf(directory, 3, 4096));
        EXPECT_THAT(served.takeRequests(), testing::Not(Contains("readdir /")));
    }
}

TEST_F(KernelOperations, aDirectoryThatWasReleasedIsOpenNoMore) {
    start();
    fuse_release_in released{};
    released.fh = openedRoot();
    EXPECT_EQ(kernel.call(FUSE_RELEASEDIR, rootNodeID, bytesOf(released)).error, 0);
    EXPECT_EQ(kernel.call(FUSE_READDIR, rootNodeID, readOf(released.fh, 0, 4096)).error, EBADF);
}

// Replies that nobody takes

TEST_F(KernelOperations, aLookupWhoseReplyIsRefusedLeavesNothing) {
    served.put("/a", "x");
    start();
    kernel.askAndLeave(FUSE_LOOKUP, rootNodeID, named("a"));
    kernel.waitForRefusals(1);
    EXPECT_EQ(nodesLeft(), 0U);
}

TEST_F(KernelOperations, aCreateWhoseReplyIsRefusedLeavesTheFileAndNothingOpen) {
    start();
    fuse_create_in made{};
    made.flags = O_RDWR | O_CREAT;
    kernel.askAndLeave(FUSE_CREATE, rootNodeID, bytesOf(made) + named("a"));
    kernel.waitForRefusals(1);
    EXPECT_EQ(nodesLeft(), 0U);
    EXPECT_EQ(served.openHandles(), 0U);
    EXPECT_TRUE(served.has("/a"));
}

TEST_F(KernelOperations, anOpenWhoseReplyIsRefusedLeavesNothingOpen) {
    served.put("/a", "x");
    start();
    const NodeID node = lookedUp("a");
    kernel.askAndLeave(FUSE_OPEN, node, bytesOf(fuse_open_in{}));
    kernel.waitForRefusals(1);
    forget(node);
    settle();
    EXPECT_EQ(nodesLeft(), 0U) << "an open file would keep its node";
}

TEST_F(KernelOperations, anOpendirWhoseReplyIsRefusedIsClosed) {
    start();
    const std::uint64_t before = openedRoot();
    kernel.askAndLeave(FUSE_OPENDIR, rootNodeID, bytesOf(fuse_open_in{}));
    kernel.waitForRefusals(1);
    EXPECT_EQ(kernel.call(FUSE_READDIR, rootNodeID, readOf(before + 1, 0, 4096)).error, EBADF);
    EXPECT_EQ(kernel.call(FUSE_READDIR, rootNodeID, readOf(before, 0, 4096)).error, 0);
}

TEST_F(KernelOperations, aReaddirplusWhoseReplyIsRefusedHandsOutNothing) {
    for (const char* path : {"/a", "/b", "/c"})
        served.put(path, "x");
    start();
    const std::uint64_t directory = openedRoot();
    kernel.askAndLeave(FUSE_READDIRPLUS, rootNodeID, readOf(directory, 0, 4096));
    kernel.waitForRefusals(1);
    EXPECT_EQ(nodesLeft(), 0U);
}

// Failures of an unexpected kind

TEST_F(KernelOperations, answerEIOWithOneLineWhenTheVolumeThrowsWhatNoVolumeThrows) {
    start();
    volume->onStatistics = [] { throw std::runtime_error("a bug"); };
    EXPECT_EQ(kernel.call(FUSE_STATFS, rootNodeID).error, EIO);
    EXPECT_THAT(log.texts(), ElementsAre("an operation that is answered with EIO failed: a bug"));
    volume->onStatistics = [] { throw 42; };
    EXPECT_EQ(kernel.call(FUSE_STATFS, rootNodeID).error, EIO);
    volume->onStatistics = [] { throw std::bad_alloc(); };
    EXPECT_EQ(kernel.call(FUSE_STATFS, rootNodeID).error, ENOMEM);
}

TEST_F(KernelOperations, goOnAndTellWhateverAVolumeThrows) {
    struct Kind {
        std::function<void()> thrown;
        int error;
    };

    served.putDirectory("/d");
    for (const char* path : {"/a", "/b", "/read", "/read2"})
        served.put(path, "content");
    start();
    const NodeID node = lookedUp("a");
    const NodeID readNode = lookedUp("read");
    for (const Kind& kind : {Kind{[] { throw std::bad_alloc(); }, ENOMEM},
                             Kind{[] { throw std::runtime_error("a bug"); }, EIO}, Kind{[] { throw 42; }, EIO}}) {
        const std::uint64_t directory = openedRoot();
        std::vector<std::uint64_t> files;
        for (int i = 0; i < 3; ++i)
            files.push_back(opened(node, O_RDWR).fh);
        const std::uint64_t reader = opened(readNode, O_RDONLY).fh;
        fuse_write_in written{};
        written.fh = files[0];
        written.size = 1;
        fuse_flush_in flushed{};
        flushed.fh = files[0];
        fuse_fsync_in synchronized{};
        synchronized.fh = files[0];
        fuse_setattr_in resized{};
        resized.valid = FATTR_SIZE;
        resized.size = 3;
        const std::string rename = bytesOf(fuse_rename_in{rootNodeID}) + named("a") + named("b");
        EXPECT_EQ(kernel.call(FUSE_WRITE, node, bytesOf(written) + "x").error, 0);
        settle();
        volume->onAny = kind.thrown;
        EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, named("b")).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_GETATTR, node, bytesOf(fuse_getattr_in{})).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_SETATTR, node, bytesOf(resized)).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_MKDIR, rootNodeID, bytesOf(fuse_mkdir_in{0755, 0}) + named("new")).error,
                  kind.error);
        EXPECT_EQ(create("new").error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_UNLINK, rootNodeID, named("b")).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_UNLINK, rootNodeID, named("a")).error, kind.error) << "an open file";
        EXPECT_EQ(kernel.call(FUSE_RMDIR, rootNodeID, named("d")).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_RENAME, rootNodeID, rename).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_OPEN, readNode, bytesOf(fuse_open_in{})).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_READ, readNode, readOf(reader, 0, 4096)).error, kind.error);
        EXPECT_EQ(kernel.call(FUSE_WRITE, node, bytesOf(written) + "x").error, kind.error);
        EXPECT_NE(kernel.call(FUSE_FSYNC, node, bytesOf(synchronized)).error, 0) << "an earlier failure, or this one";
        EXPECT_EQ(kernel.call(FUSE_READDIRPLUS, rootNodeID, readOf(directory, 0, 4096)).error, kind.error);
        kernel.call(FUSE_FLUSH, node, bytesOf(flushed));
        for (const std::uint64_t file : files) {
            fuse_release_in released{};
            released.fh = file;
            EXPECT_EQ(kernel.call(FUSE_RELEASE, node, bytesOf(released)).error, 0);
        }
        fuse_release_in released{};
        released.fh = reader;
        EXPECT_EQ(kernel.call(FUSE_RELEASE, readNode, bytesOf(released)).error, 0);
        released.fh = directory;
        EXPECT_EQ(kernel.call(FUSE_RELEASEDIR, rootNodeID, bytesOf(released)).error, 0);
        settle();
        volume->onAny = {};
    }
    EXPECT_EQ(served.bytes("/a").substr(1), "ontent");
    EXPECT_EQ(served.bytes("/b"), "content");
    lookedUp("b");
}

TEST_F(KernelOperations, goOnWhenForgettingFails) {
    served.put("/a", "x");
    start();
    const NodeID node = lookedUp("a");
    volume->onReclaim = [] { throw std::runtime_error("a bug"); };
    forget(node);
    settle();
    EXPECT_THAT(log.texts(), ElementsAre("an operation failed: a bug (programs see \"Input/output error\")"));
    EXPECT_EQ(nodesLeft(), 0U);
}

TEST_F(KernelOperations, forgetTheOthersWhenForgettingOneOfManyFails) {
    for (const char* path : {"/a", "/b", "/c"})
        served.put(path, "x");
    start();
    std::string forgotten;
    for (const char* name : {"a", "b", "c"})
        forgotten += bytesOf(fuse_forget_one{lookedUp(name), 1});
    volume->onReclaim = [] { throw std::runtime_error("a bug"); };
    kernel.ask(FUSE_BATCH_FORGET, 0, bytesOf(fuse_batch_forget_in{3, 0}) + forgotten);
    settle();
    EXPECT_EQ(volume->reclaimed(), 3);
    EXPECT_EQ(nodesLeft(), 0U);
}

TEST_F(KernelOperations, replyOnlyOnceWhenTakingBackWhatWasRefusedFails) {
    served.put("/a", "x");
    start();
    volume->onReclaim = [] { throw std::runtime_error("a bug"); };
    kernel.askAndLeave(FUSE_LOOKUP, rootNodeID, named("a"));
    kernel.waitForRefusals(1);
    settle();
    EXPECT_EQ(kernel.refusals(), 1);
    EXPECT_THAT(log.texts(), ElementsAre("an operation failed: a bug (programs see \"Input/output error\")"));
}

} // namespace
} // namespace fusehosttests
