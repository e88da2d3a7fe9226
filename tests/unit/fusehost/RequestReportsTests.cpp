#include "SessionTest.h"

#include "hosts/fuse/kernel/CallerNames.h"
#include "hosts/fuse/kernel/RequestDetails.h"
#include "hosts/fuse/tree/NodePath.h"

#include <linux/fuse.h>
#include <map>
#include <unistd.h>
#include <variant>

namespace fusehosttests {
namespace {

using fusehost::KernelOperation;
using fusehost::RequestEvent;
using testing::Pair;
using testing::UnorderedElementsAre;

std::string named(const std::string& name) {
    return name + '\0';
}

/// Keeps what it is told; to be looked at when the loop has ended.
class Kept final : public fusehost::RequestListener {
public:
    void requestEnded(const RequestEvent& event) noexcept override { events.push_back(event); }

    std::vector<RequestEvent> events;
};

class RequestReportsTest : public SessionTest {
protected:
    void stop() {
        requestStop();
        EXPECT_TRUE(waitForEnd());
    }

    /// What was counted of each kind of request, the greeting left out.
    std::map<KernelOperation, fusehost::OperationCounts> counted() {
        std::map<KernelOperation, fusehost::OperationCounts> counts;
        for (auto& operation : monitor.read().operations)
            if (operation.operation != KernelOperation::init)
                counts.emplace(operation.operation, std::move(operation));
        return counts;
    }

    /// The events of one kind.
    std::vector<RequestEvent> events(KernelOperation operation) {
        std::vector<RequestEvent> found;
        for (const RequestEvent& event : kept.events)
            if (event.operation == operation)
                found.push_back(event);
        return found;
    }

    std::uint64_t opened(NodeID node) {
        return fromBytes<fuse_open_out>(kernel.call(FUSE_OPEN, node, bytesOf(fuse_open_in{})).body).fh;
    }

    PlayedKernel::Answer read(NodeID node, std::uint64_t file, std::uint64_t offset, std::uint32_t size) {
        fuse_read_in asked{};
        asked.fh = file;
        asked.offset = offset;
        asked.size = size;
        return kernel.call(FUSE_READ, node, bytesOf(asked));
    }

    void release(NodeID node, std::uint64_t file) {
        fuse_release_in released{};
        released.fh = file;
        EXPECT_EQ(kernel.call(FUSE_RELEASE, node, bytesOf(released)).error, 0);
    }

    Kept kept;
};

// Counting

TEST_F(RequestReportsTest, countEveryRequestWithWhatCameOfIt) {
    served.put("/a", "12345");
    start();
    const NodeID node = lookedUp("a");
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, named("missing")).error, ENOENT);
    const std::uint64_t file = opened(node);
    EXPECT_EQ(read(node, file, 0, 4096).body, "12345");
    release(node, file);
    EXPECT_EQ(kernel.call(FUSE_GETXATTR, node, bytesOf(fuse_getxattr_in{}) + named("user.x")).error, ENOSYS);
    EXPECT_EQ(kernel.call(FUSE_FALLOCATE, node, bytesOf(fuse_fallocate_in{})).error, ENOSYS);
    stop();
    auto counts = counted();
    EXPECT_EQ(counts[KernelOperation::lookup].latency.count(), 2U);
    EXPECT_THAT(counts[KernelOperation::lookup].errors, UnorderedElementsAre(Pair(ENOENT, 1U)));
    EXPECT_EQ(counts[KernelOperation::read].bytes, 5U);
    EXPECT_EQ(counts[KernelOperation::open].latency.count(), 1U);
    EXPECT_EQ(counts[KernelOperation::release].latency.count(), 1U);
    EXPECT_THAT(counts[KernelOperation::getxattr].errors, UnorderedElementsAre(Pair(ENOSYS, 1U)));
    EXPECT_THAT(counts[KernelOperation::other].errors, UnorderedElementsAre(Pair(ENOSYS, 1U)));
    EXPECT_EQ(counts.size(), 6U);
    EXPECT_FALSE(monitor.underWay());
}

TEST_F(RequestReportsTest, countAnAbsentNameThatTheKernelRemembersAsAbsent) {
    options.negativeTimeout = fusehost::Seconds(3);
    start();
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, named("missing")).error, 0);
    stop();
    EXPECT_THAT(counted()[KernelOperation::lookup].errors, UnorderedElementsAre(Pair(ENOENT, 1U)));
}

TEST_F(RequestReportsTest, countWhatWasWritten) {
    start();
    fuse_create_in made{};
    made.flags = O_RDWR | O_CREAT;
    made.mode = S_IFREG | 0644;
    const auto body = kernel.call(FUSE_CREATE, rootNodeID, bytesOf(made) + named("a")).body;
    const NodeID node = fromBytes<fuse_entry_out>(body).nodeid;
    fuse_write_in written{};
    written.fh = fromBytes<fuse_open_out>(body, sizeof(fuse_entry_out)).fh;
    written.size = 3;
    EXPECT_EQ(kernel.call(FUSE_WRITE, node, bytesOf(written) + "abc").error, 0);
    release(node, written.fh);
    stop();
    EXPECT_EQ(counted()[KernelOperation::write].bytes, 3U);
}

TEST_F(RequestReportsTest, keepTheGaugesOfTheTree) {
    served.put("/a", "12345");
    start();
    const NodeID node = lookedUp("a");
    const std::uint64_t file = opened(node);
    read(node, file, 0, 10);
    EXPECT_EQ(kernel.call(FUSE_UNLINK, rootNodeID, named("a")).error, 0);
    stop();
    const auto held = monitor.read().tree;
    EXPECT_EQ(held.nodes, 2U);
    EXPECT_EQ(held.openFiles, 1U);
    EXPECT_EQ(held.hiddenFiles, 1U);
    resume();
    release(node, file);
    stop();
    const auto left = monitor.read().tree;
    EXPECT_EQ(left.openFiles, 0U);
    EXPECT_EQ(left.openItems, 0U);
    EXPECT_EQ(left.hiddenFiles, 0U);
}

// What is under way

TEST_F(RequestReportsTest, showWhatIsUnderWayWhileTheVolumeHangs) {
    served.putDirectory("/folder");
    served.put("/folder/slow", "");
    served.before = gate.holding("getattr /folder/slow");
    start();
    const NodeID folder = lookedUp("folder");
    kernel.beUser(4711);
    const std::uint64_t slow = kernel.ask(FUSE_LOOKUP, folder, named("slow"), 12);
    gate.waitForRequest();
    const auto shown = monitor.underWay();
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->operation, KernelOperation::lookup);
    EXPECT_EQ(shown->path, "/folder/slow");
    EXPECT_EQ(shown->thread, 12U);
    EXPECT_EQ(shown->user, 4711U);
    EXPECT_LE(shown->since, fusehost::Monitor::Clock::now());
    gate.open();
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    stop();
    EXPECT_FALSE(monitor.underWay());
}

TEST_F(RequestReportsTest, tellHowManyWaitBehindWhatHangs) {
    served.put("/a", "");
    served.put("/slow", "");
    served.before = gate.holding("getattr /slow");
    start();
    const std::uint64_t slow = kernel.ask(FUSE_LOOKUP, rootNodeID, named("slow"));
    gate.waitForRequest();
    const std::uint64_t first = kernel.ask(FUSE_LOOKUP, rootNodeID, named("a"));
    const std::uint64_t second = kernel.ask(FUSE_LOOKUP, rootNodeID, named("a"));
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (monitor.read().waiting < 2 && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    EXPECT_EQ(monitor.read().waiting, 2U);
    gate.open();
    for (const std::uint64_t request : {slow, first, second})
        EXPECT_EQ(kernel.answerTo(request).error, 0);
    stop();
    EXPECT_EQ(monitor.read().waiting, 0U);
    EXPECT_GT(monitor.read().waited.count(), 0);
}

// What listeners are told

TEST_F(RequestReportsTest, tellAListenerWhoAskedWhatAndWhatCameOfIt) {
    served.putDirectory("/folder");
    served.put("/folder/a", "12345");
    start();
    const NodeID folder = lookedUp("folder");
    monitor.add(kept);
    const auto before = std::chrono::system_clock::now();
    kernel.beUser(4711);
    const auto found = kernel.answerTo(kernel.ask(FUSE_LOOKUP, folder, named("a"), static_cast<unsigned>(getpid())));
    const NodeID node = fromBytes<fuse_entry_out>(found.body).nodeid;
    const std::uint64_t file = opened(node);
    read(node, file, 2, 100);
    kernel.call(FUSE_LOOKUP, folder, named("missing"));
    release(node, file);
    stop();
    const RequestEvent lookup = events(KernelOperation::lookup).at(0);
    EXPECT_EQ(lookup.path, "/folder/a");
    EXPECT_EQ(lookup.pid, static_cast<unsigned>(getpid()));
    EXPECT_EQ(lookup.process, fusehost::callerName(static_cast<unsigned>(getpid())).name);
    EXPECT_NE(lookup.process, "");
    EXPECT_EQ(lookup.user, 4711U);
    EXPECT_EQ(lookup.error, 0);
    EXPECT_GE(lookup.began + std::chrono::milliseconds(1), before);
    EXPECT_LE(lookup.began, std::chrono::system_clock::now());
    EXPECT_GT(lookup.duration.count(), 0);
    EXPECT_EQ(events(KernelOperation::lookup).at(1).error, ENOENT);
    const RequestEvent done = events(KernelOperation::read).at(0);
    EXPECT_EQ(done.path, "/folder/a");
    EXPECT_EQ(done.bytes, 3U);
    using Argument = RequestEvent::Argument;
    EXPECT_THAT(done.arguments, ElementsAre(Argument("offset", 2), Argument("size", 100)));
    EXPECT_EQ(done.pid, 0U) << "a caller that the kernel cannot name";
    EXPECT_EQ(events(KernelOperation::release).at(0).path, "/folder/a");
    monitor.remove(kept);
}

TEST_F(RequestReportsTest, tellOfARenameBothNames) {
    served.putDirectory("/folder");
    served.put("/folder/a", "");
    start();
    const NodeID folder = lookedUp("folder");
    monitor.add(kept);
    const std::string names = named("a") + named("b");
    EXPECT_EQ(kernel.call(FUSE_RENAME, folder, bytesOf(fuse_rename_in{rootNodeID}) + names).error, 0);
    fuse_rename2_in back{};
    back.newdir = folder;
    EXPECT_EQ(kernel.call(FUSE_RENAME2, rootNodeID, bytesOf(back) + named("b") + named("c")).error, 0);
    stop();
    const auto told = events(KernelOperation::rename);
    using Argument = RequestEvent::Argument;
    EXPECT_EQ(told.at(0).path, "/folder/a");
    EXPECT_THAT(told.at(0).arguments, ElementsAre(Argument("to", "/b")));
    EXPECT_EQ(told.at(1).path, "/b");
    EXPECT_THAT(told.at(1).arguments, ElementsAre(Argument("flags", 0), Argument("to", "/folder/c")));
    monitor.remove(kept);
}

TEST_F(RequestReportsTest, tellOfWhatIsDoneWhenTheKernelAsksForNothing) {
    served.put("/a", "12345");
    start();
    const NodeID node = lookedUp("a");
    const std::uint64_t file = opened(node);
    read(node, file, 0, 10);
    monitor.add(kept);
    release(node, file);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (monitor.read().tree.openItems > 0 && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    stop();
    EXPECT_EQ(events(KernelOperation::idle).size(), 1U);
    EXPECT_EQ(counted()[KernelOperation::release].latency.count(), 1U);
    monitor.remove(kept);
}

TEST_F(RequestReportsTest, tellALongPathWhole) {
    std::string path;
    for (int i = 0; i < 12; ++i) {
        path += "/" + std::string(200, static_cast<char>('a' + i));
        served.putDirectory(path);
    }
    served.put(path + "/leaf", "");
    start();
    NodeID node = rootNodeID;
    for (std::size_t at = 1; at < path.size(); at += 201) {
        const auto found = kernel.call(FUSE_LOOKUP, node, named(path.substr(at, 200)));
        node = fromBytes<fuse_entry_out>(found.body).nodeid;
    }
    monitor.add(kept);
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, node, named("leaf")).error, 0);
    stop();
    EXPECT_EQ(events(KernelOperation::lookup).at(0).path, path + "/leaf");
    monitor.remove(kept);
}

// Paths

TEST(NodePaths, areThoseOfTheMount) {
    fusehost::NodeTable table;
    auto& folder = table.childOrNew(table.root(), "folder");
    auto& file = table.childOrNew(folder, "file");
    char room[64];
    EXPECT_EQ(pathOf(table.root(), "", room), "/");
    EXPECT_EQ(pathOf(table.root(), "new", room), "/new");
    EXPECT_EQ(pathOf(file, "", room), "/folder/file");
    EXPECT_EQ(pathOf(folder, "other", room), "/folder/other");
    table.detach(file);
    EXPECT_EQ(pathOf(file, "", room), "(removed)/file");
}

TEST(NodePaths, lackTheirFrontWhereThereIsNoRoom) {
    fusehost::NodeTable table;
    auto& folder = table.childOrNew(table.root(), "folder");
    char room[8];
    EXPECT_EQ(pathOf(folder, "name", room), "der/name");
    EXPECT_EQ(pathOf(folder, "long-name", room), "ong-name");
}

// Callers

TEST(CallerNames, areThoseOfTheThreadAndTheNumberThatOfTheProcess) {
    const auto self = fusehost::callerName(static_cast<unsigned>(gettid()));
    EXPECT_EQ(self.process, static_cast<unsigned>(getpid()));
    EXPECT_NE(self.name, "");
    std::uint32_t inside = 0;
    std::thread([&] {
        const auto thread = static_cast<unsigned>(gettid());
        EXPECT_NE(thread, static_cast<unsigned>(getpid()));
        inside = fusehost::callerName(thread).process;
    }).join();
    EXPECT_EQ(inside, static_cast<unsigned>(getpid()));
}

TEST(CallerNames, areEmptyWhereNobodyCanBeSeen) {
    EXPECT_EQ(fusehost::callerName(0).name, "");
    EXPECT_EQ(fusehost::callerName(0).process, 0U);
    constexpr std::uint32_t nobody = 4194304 + 1; // beyond the largest number there can be
    EXPECT_EQ(fusehost::callerName(nobody).name, "");
    EXPECT_EQ(fusehost::callerName(nobody).process, nobody);
}

} // namespace
} // namespace fusehosttests
