#include "cli/LineSplitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using cli::LineSplitter;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(LineSplitter, givesEachLineWithoutItsEnd) {
    LineSplitter splitter(100);
    EXPECT_THAT(splitter.take("one\ntwo\n\nthree\n"), ElementsAre("one", "two", "", "three"));
    EXPECT_EQ(splitter.rest(), std::nullopt);
}

TEST(LineSplitter, keepsALineUntilItsEndComes) {
    LineSplitter splitter(100);
    EXPECT_THAT(splitter.take("on"), IsEmpty());
    EXPECT_THAT(splitter.take("e"), IsEmpty());
    EXPECT_THAT(splitter.take("\ntw"), ElementsAre("one"));
    EXPECT_THAT(splitter.take("o\n"), ElementsAre("two"));
}

TEST(LineSplitter, givesTheRestOnce) {
    LineSplitter splitter(100);
    EXPECT_THAT(splitter.take("one\nunfinished"), ElementsAre("one"));
    EXPECT_EQ(splitter.rest(), "unfinished");
    EXPECT_EQ(splitter.rest(), std::nullopt);
    EXPECT_THAT(splitter.take(" business\n"), ElementsAre(" business"));
}

TEST(LineSplitter, givesALineThatGrowsTooLongInPieces) {
    LineSplitter splitter(4);
    EXPECT_THAT(splitter.take("1234"), IsEmpty());
    EXPECT_THAT(splitter.take("5"), ElementsAre("12345"));
    EXPECT_THAT(splitter.take("6\n7"), ElementsAre("6"));
    EXPECT_THAT(splitter.take("\n"), ElementsAre("7"));
}

TEST(LineSplitter, cutsNoLineThatHasItsEnd) {
    LineSplitter splitter(4);
    EXPECT_THAT(splitter.take("123456789\n"), ElementsAre("123456789"));
}

} // namespace
