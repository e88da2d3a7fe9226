#include "helper/StandardErrorLog.h"

#include "foundation/StandardErrorPipe.h"
#include "helper/HelperProcess.h"
#include "support/RecordingLog.h"

#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using testing::Contains;
using testing::ElementsAre;

// Another standard error for as long as it lives.
class OtherStandardError {
public:
    explicit OtherStandardError(const char* path) {
        const foundation::Descriptor file(::open(path, O_RDWR | O_CLOEXEC));
        ::dup2(file.number(), STDERR_FILENO);
    }

    ~OtherStandardError() { putBack(); }

    OtherStandardError(const OtherStandardError&) = delete;
    OtherStandardError& operator=(const OtherStandardError&) = delete;

    void putBack() const { ::dup2(before_.number(), STDERR_FILENO); }

private:
    const foundation::Descriptor before_{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
};

void say(const std::string& text) {
    ASSERT_EQ(::write(STDERR_FILENO, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// Waits for the thread that writes the log, until there are that many lines; a minute at most.
std::vector<std::string> helperLines(const testsupport::RecordingLog& log, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (log.lines().size() < count && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::vector<std::string> texts;
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.subsystem, foundation::bundleIdentifier);
        EXPECT_EQ(line.category, "Helper");
        EXPECT_EQ(line.level, foundation::LogLevel::warning);
        texts.push_back(line.text);
    }
    return texts;
}

TEST(StandardErrorLog, logsWholeLinesAndTheLastWords) {
    const testsupport::RecordingLog log;
    const OtherStandardError error("/dev/null");
    ASSERT_TRUE(kemvi::logStandardError());
    say("one\ntw");
    EXPECT_THAT(helperLines(log, 1), ElementsAre("one"));
    say("o\nthree");
    EXPECT_THAT(helperLines(log, 2), ElementsAre("one", "two"));
    error.putBack(); // nobody holds it any more
    EXPECT_THAT(helperLines(log, 3), ElementsAre("one", "two", "three"));
}

TEST(StandardErrorLog, keepsNoWriterWaitingAndCutsLongLines) {
    const testsupport::RecordingLog log;
    const OtherStandardError error("/dev/null");
    ASSERT_TRUE(kemvi::logStandardError());
    say(std::string(1 << 20, 'x')); // more than any pipe holds
    say("\nend\n");
    const std::size_t pieces = ((1 << 20) + 999) / 1000;
    const auto lines = helperLines(log, pieces + 1);
    ASSERT_EQ(lines.size(), pieces + 1);
    EXPECT_EQ(lines.front(), std::string(1000, 'x'));
    EXPECT_EQ(lines.back(), "end");
}

TEST(StandardErrorLog, takesWhatHelpersSay) {
    const testsupport::RecordingLog log;
    const OtherStandardError error("/dev/null");
    ASSERT_TRUE(kemvi::logStandardError());
    kemvi::HelperProcess helper("/no/such/script.mjs", {{"PATH", "/nowhere"}});
    helper.start();
    helper.stop();
    EXPECT_THAT(helperLines(log, 1), Contains(testing::HasSubstr("node"))); // env: 'node': No such file or directory
}

TEST(StandardErrorPipe, knowsWhatLeadsNowhere) {
    const OtherStandardError error("/dev/null");
    EXPECT_TRUE(foundation::standardErrorLeadsNowhere());
    {
        const foundation::Descriptor reading = foundation::pipeAsStandardError();
        EXPECT_TRUE(reading.isOpen());
        EXPECT_FALSE(foundation::standardErrorLeadsNowhere());
    }
    ::close(STDERR_FILENO);
    EXPECT_TRUE(foundation::standardErrorLeadsNowhere());
    const foundation::Descriptor reading = foundation::pipeAsStandardError();
    EXPECT_GT(reading.number(), STDERR_FILENO);
    EXPECT_GE(::fcntl(STDERR_FILENO, F_GETFD), 0);
}

} // namespace
