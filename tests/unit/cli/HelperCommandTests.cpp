#include "cli/CommandError.h"
#include "cli/HelperCommand.h"
#include "cli/HelperEnvOption.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using cli::CommandError;
using cli::commandText;
using cli::commandWords;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::ThrowsMessage;

TEST(HelperCommand, isSplitAtBlanks) {
    EXPECT_THAT(commandWords(" python3\t/a/tree.py  -v\n"), ElementsAre("python3", "/a/tree.py", "-v"));
}

TEST(HelperCommand, keepsQuotedWordsTogether) {
    EXPECT_THAT(commandWords(R"(p 'a b' "c d" e\ f '' "" g'h'"i")"),
                ElementsAre("p", "a b", "c d", "e f", "", "", "ghi"));
    EXPECT_THAT(commandWords(R"(p 'a\b"' "\"\\\n$x" \' \\)"), ElementsAre("p", R"(a\b")", R"("\\n$x)", "'", "\\"));
}

TEST(HelperCommand, hasNoShell) {
    EXPECT_THAT(commandWords("p $HOME ~ *.py | x > y; #"),
                ElementsAre("p", "$HOME", "~", "*.py", "|", "x", ">", "y;", "#"));
}

TEST(HelperCommand, lacksNoOtherHalf) {
    EXPECT_THAT([] { commandWords("p 'a"); }, ThrowsMessage<CommandError>(HasSubstr("single quote")));
    EXPECT_THAT([] { commandWords("p \"a\\\""); }, ThrowsMessage<CommandError>(HasSubstr("double quote")));
    EXPECT_THAT([] { commandWords("p a\\"); }, ThrowsMessage<CommandError>(HasSubstr("backslash")));
}

TEST(HelperCommand, namesAProgram) {
    for (const char* none : {"", "  ", "'' a"})
        EXPECT_THAT([&] { commandWords(none); }, ThrowsMessage<CommandError>(HasSubstr("names no program"))) << none;
}

TEST(HelperCommand, isShownAsItIsRead) {
    const std::vector<std::string> words{"p", "a b", "", "it's", R"(say "x\y")", "$z"};
    EXPECT_EQ(commandText(words), R"(p "a b" "" "it's" "say \"x\\y\"" $z)");
    EXPECT_EQ(commandWords(commandText(words)), words);
}

TEST(HelperSettings, areTakenOutOfTheMountOptions) {
    cli::HelperSettings settings;
    EXPECT_EQ(cli::takeSettings("ro,helper_env=A=b=c,,quiet,helper_env=_B1=", settings), "ro,quiet");
    EXPECT_THAT(settings, ElementsAre(Pair("A", "b=c"), Pair("_B1", "")));
    settings.clear();
    EXPECT_EQ(cli::takeSettings("ro,helper_environment=x", settings), "ro,helper_environment=x");
    EXPECT_THAT(settings, IsEmpty());
}

TEST(HelperSettings, mayHoldCommasAndBackslashes) {
    cli::HelperSettings settings;
    EXPECT_EQ(cli::takeSettings(R"(ro,helper_env=A=b\,c\040d,fsname=a\,b,helper_env=B=\\,quiet)", settings),
              R"(ro,fsname=a\,b,quiet)");
    EXPECT_THAT(settings, ElementsAre(Pair("A", "b,c d"), Pair("B", "\\")));
}

TEST(HelperSettings, haveNamesThatAVariableCanHave) {
    cli::HelperSettings settings;
    for (const char* bad : {"helper_env", "helper_env=", "helper_env=A", "helper_env==b", "helper_env=1A=b",
                            "helper_env=A-B=c", "helper_env=\xc3\xa4=b"})
        EXPECT_THAT([&] { cli::takeSettings(bad, settings); },
                    ThrowsMessage<CommandError>(HasSubstr("expected NAME=VALUE")))
            << bad;
    EXPECT_THAT([&] { cli::takeSettings("helper_env=KEMVI_HOME=/", settings); },
                ThrowsMessage<CommandError>(HasSubstr("KEMVI_")));
}

} // namespace
