#include "suites/volume/VolumeFixture.h"

#include <atomic>
#include <latch>
#include <thread>

// Open handles, reading and writing.
namespace volumesuite {
namespace {

using Modes = fskit::FSVolumeOpenModes;

constexpr std::int64_t farAway = 0x7fffffffffffffff;

class Opening : public VolumeFixture {};

class Closing : public VolumeFixture {
protected:
    void SetUp() override {
        volume_->openItem(item_, Modes::readWrite); // 1 reads, 2 writes
        helper_.takeRequests();
    }

    Item item_ = file("/a");
};

class Reading : public VolumeFixture {};

class Writing : public VolumeFixture {};

class ClientlessHandles : public ClientlessVolumeFixture {};

TEST_F(Opening, forReadingOpensAReadHandle) {
    EXPECT_EQ(volume_->openItem(file("/a/b"), Modes::read), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a/b read"));
}

TEST_F(Opening, forWritingOpensAHandleThatCreates) {
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::write), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create"));
}

TEST_F(Opening, forBothOpensReadingFirstAndKeepsTwoHandles) {
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::readWrite), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "open /a write,create"));
    volume_->read(file("/a"), 0, 1, 1);
    volume_->write("x", file("/a"), 0);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("read #1 @0 +1", "write #2 @0 x"));
}

TEST_F(Opening, withNoModeOpensNothing) {
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Opening, againUsesTheHandleThatIsOpen) {
    const Item item = file("/a");
    volume_->openItem(item, Modes::read);
    EXPECT_EQ(volume_->openItem(item, Modes::read), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read"));
}

TEST_F(Opening, ofTwoItemsOfOnePathSharesOneHandle) {
    volume_->openItem(file("/a"), Modes::read);
    volume_->openItem(file("/a"), Modes::read);
    volume_->read(file("/a"), 0, 4, 4);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +4"));
}

TEST_F(Opening, ofTwoPathsOpensTwoHandles) {
    volume_->openItem(file("/a"), Modes::read);
    volume_->openItem(file("/b"), Modes::read);
    volume_->read(file("/b"), 0, 4, 4);
    volume_->read(file("/a"), 0, 4, 4);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "open /b read", "read #2 @0 +4", "read #1 @0 +4"));
}

TEST_F(Opening, ofADirectoryIsRefused) {
    EXPECT_EQ(volume_->openItem(directory("/a"), Modes::read), posix(posixErrno::EISDIR_));
    EXPECT_EQ(volume_->openItem(directory("/a"), Modes::none), posix(posixErrno::EISDIR_));
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Opening, ofAForeignItemIsInvalid) {
    EXPECT_EQ(volume_->openItem(volume_->makeForeignItem(), Modes::read), posix(posixErrno::EINVAL_));
}

TEST_F(Opening, thatFailsStoresNothing) {
    const Item item = file("/a");
    helper_.once("open", ScriptedAnswer::failure("EACCES", "locked"));
    EXPECT_EQ(volume_->openItem(item, Modes::read), posix(posixErrno::EACCES_, "locked"));
    EXPECT_EQ(volume_->closeItem(item, Modes::none), success);
    EXPECT_EQ(volume_->openItem(item, Modes::read), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "open /a read"));
}

TEST_F(Opening, whoseWritingFailsLeavesTheReadHandleOpen) {
    const Item item = file("/a");
    helper_.once("open", ScriptedAnswer::success(R"({"handle":7})"));
    helper_.once("open", ScriptedAnswer::failure("EROFS", "not here"));
    EXPECT_EQ(volume_->openItem(item, Modes::readWrite), posix(posixErrno::EROFS_, "not here"));
    helper_.takeRequests();
    volume_->read(item, 0, 1, 1);
    EXPECT_EQ(volume_->closeItem(item, Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("read #7 @0 +1", "release #7"));
}

TEST_F(Opening, whoseReadingFailsDoesNotTryToWrite) {
    helper_.once("open", ScriptedAnswer::failure("EPERM", "no"));
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::readWrite), posix(posixErrno::EPERM_, "no"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read"));
}

TEST_F(Opening, withAnAnswerWithoutHandleIsAProtocolFault) {
    helper_.once("open", ScriptedAnswer::success());
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::read), protocolError());
}

TEST_F(Closing, keepingBothModesGivesNothingBack) {
    EXPECT_EQ(volume_->closeItem(item_, Modes::readWrite), success);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Closing, keepingNoModeGivesBothBackReadingFirst) {
    EXPECT_EQ(volume_->closeItem(item_, Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
}

TEST_F(Closing, keepingReadingGivesTheWriteHandleBack) {
    EXPECT_EQ(volume_->closeItem(item_, Modes::read), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #2"));
}

TEST_F(Closing, keepingWritingGivesTheReadHandleBack) {
    EXPECT_EQ(volume_->closeItem(item_, Modes::write), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
}

TEST_F(Closing, doesNotFlush) {
    volume_->write("x", item_, 0);
    volume_->closeItem(item_, Modes::none);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("write #2 @0 x", "release #1", "release #2"));
}

TEST_F(Closing, twiceGivesBackOnce) {
    volume_->closeItem(item_, Modes::none);
    EXPECT_EQ(volume_->closeItem(item_, Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
}

TEST_F(Closing, onceEndsAnItemThatWasOpenedTwice) {
    volume_->openItem(item_, Modes::read);
    volume_->closeItem(item_, Modes::write);
    helper_.takeRequests();
    volume_->read(item_, 0, 1, 1);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #3 @0 +1"));
}

TEST_F(Closing, throughAnotherItemOfThePathWorksTheSame) {
    EXPECT_EQ(volume_->closeItem(file("/a"), Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
}

TEST_F(Closing, ofAnItemThatWasNeverOpenedAsksNothing) {
    EXPECT_EQ(volume_->closeItem(file("/b"), Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Closing, ofADirectorySucceeds) {
    EXPECT_EQ(volume_->closeItem(directory("/d"), Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Closing, ofAForeignItemIsInvalid) {
    EXPECT_EQ(volume_->closeItem(volume_->makeForeignItem(), Modes::none), posix(posixErrno::EINVAL_));
}

TEST_F(Closing, whoseReleaseFailsRepliesTheErrorAndForgetsTheHandle) {
    helper_.once("release", ScriptedAnswer::failure("EIO", "data lost"));
    EXPECT_EQ(volume_->closeItem(item_, Modes::write), posix(posixErrno::EIO_, "data lost"));
    EXPECT_EQ(volume_->closeItem(item_, Modes::write), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
}

TEST_F(Closing, whoseFirstReleaseFailsLeavesTheWriteHandleOpen) {
    helper_.once("release", ScriptedAnswer::failure("EIO", "data lost"));
    EXPECT_EQ(volume_->closeItem(item_, Modes::none), posix(posixErrno::EIO_, "data lost"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
    volume_->write("x", item_, 0);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("write #2 @0 x"));
}

TEST_F(Reading, placesTheHelpersBytesAtTheStartOfTheBuffer) {
    helper_.on("read", ScriptedAnswer::data("hello"));
    const CountAnswer answer = volume_->read(file("/a"), 8192, 5, 8);
    EXPECT_EQ(answer.error, success);
    EXPECT_EQ(answer.count, 5U);
    EXPECT_EQ(answer.bytes, "hello...");
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @8192 +5"));
}

TEST_F(Reading, anItemThatWasNeverOpenedOpensAHandleAndKeepsIt) {
    volume_->read(file("/a"), 0, 1, 1);
    volume_->read(file("/a"), 1, 1, 1);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +1", "read #1 @1 +1"));
}

TEST_F(Reading, ofNoBytesSucceedsWithoutAnyRequest) {
    for (const std::int64_t length : {std::int64_t{0}, std::int64_t{-1}, -farAway}) {
        const CountAnswer answer = volume_->read(file("/a"), 0, length, 8);
        EXPECT_EQ(answer.error, success);
        EXPECT_EQ(answer.count, 0U);
    }
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Reading, asksForNoMoreThanTheBufferHolds) {
    volume_->read(file("/a"), 0, 4096, 100);
    volume_->read(file("/a"), 0, farAway, 100);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +100", "read #1 @0 +100"));
}

TEST_F(Reading, asksForNoMoreThanTheRequest) {
    volume_->read(file("/a"), 0, 10, 4096);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +10"));
}

TEST_F(Reading, aShortAnswerGivesAShortCount) {
    helper_.on("read", ScriptedAnswer::data(std::string(100, 'x')));
    const CountAnswer answer = volume_->read(file("/a"), 0, 4096, 4096);
    EXPECT_EQ(answer.count, 100U);
    EXPECT_EQ(answer.bytes, std::string(100, 'x') + std::string(3996, '.'));
}

TEST_F(Reading, anAnswerLongerThanTheBufferIsCutToIt) {
    helper_.on("read", ScriptedAnswer::data("0123456789"));
    const CountAnswer answer = volume_->read(file("/a"), 0, 4, 4);
    EXPECT_EQ(answer.count, 4U);
    EXPECT_EQ(answer.bytes, "0123");
}

TEST_F(Reading, anAnswerLongerThanTheRequestFillsTheBuffer) {
    helper_.on("read", ScriptedAnswer::data("0123456789"));
    const CountAnswer answer = volume_->read(file("/a"), 0, 4, 8);
    EXPECT_EQ(answer.count, 8U);
    EXPECT_EQ(answer.bytes, "01234567");
}

TEST_F(Reading, nothingAtTheEndOfTheFileIsNoError) {
    helper_.on("read", ScriptedAnswer::data(""));
    const CountAnswer answer = volume_->read(file("/a"), 1000, 4, 4);
    EXPECT_EQ(answer.error, success);
    EXPECT_EQ(answer.count, 0U);
    EXPECT_EQ(answer.bytes, "....");
}

TEST_F(Reading, intoAnEmptyBufferStillAsks) {
    helper_.on("read", ScriptedAnswer::data("abc"));
    const CountAnswer answer = volume_->read(file("/a"), 0, 4, 0);
    EXPECT_EQ(answer.error, success);
    EXPECT_EQ(answer.count, 0U);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +0"));
}

TEST_F(Reading, aMebibyteArrivesWhole) {
    std::string bytes(1 << 20, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 31 + (i >> 8));
    helper_.on("read", ScriptedAnswer::data(bytes));
    const CountAnswer answer = volume_->read(file("/a"), 0, 1 << 20, 1 << 20);
    EXPECT_EQ(answer.count, bytes.size());
    EXPECT_TRUE(answer.bytes == bytes);
}

TEST_F(Reading, atANegativeOffsetIsInvalid) {
    const CountAnswer answer = volume_->read(file("/a"), -1, 4, 4);
    EXPECT_EQ(answer.error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(answer.count, 0U);
    EXPECT_EQ(volume_->read(file("/a"), -1, 0, 4).error, posix(posixErrno::EINVAL_));
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Reading, aDirectoryIsRefusedBeforeTheOffsetIsLookedAt) {
    EXPECT_EQ(volume_->read(directory("/a"), -1, 4, 4).error, posix(posixErrno::EISDIR_));
}

TEST_F(Reading, aForeignItemIsInvalid) {
    EXPECT_EQ(volume_->read(volume_->makeForeignItem(), 0, 4, 4).error, posix(posixErrno::EINVAL_));
}

TEST_F(Reading, repliesTheErrorOfTheOpen) {
    helper_.once("open", ScriptedAnswer::failure("ENOENT", "gone"));
    const CountAnswer answer = volume_->read(file("/a"), 0, 4, 4);
    EXPECT_EQ(answer.error, posix(posixErrno::ENOENT_, "gone"));
    EXPECT_EQ(answer.count, 0U);
}

TEST_F(Reading, thatFailsKeepsTheHandle) {
    helper_.once("read", ScriptedAnswer::failure("EIO", "scratched"));
    const CountAnswer answer = volume_->read(file("/a"), 0, 4, 4);
    EXPECT_EQ(answer.error, posix(posixErrno::EIO_, "scratched"));
    EXPECT_EQ(answer.count, 0U);
    volume_->read(file("/a"), 0, 4, 4);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +4", "read #1 @0 +4"));
}

TEST_F(Reading, anAnswerWithoutDataIsAProtocolFault) {
    helper_.on("read", ScriptedAnswer::success(R"({"dataBase64":"aGk="})"));
    EXPECT_EQ(volume_->read(file("/a"), 0, 4, 4).error, protocolError());
}

TEST_F(Writing, sendsTheBytesAndRepliesTheirNumber) {
    const CountAnswer answer = volume_->write("hello", file("/a"), 7);
    EXPECT_EQ(answer.error, success);
    EXPECT_EQ(answer.count, 5U);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create", "write #1 @7 hello"));
}

TEST_F(Writing, anItemThatWasNeverOpenedOpensAHandleAndKeepsIt) {
    volume_->write("a", file("/a"), 0);
    volume_->write("b", file("/a"), 1);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create", "write #1 @0 a", "write #1 @1 b"));
}

TEST_F(Writing, ofNoBytesIsSentLikeAnyOther) {
    const CountAnswer answer = volume_->write("", file("/a"), 3);
    EXPECT_EQ(answer.error, success);
    EXPECT_EQ(answer.count, 0U);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create", "write #1 @3 "));
}

TEST_F(Writing, atANegativeOffsetIsInvalid) {
    const CountAnswer answer = volume_->write("x", file("/a"), -1);
    EXPECT_EQ(answer.error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(answer.count, 0U);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Writing, toADirectoryIsRefusedBeforeTheOffsetIsLookedAt) {
    EXPECT_EQ(volume_->write("x", directory("/a"), -1).error, posix(posixErrno::EISDIR_));
}

TEST_F(Writing, toAForeignItemIsInvalid) {
    EXPECT_EQ(volume_->write("x", volume_->makeForeignItem(), 0).error, posix(posixErrno::EINVAL_));
}

TEST_F(Writing, repliesTheErrorOfTheOpen) {
    helper_.once("open", ScriptedAnswer::failure("EROFS", "sealed"));
    EXPECT_EQ(volume_->write("x", file("/a"), 0).error, posix(posixErrno::EROFS_, "sealed"));
}

TEST_F(Writing, thatFailsCountsNothingAndKeepsTheHandle) {
    helper_.once("write", ScriptedAnswer::failure("EIO", "full"));
    const CountAnswer answer = volume_->write("xyz", file("/a"), 0);
    EXPECT_EQ(answer.error, posix(posixErrno::EIO_, "full"));
    EXPECT_EQ(answer.count, 0U);
    volume_->write("xyz", file("/a"), 0);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create", "write #1 @0 xyz", "write #1 @0 xyz"));
}

// Two threads open one item for reading. The helper does not answer the first of them before both are on their way, so
// that in most rounds both have missed the table by then; rounds in which one came too late for the race are repeated.
class OpenRace : public VolumeFixture {
protected:
    // Returns the requests of the first round in which both opened, or nothing.
    std::vector<std::string> race() {
        std::latch* bothOnTheirWay = nullptr;
        std::int64_t handle = 0;
        helper_.on("open", [&](const ScriptedRequest&) {
            bothOnTheirWay->wait();
            for (int i = 0; i < 50; ++i)
                std::this_thread::yield();
            return ScriptedAnswer::success("{\"handle\":" + std::to_string(++handle) + "}");
        });
        for (int round = 0; round < 1000; ++round) {
            std::latch latch(2);
            bothOnTheirWay = &latch;
            handle = 0;
            const auto open = [&] {
                latch.count_down();
                EXPECT_EQ(volume_->openItem(item_, Modes::read), success);
            };
            std::thread other(open);
            open();
            other.join();
            std::vector<std::string> sent = helper_.takeSummaries();
            if (sent.size() > 1)
                return sent;
            EXPECT_THAT(sent, ElementsAre("open /a read"));
            volume_->closeItem(item_, Modes::none); // forgets the handle even where the helper will not have it back
            helper_.takeRequests();
        }
        return {};
    }

    Item item_ = file("/a");
};

TEST_F(OpenRace, keepsTheHandleStoredFirstAndGivesTheOtherBack) {
    const std::vector<std::string> sent = race();
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0], "open /a read");
    EXPECT_EQ(sent[1], "open /a read");
    ASSERT_THAT(sent[2], testing::AnyOf("release #1", "release #2"));
    const std::string kept = sent[2] == "release #2" ? "#1" : "#2";
    volume_->read(item_, 0, 1, 1);
    volume_->closeItem(item_, Modes::none);
    volume_->closeItem(item_, Modes::none);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("read " + kept + " @0 +1", "release " + kept));
}

TEST_F(OpenRace, ignoresThatTheOtherHandleCannotBeGivenBack) {
    helper_.on("release", ScriptedAnswer::failure("EIO", "will not have it back"));
    EXPECT_EQ(race().size(), 3U); // both opens succeeded
}

TEST_F(Opening, aSlowHelperDoesNotKeepOthersFromTheTables) {
    const Item open = file("/open");
    volume_->openItem(open, Modes::read);
    std::latch asked(1);
    std::latch mayAnswer(1);
    helper_.on("open", [&](const ScriptedRequest&) {
        asked.count_down();
        mayAnswer.wait();
        return ScriptedAnswer::success(R"({"handle":9})");
    });
    std::thread slow([&] { EXPECT_EQ(volume_->openItem(file("/slow"), Modes::write), success); });
    asked.wait();
    // Needs the tables but no exchange, so it must come back while the helper is still thinking.
    EXPECT_EQ(volume_->openItem(open, Modes::read), success);
    EXPECT_EQ(volume_->closeItem(file("/never"), Modes::none), success);
    mayAnswer.count_down();
    slow.join();
}

TEST_F(Reading, byManyThreadsGivesEachItsOwnBytes) {
    helper_.on("read", [](const ScriptedRequest& request) {
        return ScriptedAnswer::data(std::string(64, static_cast<char>('a' + request.integer("offset"))));
    });
    const Item item = file("/a");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(volume_->read(item, t, 64, 64).bytes, std::string(64, static_cast<char>('a' + t)));
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ClientlessHandles, openingIsNoSuchDevice) {
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::read), posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::write), posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->openItem(file("/a"), Modes::none), success);
}

TEST_F(ClientlessHandles, closingFindsNothingToGiveBack) {
    EXPECT_EQ(volume_->closeItem(file("/a"), Modes::none), success);
}

TEST_F(ClientlessHandles, readingIsNoSuchDeviceUnlessNothingIsWanted) {
    EXPECT_EQ(volume_->read(file("/a"), 0, 4, 4).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->read(file("/a"), 0, 0, 4).error, success);
}

TEST_F(ClientlessHandles, writingIsNoSuchDevice) {
    EXPECT_EQ(volume_->write("x", file("/a"), 0).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->write("", file("/a"), 0).error, posix(posixErrno::ENXIO_));
}

} // namespace
} // namespace volumesuite
