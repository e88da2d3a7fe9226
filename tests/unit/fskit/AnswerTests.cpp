#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace {

using foundation::NSError;
using Error = std::optional<NSError>;

TEST(Answer, repliesNoErrorWhenTheWorkReturns) {
    int calls = 0;
    fskit::ErrorReply reply([&](Error error) {
        ++calls;
        EXPECT_FALSE(error);
    });
    fskit::answer(reply, [] {});
    EXPECT_EQ(calls, 1);
}

TEST(Answer, repliesAThrownErrorUnchanged) {
    const NSError thrown = NSError::posix(2, "no such thing");
    fskit::ErrorReply reply([&](Error error) { EXPECT_EQ(error, thrown); });
    fskit::answer(reply, [&] { throw foundation::NSErrorException(thrown); });
}

TEST(Answer, repliesTheValueOfTheWork) {
    fskit::Reply<std::size_t, Error> reply([](std::size_t count, Error error) {
        EXPECT_EQ(count, 7U);
        EXPECT_FALSE(error);
    });
    fskit::answer(reply, [] { return std::size_t{7}; });
}

TEST(Answer, repliesTheGivenValueBesideAnError) {
    fskit::Reply<std::size_t, Error> reply([](std::size_t count, Error error) {
        EXPECT_EQ(count, 9U);
        EXPECT_EQ(error, NSError::posix(foundation::posixErrno::EIO_));
    });
    const auto fails = []() -> std::size_t { foundation::throwPosix(foundation::posixErrno::EIO_); };
    fskit::answer(reply, fails, std::size_t{9});
}

TEST(Answer, repliesBothValuesOfAPairOrNeither) {
    using PairReply = fskit::Reply<std::shared_ptr<int>, std::optional<std::string>, Error>;
    PairReply good([](std::shared_ptr<int> number, std::optional<std::string> text, Error error) {
        ASSERT_TRUE(number);
        EXPECT_EQ(*number, 3);
        EXPECT_EQ(text, "three");
        EXPECT_FALSE(error);
    });
    fskit::answer(good, [] { return std::pair(std::make_shared<int>(3), std::optional<std::string>("three")); });

    PairReply bad([](std::shared_ptr<int> number, std::optional<std::string> text, Error error) {
        EXPECT_FALSE(number);
        EXPECT_FALSE(text);
        EXPECT_EQ(error->description(), "broken");
    });
    fskit::answer(bad, []() -> std::pair<std::shared_ptr<int>, std::optional<std::string>> {
        throw std::runtime_error("broken");
    });
}

TEST(Answer, doesNotTakeAnExceptionOfTheHandlerForOneOfTheWork) {
    int calls = 0;
    fskit::ErrorReply reply([&](Error) {
        ++calls;
        throw std::runtime_error("the handler's own");
    });
    EXPECT_THROW(fskit::answer(reply, [] {}), std::runtime_error);
    EXPECT_EQ(calls, 1);
}

} // namespace
