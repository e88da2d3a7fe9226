#include "foundation/Log.h"

#include <gtest/gtest.h>

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

class Recorder final : public foundation::LogSink {
public:
    void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view line) override {
        static constexpr const char* names[] = {"debug", "info", "error", "fault"};
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
