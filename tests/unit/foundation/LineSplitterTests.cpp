#include "foundation/LineSplitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using foundation::LineSplitter;
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
    EXPECT_THAT(splitter.take("5"), ElementsAre("1234"));
    EXPECT_THAT(splitter.take("6\n7"), ElementsAre("56"));
    EXPECT_THAT(splitter.take("\n"), ElementsAre("7"));
}

TEST(LineSplitter, givesNoMoreThanTheLimitAtOnce) {
    LineSplitter splitter(4);
    EXPECT_THAT(splitter.take("123456789\n1234\n"), ElementsAre("1234", "5678", "9", "1234"));
    EXPECT_EQ(splitter.rest(), std::nullopt);
}

TEST(LineSplitter, cutsBetweenCharacters) {
    LineSplitter splitter(4);
    EXPECT_THAT(splitter.take("abc\xC3\xA4z\n"), ElementsAre("abc", "\xC3\xA4z"));
    EXPECT_THAT(splitter.take("a\xF0\x9F\x90\x9F\n"), ElementsAre("a", "\xF0\x9F\x90\x9F"));
    EXPECT_THAT(splitter.take("\x80\x80\x80\x80\x80\n"), ElementsAre("\x80\x80\x80\x80", "\x80"));
}

} // namespace
