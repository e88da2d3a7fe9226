#include "cli/Spelling.h"

#include <gtest/gtest.h>

namespace {

using cli::likelyMeant;

const std::vector<std::string> commands{"mount", "unmount", "umount", "init", "check", "help"};

TEST(Spelling, guessesAWordWithOneSlip) {
    EXPECT_EQ(likelyMeant("mout", commands), "mount");   // missing
    EXPECT_EQ(likelyMeant("mounts", commands), "mount"); // too many
    EXPECT_EQ(likelyMeant("maunt", commands), "mount");  // wrong
    EXPECT_EQ(likelyMeant("moutn", commands), "mount");  // exchanged
    EXPECT_EQ(likelyMeant("hlep", commands), "help");
}

TEST(Spelling, allowsALongWordMoreSlips) {
    EXPECT_EQ(likelyMeant("unmuont", commands), "unmount");
    EXPECT_EQ(likelyMeant("unmuon", commands), "unmount");  // two slips in seven letters
    EXPECT_EQ(likelyMeant("enet", {"init"}), std::nullopt); // two in four
}

TEST(Spelling, takesTheNearestAndOfEquallyNearOnesTheFirst) {
    EXPECT_EQ(likelyMeant("umount", commands), "umount");
    EXPECT_EQ(likelyMeant("unount", commands), "unmount");
    EXPECT_EQ(likelyMeant("ab", {"ac", "ad"}), "ac");
}

TEST(Spelling, guessesNothingForAWordThatIsLikeNone) {
    EXPECT_EQ(likelyMeant("frobnicate", commands), std::nullopt);
    EXPECT_EQ(likelyMeant("", commands), std::nullopt);
    EXPECT_EQ(likelyMeant("mount", {}), std::nullopt);
    EXPECT_EQ(likelyMeant("MOUNT", commands), std::nullopt);
}

TEST(Spelling, comparesNoWordThatNobodyMeans) {
    const std::string longest(64, 'x');
    EXPECT_EQ(likelyMeant(longest, {longest}), longest);
    EXPECT_EQ(likelyMeant(longest + "x", {longest}), std::nullopt);
}

} // namespace
