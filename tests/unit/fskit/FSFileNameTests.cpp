#include "fskit/FSFileName.h"

#include <gtest/gtest.h>

namespace {

TEST(FSFileName, hasNoTextWhenItsBytesAreNotUTF8) {
    EXPECT_EQ(fskit::FSFileName("caf\xC3\xA9").string(), "caf\xC3\xA9");
    EXPECT_EQ(fskit::FSFileName("caf\xE9").string(), std::nullopt);
    EXPECT_EQ(fskit::FSFileName("caf\xE9").data(), "caf\xE9");
}

TEST(FSFileName, endsAtTheFirstNUL) {
    EXPECT_EQ(fskit::FSFileName(std::string_view("ab\0cd", 5)).data(), "ab");
}

} // namespace
