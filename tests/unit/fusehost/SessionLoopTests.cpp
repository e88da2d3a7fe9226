#include "SessionTest.h"

#include <linux/fuse.h>
#include <semaphore>
#include <stdexcept>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using fusehost::CallerFate;
using testing::Contains;
using testing::Not;

// Threads that ask.
constexpr std::uint32_t dying = 11;
constexpr std::uint32_t living = 12;
constexpr std::uint32_t unseen = 13;

/// "/slow" hangs until the gate is opened.
class SessionLoopTest : public SessionTest {
protected:
    /// Lets a program hang in a lookup of "slow" and returns its request.
    std::uint64_t hang(std::uint32_t thread = dying) {
        const std::uint64_t slow = ask(FUSE_LOOKUP, "slow", thread);
        gate.waitForRequest();
        return slow;
    }

    std::uint64_t ask(std::uint32_t opcode, const std::string& name, std::uint32_t thread = dying) {
        return kernel.ask(opcode, rootNodeID, name + '\0', thread);
    }

    /// Returns when the loop has looked at everything that waits, several times over.
    void waitUntilLookedAt() {
        callers.set(dying, CallerFate::dies);
        const std::uint64_t marker = ask(FUSE_LOOKUP, "a", dying);
        kernel.interrupt(marker);
        EXPECT_EQ(kernel.answerTo(marker).error, EINTR);
    }

    /// The node and the number of an open file with something written to it.
    std::pair<NodeID, std::uint64_t> openForWriting(const std::string& name) {
        const NodeID node = lookedUp(name);
        fuse_open_in asked{};
        asked.flags = O_RDWR;
        const auto opened = fromBytes<fuse_open_out>(kernel.call(FUSE_OPEN, node, bytesOf(asked)).body);
        fuse_write_in written{};
        written.fh = opened.fh;
        written.size = 1;
        EXPECT_EQ(kernel.call(FUSE_WRITE, node, bytesOf(written) + "x").error, 0);
        return {node, opened.fh};
    }

    std::uint64_t flush(NodeID node, std::uint64_t file, std::uint32_t thread) {
        fuse_flush_in flushed{};
        flushed.fh = file;
        return kernel.ask(FUSE_FLUSH, node, bytesOf(flushed), thread);
    }

    void SetUp() override {
        served.put("/slow", "slow");
        for (const char* name : {"a", "b", "c"})
            served.put(std::string("/") + name, name);
        served.before = gate.holding("getattr /slow");
        callers.set(dying, CallerFate::dies);
        callers.set(living, CallerFate::lives);
    }
};

TEST_F(SessionLoopTest, answersRequestsInTheirOrder) {
    start();
    const std::uint64_t first = ask(FUSE_LOOKUP, "a");
    std::vector<std::uint64_t> asked{first};
    for (const char* name : {"missing", "b", "c", "missing", "a"})
        asked.push_back(ask(FUSE_LOOKUP, name));
    kernel.answerTo(asked.back());
    std::vector<std::uint64_t> answered = kernel.answered();
    answered.erase(answered.begin()); // the greeting
    EXPECT_EQ(answered, asked);
}

TEST_F(SessionLoopTest, answersWhatCameDuringALongOperationAfterItInOrder) {
    start();
    std::vector<std::uint64_t> asked{hang()};
    for (const char* name : {"a", "missing", "b"})
        asked.push_back(ask(FUSE_LOOKUP, name));
    kernel.waitUntilRead();
    EXPECT_EQ(kernel.answered().size(), 1U) << "more than the greeting is answered";
    asked.push_back(ask(FUSE_LOOKUP, "c"));
    gate.open();
    kernel.answerTo(asked.back());
    std::vector<std::uint64_t> answered = kernel.answered();
    answered.erase(answered.begin());
    EXPECT_EQ(answered, asked);
}

TEST_F(SessionLoopTest, runsAnErrandWhileNothingIsAsked) {
    start();
    std::binary_semaphore done{0};
    hand([&] { done.release(); });
    EXPECT_TRUE(done.try_acquire_for(20s));
    lookedUp("a");
}

TEST_F(SessionLoopTest, runsErrandsInTheirOrderAfterTheOperationInHandAndBeforeWhatWaits) {
    start();
    const std::uint64_t slow = hang(living);
    const std::uint64_t waiting = ask(FUSE_LOOKUP, "a", living);
    kernel.waitUntilRead();
    std::vector<std::string> seen;
    const auto note = [&](const char* errand) {
        seen.push_back(errand);
        EXPECT_TRUE(kernel.isAnswered(slow));
        EXPECT_FALSE(kernel.isAnswered(waiting));
    };
    hand([&] { note("first"); });
    hand([&] { note("second"); });
    EXPECT_THAT(seen, IsEmpty());
    gate.open();
    EXPECT_EQ(kernel.answerTo(waiting).error, 0);
    EXPECT_THAT(seen, testing::ElementsAre("first", "second"));
}

TEST_F(SessionLoopTest, readsWhatIsAskedWhileAnErrandLasts) {
    start();
    std::binary_semaphore goOn{0};
    hand([&] { EXPECT_TRUE(goOn.try_acquire_for(20s)); });
    const std::uint64_t asked = ask(FUSE_LOOKUP, "a", dying);
    kernel.interrupt(asked);
    EXPECT_EQ(kernel.answerTo(asked).error, EINTR);
    goOn.release();
    lookedUp("b");
}

TEST_F(SessionLoopTest, anErrandThatFailsIsToldToTheLogAndHarmsNothing) {
    start();
    hand([] { throw std::runtime_error("this one fails"); });
    lookedUp("a");
    requestStop();
    EXPECT_TRUE(waitForEnd());
    EXPECT_THAT(log.texts(), testing::ElementsAre(testing::HasSubstr("this one fails")));
}

TEST_F(SessionLoopTest, anErrandThatNobodyRunsEndsWithTheLoop) {
    start();
    requestStop();
    EXPECT_TRUE(waitForEnd());
    const auto waits = std::make_shared<int>();
    hand([waits] { ADD_FAILURE() << "nothing is served"; });
    EXPECT_EQ(waits.use_count(), 2);
    dropLoop();
    EXPECT_EQ(waits.use_count(), 1);
}

TEST_F(SessionLoopTest, answersAnInterruptedOperationOfADyingCallerWithEINTRAndDropsItsLateReply) {
    start();
    const Clock::time_point began = Clock::now();
    const std::uint64_t slow = hang();
    kernel.interrupt(slow);
    EXPECT_EQ(kernel.answerTo(slow).error, EINTR);
    EXPECT_GE(Clock::now() - began, 500ms) << "what is done soon must be done";
    gate.open();
    kernel.waitForRefusals(1);
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, std::string("a\0", 2)).error, 0);
    requestStop();
    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(kernel.refusals(), 1);
    EXPECT_EQ(tree().nodes().size(), 2U) << "of /slow, which nobody got, something is left";
}

TEST_F(SessionLoopTest, letsAnOperationOfACallerThatSurvivesItsSignalsEnd) {
    start();
    const std::uint64_t slow = hang(living);
    const std::uint64_t queued = ask(FUSE_LOOKUP, "a", living);
    kernel.interrupt(slow);
    kernel.interrupt(queued);
    waitUntilLookedAt();
    EXPECT_FALSE(kernel.isAnswered(slow));
    EXPECT_FALSE(kernel.isAnswered(queued));
    gate.open();
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    EXPECT_EQ(kernel.answerTo(queued).error, 0);
    EXPECT_EQ(kernel.refusals(), 0);
}

TEST_F(SessionLoopTest, looksAgainAtAnInterruptedOperationSinceADeadlySignalIsNotTold) {
    start();
    const std::uint64_t slow = hang(living);
    const std::uint64_t queued = ask(FUSE_LOOKUP, "b", living);
    kernel.interrupt(slow);
    kernel.interrupt(queued);
    waitUntilLookedAt();
    callers.set(living, CallerFate::dies);
    EXPECT_EQ(kernel.answerTo(slow).error, EINTR);
    EXPECT_EQ(kernel.answerTo(queued).error, EINTR);
    gate.open();
    kernel.waitForRefusals(1);
}

TEST_F(SessionLoopTest, letsACallerThatCannotBeSeenGoOnlyWhenAnInterruptedOperationLastsLong) {
    limits.unseen = 1500ms;
    start();
    const Clock::time_point began = Clock::now();
    const std::uint64_t slow = hang(unseen);
    const std::uint64_t notInterrupted = ask(FUSE_LOOKUP, "a", unseen);
    kernel.interrupt(slow);
    EXPECT_EQ(kernel.answerTo(slow).error, EINTR);
    EXPECT_GE(Clock::now() - began, 1500ms);
    waitUntilLookedAt();
    EXPECT_FALSE(kernel.isAnswered(notInterrupted));
    gate.open();
    EXPECT_EQ(kernel.answerTo(notInterrupted).error, 0);
}

TEST_F(SessionLoopTest, answersAnInterruptedRequestThatWaitsBehindManyShortOperations) {
    // Each takes less than the loop's patience, all of them together far more.
    served.before = [first = gate.holding("getattr /slow")](const std::string& request) {
        first(request);
        if (request == "getattr /missing")
            std::this_thread::sleep_for(30ms);
    };
    start();
    hang();
    constexpr int operations = 40;
    std::uint64_t late = 0;
    for (int i = 0; i < operations; ++i)
        late = ask(FUSE_LOOKUP, "missing", living);
    const std::uint64_t last = ask(FUSE_LOOKUP, "a");
    kernel.waitUntilRead();
    gate.open();
    kernel.interrupt(last);
    EXPECT_EQ(kernel.answerTo(last).error, EINTR);
    EXPECT_FALSE(kernel.isAnswered(late));
    EXPECT_EQ(kernel.answerTo(late).error, ENOENT);
}

TEST_F(SessionLoopTest, givesHandlesBackWhenThereIsNothingElseToDo) {
    served.before = gate.holding("release /a");
    start();
    const NodeID node = lookedUp("a");
    const auto opened = fromBytes<fuse_open_out>(kernel.call(FUSE_OPEN, node, bytesOf(fuse_open_in{})).body);
    fuse_release_in released{};
    released.fh = opened.fh;
    EXPECT_EQ(kernel.call(FUSE_RELEASE, node, bytesOf(released)).error, 0);
    gate.waitForRequest();
    // Who comes meanwhile can be interrupted as during any other operation that lasts.
    const std::uint64_t waiting = ask(FUSE_LOOKUP, "b");
    kernel.interrupt(waiting);
    EXPECT_EQ(kernel.answerTo(waiting).error, EINTR);
    gate.open();
    lookedUp("c");
}

TEST_F(SessionLoopTest, letsAnInterruptedOperationEndThatIsDoneSoon) {
    start();
    const std::uint64_t slow = hang();
    kernel.interrupt(slow);
    kernel.waitUntilRead();
    gate.open();
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    EXPECT_EQ(kernel.refusals(), 0);
}

TEST_F(SessionLoopTest, answersAnInterruptedRequestThatWaitsBehindAnotherAndNeverExecutesIt) {
    start();
    const std::uint64_t slow = hang();
    const std::uint64_t queued = ask(FUSE_LOOKUP, "a");
    kernel.interrupt(queued);
    EXPECT_EQ(kernel.answerTo(queued).error, EINTR);
    EXPECT_FALSE(kernel.isAnswered(slow));
    gate.open();
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    kernel.call(FUSE_LOOKUP, rootNodeID, std::string("b\0", 2));
    EXPECT_THAT(served.takeRequests(), Not(Contains("getattr /a")));
    EXPECT_EQ(kernel.refusals(), 0);
}

TEST_F(SessionLoopTest, remembersAnInterruptUntilTheRequestItIsAboutHangsItself) {
    served.put("/slower", "");
    Gate second;
    served.before = [first = gate.holding("getattr /slow"),
                     then = second.holding("getattr /slower")](const std::string& request) {
        first(request);
        then(request);
    };
    start();
    const std::uint64_t slow = hang();
    const std::uint64_t queued = ask(FUSE_LOOKUP, "slower");
    kernel.interrupt(queued);
    const std::uint64_t marker = ask(FUSE_LOOKUP, "a");
    kernel.waitUntilRead();
    gate.open();
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    EXPECT_EQ(kernel.answerTo(queued).error, EINTR);
    second.open();
    EXPECT_EQ(kernel.answerTo(marker).error, 0);
}

TEST_F(SessionLoopTest, doesNotAnswerAnInterruptThatComesTooLate) {
    start();
    const std::uint64_t quick = ask(FUSE_LOOKUP, "a");
    EXPECT_EQ(kernel.answerTo(quick).error, 0);
    kernel.interrupt(quick);
    EXPECT_EQ(kernel.call(FUSE_LOOKUP, rootNodeID, std::string("b\0", 2)).error, 0);
    EXPECT_EQ(kernel.answered().size(), 3U);
    EXPECT_EQ(kernel.refusals(), 0);
}

TEST_F(SessionLoopTest, answersTheFlushOfADyingThreadWithoutBeingToldOfItsDeath) {
    served.before = gate.holding("release /a");
    start();
    const auto [node, file] = openForWriting("a");
    const std::uint64_t ofDying = flush(node, file, dying);
    gate.waitForRequest();
    EXPECT_EQ(kernel.answerTo(ofDying).error, EINTR);
    gate.open();
    kernel.waitForRefusals(1);
}

TEST_F(SessionLoopTest, answersTheWaitingFlushOfADyingThreadAndNotThatOfALiveOne) {
    start();
    const auto [node, file] = openForWriting("a");
    const std::uint64_t slow = hang();
    const std::uint64_t live = flush(node, file, living);
    const std::uint64_t unnamed = flush(node, file, 0);
    const std::uint64_t ofDying = flush(node, file, dying);
    EXPECT_EQ(kernel.answerTo(ofDying).error, EINTR);
    for (const std::uint64_t waiting : {slow, live, unnamed})
        EXPECT_FALSE(kernel.isAnswered(waiting));
    gate.open();
    for (const std::uint64_t waiting : {slow, live, unnamed})
        EXPECT_EQ(kernel.answerTo(waiting).error, 0);
}

TEST_F(SessionLoopTest, endsWhenAskedToStop) {
    start();
    requestStop();
    EXPECT_TRUE(waitForEnd());
}

TEST_F(SessionLoopTest, endsAfterTheOperationInHandAndLeavesTheRestWhenAskedToStop) {
    start();
    const std::uint64_t slow = hang();
    const std::uint64_t queued = ask(FUSE_LOOKUP, "a");
    kernel.waitUntilRead();
    requestStop();
    gate.open();
    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    EXPECT_FALSE(kernel.isAnswered(queued));
}

TEST_F(SessionLoopTest, servesOnAfterAStopBeginningWithWhatWaited) {
    start();
    hang();
    const std::uint64_t queued = ask(FUSE_LOOKUP, "a");
    kernel.waitUntilRead();
    requestStop();
    gate.open();
    EXPECT_TRUE(waitForEnd());
    resume();
    EXPECT_EQ(kernel.answerTo(queued).error, 0);
    lookedUp("b");
}

TEST_F(SessionLoopTest, refusesWhatWaitsAndWhatComesWithoutAskingTheHelper) {
    start();
    const std::uint64_t slow = hang(living);
    const std::uint64_t queued = ask(FUSE_LOOKUP, "a", living);
    kernel.waitUntilRead();
    refuse();
    EXPECT_EQ(kernel.answerTo(slow).error, EIO);
    EXPECT_EQ(kernel.answerTo(queued).error, EIO);
    EXPECT_EQ(kernel.answerTo(ask(FUSE_LOOKUP, "b", living)).error, EIO) << "while the helper hangs";
    gate.open();
    kernel.waitForRefusals(1);
    EXPECT_EQ(kernel.answerTo(ask(FUSE_LOOKUP, "c", living)).error, EIO);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /slow"));
}

TEST_F(SessionLoopTest, endsWhenTheFileSystemIsUnmounted) {
    start();
    kernel.unmount();
    EXPECT_TRUE(waitForEnd());
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(SessionLoopTest, endsAfterTheOperationInHandWhenTheFileSystemIsUnmountedMeanwhile) {
    start();
    hang();
    kernel.unmount();
    gate.open();
    EXPECT_TRUE(waitForEnd());
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(SessionLoopTest, failsWithOneLineWhenReadingFails) {
    start();
    kernel.failReading(EIO);
    EXPECT_FALSE(waitForEnd());
    EXPECT_THAT(log.texts(), ElementsAre("reading from the kernel failed: Input/output error"));
}

TEST_F(SessionLoopTest, neitherSpinsNorFloodsTheLogWhileReadingFailsDuringAnOperation) {
    start();
    hang();
    const Clock::time_point began = Clock::now();
    kernel.failReading(EIO);
    constexpr int reads = 6;
    kernel.waitForFailedReads(reads);
    EXPECT_GE(Clock::now() - began, (reads - 1) * 50ms);
    gate.open();
    EXPECT_FALSE(waitForEnd());
    EXPECT_THAT(log.texts(), ElementsAre("reading from the kernel failed: Input/output error"));
}

/// The same with a thread that looks for the next request for a moment before it sleeps.
class SessionLoopWaitingAwake : public SessionLoopTest {
protected:
    SessionLoopWaitingAwake() {
        for (int request = 0; request < 40; ++request)
            pace.arrived(Clock::now());
        pace.allowWaiting(true);
    }

    /// Returns when nothing was read for a while.
    void waitUntilAsleep() {
        const auto end = Clock::now() + 20s;
        int before = -1;
        for (int now = kernel.reads(); now != before; now = kernel.reads()) {
            ASSERT_LT(Clock::now(), end) << "it looks for requests without end";
            before = now;
            std::this_thread::sleep_for(5ms);
        }
    }
};

TEST_F(SessionLoopWaitingAwake, looksMoreThanOnceForTheNextRequestAndThenSleeps) {
    // On a busy machine its moment may be over when it has looked once.
    constexpr int tries = 100;
    start();
    for (int attempt = 0; attempt < tries; ++attempt) {
        waitUntilAsleep();
        const int before = kernel.reads();
        lookedUp("a");
        waitUntilAsleep();
        if (kernel.reads() > before + 2)
            return;
        requestStop();
        ASSERT_TRUE(waitForEnd());
        for (int request = 0; request < 8; ++request)
            pace.waited(0us, false);
        resume();
    }
    FAIL() << "it has never looked more than once";
}

TEST_F(SessionLoopWaitingAwake, servesWhatComesWhileItSleepsAndWhileItIsAwake) {
    start();
    lookedUp("a");
    lookedUp("b");
    waitUntilAsleep();
    lookedUp("a");
}

TEST_F(SessionLoopWaitingAwake, sleepsAtOnceWhereRequestsCameLate) {
    for (int request = 0; request < 8; ++request)
        pace.waited(1ms, true);
    start();
    waitUntilAsleep();
    const int before = kernel.reads();
    lookedUp("a");
    waitUntilAsleep();
    EXPECT_LE(kernel.reads(), before + 2);
}

TEST_F(SessionLoopWaitingAwake, sleepsAtOnceWhileTheNextBlockOfAFileIsRead) {
    served.put("/long", "0011223344");
    const fusehost::OpenFileID file = open("/long", O_RDONLY);
    read(file, 0, 2);
    served.before = gate.holding("read /long 4+2");
    read(file, 2, 2);
    gate.waitForRequest();
    start();
    waitUntilAsleep();
    EXPECT_LE(kernel.reads(), 1);
    gate.open();
}

TEST_F(SessionLoopWaitingAwake, endsWhenAskedToStop) {
    start();
    lookedUp("a");
    requestStop();
    EXPECT_TRUE(waitForEnd());
}

TEST_F(SessionLoopWaitingAwake, leavesWhatWaitsWhenAskedToStopDuringAnOperation) {
    start();
    const std::uint64_t slow = hang(living);
    requestStop();
    const std::uint64_t queued = ask(FUSE_LOOKUP, "a", living);
    gate.open();
    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(kernel.answerTo(slow).error, 0);
    EXPECT_FALSE(kernel.isAnswered(queued));
}

TEST_F(SessionLoopWaitingAwake, endsWhenTheFileSystemIsUnmounted) {
    start();
    lookedUp("a");
    kernel.unmount();
    EXPECT_TRUE(waitForEnd());
    EXPECT_THAT(log.texts(), IsEmpty());
}

} // namespace
} // namespace fusehosttests
