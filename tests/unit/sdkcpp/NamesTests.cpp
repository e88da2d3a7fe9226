#include "Names.h"

#include <gtest/gtest.h>

#include <clocale>

namespace local {
namespace {

class FoldedNames : public testing::Test {
protected:
    FoldedNames() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
};

TEST_F(FoldedNames, areTheSameForEverySpellingOfAsciiText) {
    const std::string name = "mount-config.json";
    for (const char* other :
         {"mount-config.json", "Mount-CONFIG.Json", "mount-con\uFB01g.json", "mount-config.j\u017Fon",
          "mount-config.json. .", "mount\u00AD-config.json", "\uFF4Dount-config.json", "MOUNT\u200D-CONFIG.JSON",
          "\U0001D426ount-config.json", "\U0001D429ount-config.json"})
        EXPECT_EQ(folded(other) == name, std::string_view(other) != "\U0001D429ount-config.json") << other;
    for (const char* other :
         {"mount-config.jso", "mount-config_json", "m\u00F6unt-config.json", "mount-config.json\xFF", ""})
        EXPECT_NE(folded(other), name) << other;
}

TEST_F(FoldedNames, tellOtherLettersApartByAllButTheirCase) {
    EXPECT_EQ(folded("\u00C9T\u00C9"), folded("\u00E9t\u00E9"));
    EXPECT_NE(folded("\u00E9t\u00E9"), folded("\u00E8t\u00E9"));
    EXPECT_EQ(folded("\xFF\xFE"), "\xFF\xFE");
}

TEST_F(FoldedNames, haveAnotherCaseUnlessTheyHaveNoLetters) {
    EXPECT_EQ(inOtherCase("mount-config.json"), "MOUNT-CONFIG.JSON");
    EXPECT_EQ(inOtherCase("MOUNT"), "mount");
    EXPECT_EQ(inOtherCase("\u00E9"), "\u00C9");
    EXPECT_EQ(inOtherCase("12-3"), "12-3");
}

} // namespace
} // namespace local
