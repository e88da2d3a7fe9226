#include "foundation/Error.h"
#include "foundation/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using foundation::LogLevel;
using foundation::logPrivate;
using foundation::logPublic;
using foundation::Log::setLevel;
using foundation::Log::setSink;
using foundation::Log::showPrivateValues;

using Texts = std::vector<std::string>;

class Recorder final : public foundation::LogSink {
public:
    void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view line) override {
        static constexpr const char* names[] = {"debug", "info", "warning", "error", "fault"};
        lines.push_back(std::string(names[static_cast<int>(level)]) + " " + std::string(subsystem) + " " +
                        std::string(category) + ": " + std::string(line));
    }

    std::vector<std::string> lines;
};

class LogTest : public testing::Test {
protected:
    LogTest() { setSink(recorder_); }

    ~LogTest() override {
        setSink(nullptr);
        showPrivateValues(false);
        setLevel(LogLevel::info);
    }

    using Lines = std::vector<std::string>;

    std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
    foundation::Logger logger_{"sub.system", "Category"};
};

TEST_F(LogTest, handsOnSubsystemCategoryAndLevel) {
    logger_.info({"one"});
    logger_.error({"two"});
    EXPECT_EQ(recorder_->lines, (Lines{"info sub.system Category: one", "error sub.system Category: two"}));
}

TEST_F(LogTest, hidesValuesOfDefaultPrivacyAndShowsPublicOnes) {
    logger_.info({"resource ", logPrivate("/home/me"), " drive ", logPublic("d1")});
    EXPECT_EQ(recorder_->lines, Lines{"info sub.system Category: resource <private> drive d1"});
}

TEST_F(LogTest, showsPrivateValuesWhenAsked) {
    showPrivateValues(true);
    logger_.info({"resource ", logPrivate("/home/me")});
    EXPECT_EQ(recorder_->lines, Lines{"info sub.system Category: resource /home/me"});
}

TEST_F(LogTest, leavesOutWhatIsBelowTheLevel) {
    logger_.debug({"debug"});
    setLevel(LogLevel::error);
    logger_.info({"info"});
    logger_.error({"error"});
    setLevel(LogLevel::debug);
    logger_.debug({"debug"});
    EXPECT_EQ(recorder_->lines, (Lines{"error sub.system Category: error", "debug sub.system Category: debug"}));
}

TEST_F(LogTest, showsNoControlCharacterAsItIs) {
    logger_.error({"name ",
                   logPublic("a\nb\033[31m\xC2\x9B"
                             "c\xFF\x7F\t"),
                   " \xC3\xA4"});
    EXPECT_EQ(recorder_->lines, Lines{"error sub.system Category: name a\\nb\\x1b[31m\\u009bc\\xff\\x7f\\t \xC3\xA4"});
}

TEST_F(LogTest, knowsWhatIsWritten) {
    setLevel(LogLevel::warning);
    EXPECT_FALSE(foundation::Log::isWritten(LogLevel::info));
    EXPECT_TRUE(foundation::Log::isWritten(LogLevel::warning));
    EXPECT_TRUE(foundation::Log::isWritten(LogLevel::error));
}

/// A file of a test's own.
class LogFile {
public:
    LogFile() {
        folder_ = testing::TempDir() + "kemvi-log-XXXXXX";
        if (mkdtemp(folder_.data()) == nullptr)
            std::abort();
    }

    ~LogFile() { std::filesystem::remove_all(folder_); }

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    std::string path(const std::string& name = "log") const { return folder_ + "/" + name; }

    // The lines, without the time in front.
    Texts lines(const std::string& name = "log") const {
        Texts found;
        std::ifstream file(path(name));
        for (std::string line; std::getline(file, line);)
            found.push_back(line.substr(std::min(line.size(), std::string("2024-05-01 12:34:56.789 ").size())));
        return found;
    }

private:
    std::string folder_;
};

TEST_F(LogTest, appendsToAFileUnderItsSubject) {
    const LogFile file;
    for (int i = 0; i < 2; ++i) {
        setSink(foundation::makeFileLogSink(file.path(), "/mnt/a"));
        logger_.info({"a line"});
    }
    EXPECT_EQ(file.lines(), (Lines{"kemvi: /mnt/a: Category: a line", "kemvi: /mnt/a: Category: a line"}));
}

TEST_F(LogTest, makesAFileAnewThatWasRotatedAway) {
    const LogFile file;
    setSink(foundation::makeFileLogSink(file.path(), "s"));
    logger_.info({"one"});
    std::filesystem::rename(file.path(), file.path("old"));
    logger_.info({"two"});
    std::filesystem::remove(file.path());
    logger_.info({"three"});
    EXPECT_EQ(file.lines("old"), (Lines{"kemvi: s: Category: one"}));
    EXPECT_EQ(file.lines(), (Lines{"kemvi: s: Category: three"}));
}

TEST_F(LogTest, refusesAFileThatCannotBeWritten) {
    EXPECT_THROW(foundation::makeFileLogSink("/nonexistent/folder/log", ""), foundation::NSErrorException);
}

TEST_F(LogTest, writesToADescriptorWithTheTimeInFront) {
    auto pipe = foundation::openPipe();
    setSink(foundation::makeDescriptorLogSink(std::move(pipe.writing), "/mnt/a"));
    logger_.info({"a line"});
    setSink(nullptr); // closes the descriptor
    std::string text(200, '\0');
    const ssize_t size = read(pipe.reading.number(), text.data(), text.size());
    ASSERT_GT(size, 0);
    text.resize(static_cast<std::size_t>(size));
    EXPECT_TRUE(std::regex_match(
        text, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} kemvi: /mnt/a: Category: a line\n)")))
        << text;
    EXPECT_EQ(read(pipe.reading.number(), text.data(), text.size()), 0);
}

TEST_F(LogTest, writesToStandardErrorUnderTheCategory) {
    setSink(foundation::makeStderrLogSink());
    testing::internal::CaptureStderr();
    logger_.info({"a line"});
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("Category: a line\n"), std::string::npos) << text;
}

TEST(FatalErrorDeathTest, logsTheReasonAndAborts) {
    EXPECT_EXIT(foundation::fatalError("the reason"), testing::KilledBySignal(SIGABRT), "fatal error: the reason");
}

} // namespace
