#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "hosts/fuse/calls/FailureLog.h"
#include "support/RecordingLog.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace {

using foundation::ErrorOrigin;
using foundation::LogLevel;
using foundation::NSError;
using fusehost::FailureLog;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace posixErrno = foundation::posixErrno;
using namespace std::chrono_literals;

constexpr auto forEver = 1h;

NSError failure(const std::string& operation, const std::string& path, const std::string& code,
                const std::string& message, int number = posixErrno::EIO_) {
    NSError error = NSError::posix(number, message);
    error.origin = std::make_shared<ErrorOrigin>(ErrorOrigin{operation, path, "17", code, ""});
    return error;
}

NSError lasting(const std::string& state, const std::string& message) {
    NSError error{"com.example", 2, std::nullopt, message};
    error.origin = std::make_shared<ErrorOrigin>(ErrorOrigin{"getattr", "/a", "17", "", state});
    return error;
}

class FailureLogTest : public testing::Test {
protected:
    ~FailureLogTest() override {
        foundation::Log::showPrivateValues(false);
        foundation::Log::setLevel(LogLevel::info);
    }

    // Waits for what another thread is to log.
    std::vector<std::string> linesOnceThereAre(std::size_t count) {
        const auto limit = std::chrono::steady_clock::now() + 20s;
        while (log.texts().size() < count && std::chrono::steady_clock::now() < limit)
            std::this_thread::sleep_for(1ms);
        return log.texts();
    }

    testsupport::RecordingLog log;
};

TEST_F(FailureLogTest, tellsOperationPathCodeMessageAndWhatProgramsSee) {
    FailureLog failures;
    failures.note(failure("write", "/docs/a.txt", "ENOSPC", "no room"), EIO);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::error);
    EXPECT_EQ(log.lines()[0].text, "write of <private> failed: ENOSPC: no room (programs see \"Input/output error\")");
}

TEST_F(FailureLogTest, saysACodeThatTheMessageBeginsWithOnce) {
    FailureLog failures;
    failures.note(failure("open", "/a", "ENOSPC", "ENOSPC: no space left on device, open"), EIO);
    failures.note(failure("flush", "", "", "something"), EIO);
    EXPECT_THAT(log.texts(),
                ElementsAre("open of <private> failed: ENOSPC: no space left on device, open (programs see "
                            "\"Input/output error\")",
                            "flush failed: something (programs see \"Input/output error\")"));
}

TEST_F(FailureLogTest, keepsThePathPrivateWhereTheMessageNamesIt) {
    FailureLog failures;
    const NSError error = failure("open", "/docs/a", "EIO", "EIO: i/o error, open '/srv/tree/docs/a' and /docs/a");
    failures.note(error, EIO);
    foundation::Log::showPrivateValues(true);
    FailureLog open;
    open.note(error, EIO);
    EXPECT_THAT(log.texts(),
                ElementsAre("open of <private> failed: EIO: i/o error, open '/srv/tree<private>' and <private> "
                            "(programs see \"Input/output error\")",
                            "open of /docs/a failed: EIO: i/o error, open '/srv/tree/docs/a' and /docs/a "
                            "(programs see \"Input/output error\")"));
}

TEST_F(FailureLogTest, keepsWhatProgramsMeetEveryDayToTheDebugLevel) {
    FailureLog failures;
    const std::pair<int, int> everyday[] = {{posixErrno::ENOENT_, ENOENT},
                                            {posixErrno::EEXIST_, EEXIST},
                                            {posixErrno::ENOTEMPTY_, ENOTEMPTY},
                                            {posixErrno::EPERM_, EPERM},
                                            {posixErrno::EROFS_, EROFS}};
    for (const auto& [darwin, number] : everyday)
        failures.note(failure("getattr", "/a", "E", "m", darwin), number);
    EXPECT_THAT(log.texts(), IsEmpty());
    foundation::Log::setLevel(LogLevel::debug);
    failures.note(failure("getattr", "/a", "ENOENT", "m", posixErrno::ENOENT_), ENOENT);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::debug);
}

TEST_F(FailureLogTest, tellsThatAccessWasDenied) {
    FailureLog failures;
    failures.note(failure("open", "/a", "EACCES", "m", posixErrno::EACCES_), EACCES);
    EXPECT_THAT(log.texts(), ElementsAre(HasSubstr("EACCES: m")));
}

TEST_F(FailureLogTest, tellsOneLineForManyFailuresOfOneKindAndTheirNumberAtTheEnd) {
    {
        FailureLog failures({}, forEver);
        for (int i = 0; i < 1000; ++i)
            failures.note(failure("write", "/" + std::to_string(i), "ENOSPC", "m"), EIO);
        failures.note(failure("flush", "/a", "ENOSPC", "m"), EIO);
        EXPECT_THAT(log.texts(), ElementsAre(HasSubstr("write"), HasSubstr("flush")));
    }
    EXPECT_THAT(log.texts(), ElementsAre(HasSubstr("write"), HasSubstr("flush"),
                                         HasSubstr("(programs see \"Input/output error\"), 999 times since")));
}

TEST_F(FailureLogTest, countsUnderTheLatestOfTheFailures) {
    foundation::Log::showPrivateValues(true);
    {
        FailureLog failures({}, forEver);
        for (const char* path : {"/first", "/middle", "/latest"})
            failures.note(failure("write", path, "ENOSPC", "at " + std::string(path)), EIO);
    }
    EXPECT_THAT(log.texts(),
                ElementsAre(HasSubstr("/first"), HasSubstr("write of /latest failed: ENOSPC: at /latest")));
}

TEST_F(FailureLogTest, tellsAFailureAtOnceWhereTheLatestOfItsKindIsLongAgo) {
    FailureLog failures({}, 0ms);
    for (int i = 0; i < 3; ++i)
        failures.note(failure("write", "/a", "ENOSPC", "m"), EIO);
    EXPECT_THAT(log.texts(), testing::Each(testing::Not(HasSubstr("times"))));
    EXPECT_EQ(log.texts().size(), 3U);
}

TEST_F(FailureLogTest, countsFromTheLatestLineOn) {
    FailureLog failures({}, 50ms);
    for (int i = 0; i < 4; ++i)
        failures.note(failure("write", "/a", "ENOSPC", "m"), EIO);
    ASSERT_THAT(linesOnceThereAre(2), ElementsAre(HasSubstr("write"), HasSubstr("3 times")));
    // However long that takes: these are told together, or the first by itself and the other one after it.
    for (int i = 0; i < 2; ++i)
        failures.note(failure("write", "/a", "ENOSPC", "m"), EIO);
    for (const std::string& line : linesOnceThereAre(4))
        EXPECT_THAT(line, testing::Not(testing::AnyOf(HasSubstr("4 times"), HasSubstr("5 times"))));
}

TEST_F(FailureLogTest, saysNoMoreOfAnErrorThanALineHolds) {
    FailureLog failures;
    failures.note(failure("write", "/a", std::string(5000, 'E'), std::string(100'000, 'm')), EIO);
    ASSERT_EQ(log.texts().size(), 1U);
    EXPECT_LT(log.texts().front().size(), 3000U);
}

TEST_F(FailureLogTest, tellsTheNumberWhenTheIntervalIsOverThoughNothingMoreHappens) {
    FailureLog failures({}, 50ms);
    for (int i = 0; i < 4; ++i)
        failures.note(failure("write", "/a", "ENOSPC", "m"), EIO);
    EXPECT_THAT(linesOnceThereAre(2), ElementsAre(HasSubstr("write"), HasSubstr("3 times")));
}

TEST_F(FailureLogTest, isNotFloodedByErrorNamesThatAreMadeUp) {
    FailureLog failures({}, forEver);
    for (int i = 0; i < 5000; ++i)
        failures.note(failure("write", "/a", "E" + std::to_string(i), "m"), EIO);
    EXPECT_LT(log.texts().size(), 50U);
}

TEST_F(FailureLogTest, tellsAStateOnceWithWhatIsKnownOfIt) {
    int asked = 0;
    FailureLog failures([&](const ErrorOrigin& origin) {
        ++asked;
        return "explained: " + origin.state;
    });
    for (int i = 0; i < 100; ++i)
        failures.note(lasting("gone", "helper closed stdout"), EIO);
    EXPECT_EQ(asked, 1);
    EXPECT_THAT(log.texts(), ElementsAre("getattr of <private> failed: helper closed stdout (request 17); explained: "
                                         "gone; operations fail with \"Input/output error\" from here on"));
    failures.note(lasting("out of step since 18", "response id 1 did not match request id 18"), EIO);
    failures.note(lasting("out of step since 18", "response id 2 did not match request id 19"), EIO);
    EXPECT_EQ(log.texts().size(), 2U);
}

TEST_F(FailureLogTest, tellsAnErrorOfWhichNothingIsKnown) {
    FailureLog failures;
    failures.note(NSError{"com.example", 7, "the text", ""}, EIO);
    EXPECT_THAT(log.texts(), ElementsAre("an operation failed: the text (programs see \"Input/output error\")"));
}

} // namespace
