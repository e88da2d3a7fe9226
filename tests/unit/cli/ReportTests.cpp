#include "cli/check/Report.h"
#include "cli/check/ShownLine.h"

#include <gtest/gtest.h>

namespace {

using namespace cli::check;

Finding error(std::string problem, std::string consequence = "it is lost") {
    return {Severity::error, std::move(problem), std::move(consequence), "{\"op\":\"x\"}", "{\"ok\":true}", 0};
}

Finding warning(std::string consequence) {
    return {Severity::warning, "odd", std::move(consequence), "", "", 0};
}

/// One check of each kind of outcome.
Report everyOutcome() {
    Report report;
    report.done("good");
    report.add("bad", error("wrong"));
    report.add("bad", error("wrong again"));
    report.add("odd", warning("it is slow"));
    report.skip("left out", "nothing to see");
    report.begin("to come");
    return report;
}

TEST(Report, keepsTheFirstOfFindingsWithOneConsequenceAndCountsTheRest) {
    Report report;
    report.add("check", error("first"));
    report.add("check", error("second"));
    report.add("check", error("third"));
    report.add("check", error("first", "it hangs"));
    report.add("check", warning("it is lost"));
    ASSERT_EQ(report.checks().size(), 1U);
    const auto& findings = report.checks()[0].findings;
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[0].problem, "first");
    EXPECT_EQ(findings[0].more, 2U);
    EXPECT_EQ(findings[1].more, 0U);
    EXPECT_EQ(report.count(Severity::error), 2U);
    EXPECT_EQ(report.count(Severity::warning), 1U);
}

TEST(Report, countsNoWarningAsAFailure) {
    const Report report = everyOutcome();
    EXPECT_TRUE(report.failed("bad"));
    for (const char* other : {"good", "odd", "left out", "to come", "never heard of"})
        EXPECT_FALSE(report.failed(other)) << other;
}

TEST(Report, keepsTheOrderInWhichChecksWereBegun) {
    Report report;
    report.begin("first");
    report.begin("second");
    report.done("second");
    report.begin("first");
    ASSERT_EQ(report.checks().size(), 2U);
    EXPECT_EQ(report.checks()[0].name, "first");
}

TEST(ReportText, forPeopleHasALinePerCheckAndTheFindingsBeneath) {
    EXPECT_EQ(plainText(everyOutcome()), "ok    good\n"
                                         "FAIL  bad\n"
                                         "        request: {\"op\":\"x\"}\n"
                                         "        answer:  {\"ok\":true}\n"
                                         "        wrong:   wrong\n"
                                         "        so:      it is lost\n"
                                         "        and 1 more like it\n"
                                         "warn  odd\n"
                                         "        wrong:   odd\n"
                                         "        so:      it is slow\n"
                                         "skip  left out (nothing to see)\n"
                                         "skip  to come (not reached)\n"
                                         "1 errors, 1 warnings\n");
}

TEST(ReportText, ofTheTestAnythingProtocolNumbersTheChecks) {
    EXPECT_EQ(tapText(everyOutcome()), "TAP version 13\n"
                                       "1..5\n"
                                       "ok 1 - good\n"
                                       "not ok 2 - bad\n"
                                       "# error\n"
                                       "#   request: {\"op\":\"x\"}\n"
                                       "#   answer:  {\"ok\":true}\n"
                                       "#   wrong:   wrong\n"
                                       "#   so:      it is lost\n"
                                       "#   and 1 more like it\n"
                                       "ok 3 - odd\n"
                                       "# warning\n"
                                       "#   wrong:   odd\n"
                                       "#   so:      it is slow\n"
                                       "ok 4 - left out # SKIP nothing to see\n"
                                       "ok 5 - to come # SKIP not reached\n"
                                       "# 1 errors, 1 warnings\n");
}

TEST(ReportText, ofJSONIsOneLineWithEverything) {
    Report report;
    report.done("a \"good\" one");
    report.add("bad", error("wrong"));
    EXPECT_EQ(jsonText(report),
              R"({"errors":1,"warnings":0,"interrupted":false,"checks":[)"
              R"({"name":"a \"good\" one","status":"ok","findings":[]},)"
              R"({"name":"bad","status":"FAIL","findings":[{"severity":"error","problem":"wrong",)"
              R"("consequence":"it is lost","request":"{\"op\":\"x\"}","answer":"{\"ok\":true}","more":0}]}]})"
              "\n");
}

TEST(ReportText, saysThatItWasInterrupted) {
    Report report;
    report.interrupt();
    EXPECT_EQ(plainText(report), "interrupted; so far 0 errors, 0 warnings\n");
    EXPECT_EQ(tapText(report),
              "TAP version 13\n1..0\nBail out! interrupted\n# interrupted; so far 0 errors, 0 warnings\n");
    EXPECT_EQ(jsonText(report), "{\"errors\":0,\"warnings\":0,\"interrupted\":true,\"checks\":[]}\n");
}

TEST(ReportText, showsLongAndControlledTextsAsLines) {
    Report report;
    report.add("bad", error("two\nlines\x1b[31m" + std::string(400, 'x')));
    EXPECT_NE(plainText(report).find("wrong:   two\\nlines\\x1b[31mxxx"), std::string::npos);
    EXPECT_NE(plainText(report).find("xxx... (414 bytes)\n"), std::string::npos);
}

TEST(ShownLine, isWholeUpToTheLongestAndThenToldByItsLength) {
    const std::string longest(longestShown, 'x');
    EXPECT_EQ(shownLine(longest), longest);
    EXPECT_EQ(shownLine(longest + "y"), longest + "... (301 bytes)");
    EXPECT_EQ(shownLine("start", 16'000'000), "start... (16000000 bytes)");
}

TEST(ShownLine, cutsNoCharacterInTwo) {
    const std::string before(longestShown - 1, 'x');
    EXPECT_EQ(shownLine(before + "\xe2\x82\xac"), before + "... (302 bytes)");
    EXPECT_EQ(shownLine(before.substr(2) + "\xe2\x82\xac" + "y"), before.substr(2) + "\xe2\x82\xac... (301 bytes)");
}

TEST(ShownLine, hasNoControlCharacters) {
    EXPECT_EQ(shownLine("a\tb\x07"), "a\\tb\\x07");
}

} // namespace
