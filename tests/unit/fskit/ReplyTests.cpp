#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "fskit/Reply.h"
#include "support/RecordingLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>

namespace {

using foundation::NSError;
using Error = std::optional<NSError>;
using SizeReply = fskit::Reply<std::size_t, Error>;

struct Answers {
    int count = 0;
    std::size_t size = 99;
    Error error;

    SizeReply reply() {
        return SizeReply([this](std::size_t answeredSize, Error answeredError) {
            ++count;
            size = answeredSize;
            error = std::move(answeredError);
        });
    }
};

const Error ioError = NSError::posix(foundation::posixErrno::EIO_);

TEST(Reply, handsItsArgumentsOn) {
    Answers answers;
    answers.reply()(7, NSError::posix(2, "gone"));
    EXPECT_EQ(answers.count, 1);
    EXPECT_EQ(answers.size, 7U);
    EXPECT_EQ(answers.error, NSError::posix(2, "gone"));
}

TEST(Reply, answersEIOWhenItIsDropped) {
    Answers answers;
    { const SizeReply dropped = answers.reply(); }
    EXPECT_EQ(answers.count, 1);
    EXPECT_EQ(answers.size, 0U);
    EXPECT_EQ(answers.error, ioError);
}

TEST(Reply, answersOnceThoughItWasMoved) {
    Answers answers;
    {
        SizeReply first = answers.reply();
        SizeReply second = std::move(first);
        second(1, std::nullopt);
    }
    EXPECT_EQ(answers.count, 1);
    EXPECT_FALSE(answers.error);
}

TEST(Reply, answersEIOForTheHandlerThatAnAssignmentReplaces) {
    Answers replaced;
    Answers kept;
    SizeReply reply = replaced.reply();
    reply = kept.reply();
    EXPECT_EQ(replaced.error, ioError);
    EXPECT_EQ(kept.count, 0);
    reply(3, std::nullopt);
    EXPECT_EQ(kept.size, 3U);
}

TEST(Reply, madeFromNothingAnswersNobodyAndIsNotMissed) {
    const testsupport::RecordingLog log;
    {
        SizeReply nothing;
        SizeReply withoutHandler{SizeReply::Handler()};
        EXPECT_NO_THROW(nothing(1, std::nullopt));
        EXPECT_NO_THROW(withoutHandler(1, std::nullopt));
        const SizeReply dropped;
    }
    EXPECT_THAT(log.texts(), testing::IsEmpty());
}

#ifdef NDEBUG
TEST(Reply, dropsASecondCall) {
    Answers answers;
    SizeReply reply = answers.reply();
    reply(1, std::nullopt);
    reply(2, std::nullopt);
    EXPECT_EQ(answers.count, 1);
    EXPECT_EQ(answers.size, 1U);
}
#else
TEST(ReplyDeathTest, stopsADebugBuildAtASecondCall) {
    Answers answers;
    SizeReply reply = answers.reply();
    reply(1, std::nullopt);
    EXPECT_DEATH(reply(2, std::nullopt), "called twice");
}
#endif

} // namespace
