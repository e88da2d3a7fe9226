#include "cli/ProgramOutput.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

using namespace std::chrono_literals;

TEST(ProgramOutput, IsWhatTheProgramSays) {
    EXPECT_EQ(programOutput({"/bin/echo", "a b", "c"}, 10s), "a b c\n");
    EXPECT_EQ(programOutput({"/bin/sh", "-c", "echo error >&2"}, 10s), "");
    EXPECT_EQ(programOutput({"/bin/cat"}, 10s), "") << "it reads nothing";
}

TEST(ProgramOutput, IsNothingWhereTheProgramFails) {
    EXPECT_EQ(programOutput({"/bin/sh", "-c", "echo said; exit 1"}, 10s), std::nullopt);
    EXPECT_EQ(programOutput({"/no/such/program"}, 10s), std::nullopt);
}

TEST(ProgramOutput, IsNotWaitedForLongerThanTheLimit) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(programOutput({"/bin/sleep", "100"}, 50ms), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 50s);
}

} // namespace
} // namespace cli
