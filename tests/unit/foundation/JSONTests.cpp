#include "foundation/JSON.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

namespace {

using foundation::DecodingError;
using foundation::JSONElement;
using foundation::JSONReader;
using foundation::JSONStringMembers;
using foundation::JSONType;
using Kind = DecodingError::Kind;

const auto ignore = [](std::string_view, JSONElement&) {};

struct Outcome {
    std::optional<Kind> error;
    std::string text;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << (outcome.error ? std::to_string(static_cast<int>(*outcome.error)) : "accepted") << " " << outcome.text;
}

// What becomes of a text whose members nobody asks for.
Outcome outcome(std::string_view text) {
    JSONReader reader;
    // The exact size on the heap, so that the address sanitizer sees reading beyond it.
    const std::vector<char> exact(text.begin(), text.end());
    try {
        reader.readObject({exact.data(), exact.size()}, ignore);
        return {};
    } catch (const DecodingError& error) {
        return {error.kind(), error.description()};
    }
}

bool accepted(std::string_view text) {
    return !outcome(text).error;
}

Outcome corrupted(std::string text) {
    return {Kind::dataCorrupted, std::move(text)};
}

std::optional<double> numberIn(const std::string& literal) {
    JSONReader reader;
    std::optional<double> number;
    reader.readObject("{\"n\":" + literal + "}",
                      [&](std::string_view, JSONElement& element) { number = element.number(); });
    return number;
}

std::string stringIn(const std::string& literal) {
    JSONReader reader;
    std::string value;
    reader.readObject("{\"s\":" + literal + "}",
                      [&](std::string_view, JSONElement& element) { value = element.string(); });
    return value;
}

TEST(JSON, handsOutMembersInTheOrderOfTheText) {
    JSONReader reader;
    std::string seen;
    reader.readObject(R"({"b":1,"a":[true,null],"c":{"d":"x"}})", [&](std::string_view key, JSONElement& value) {
        seen.append(key).append(":").append(jsonTypeName(value.type())).append(" ");
    });
    EXPECT_EQ(seen, "b:a number a:an array c:an object ");
}

TEST(JSON, acceptsWhiteSpaceAroundEverything) {
    EXPECT_TRUE(accepted(" \t\r\n{ \"a\" : [ 1 , 2 ] , \"b\" : { } } \r"));
}

TEST(JSON, acceptsAByteOrderMarkInFront) {
    EXPECT_TRUE(accepted("\xEF\xBB\xBF{}"));
    EXPECT_FALSE(accepted("{}\xEF\xBB\xBF"));
}

TEST(JSON, refusesAnEmptyText) {
    EXPECT_EQ(outcome(""), corrupted("not valid JSON: the text is empty"));
    EXPECT_EQ(outcome(" \r"), corrupted("not valid JSON: the text is empty"));
}

TEST(JSON, refusesATopLevelThatIsNoObject) {
    EXPECT_EQ(outcome("[]"), (Outcome{Kind::typeMismatch, "expected an object at the top level, found an array"}));
    EXPECT_EQ(outcome("42").text, "expected an object at the top level, found a number");
    EXPECT_EQ(outcome("\"{}\"").text, "expected an object at the top level, found a string");
    EXPECT_EQ(outcome("true").text, "expected an object at the top level, found a boolean");
    EXPECT_EQ(outcome("null"), (Outcome{Kind::valueNotFound, "expected an object at the top level, found null"}));
}

TEST(JSON, prefersSyntaxErrorsToTypeErrors) {
    EXPECT_EQ(outcome("[1,]").error, Kind::dataCorrupted);
    EXPECT_EQ(outcome("42 43").error, Kind::dataCorrupted);
    EXPECT_EQ(outcome("nul").error, Kind::dataCorrupted);
}

TEST(JSON, namesLineAndColumnOfTheProblem) {
    EXPECT_EQ(outcome("{\n  \"a\": 1\n  \"b\": 2\n}"),
              corrupted("not valid JSON at line 3, column 3: expected a comma or the end of the object"));
    EXPECT_EQ(outcome("{\"a\":}"), corrupted("not valid JSON at line 1, column 6: expected a value"));
    EXPECT_EQ(outcome("{\"a\":1} x"), corrupted("not valid JSON at line 1, column 9: expected the end of the text"));
    EXPECT_EQ(outcome("{\"a\":["), corrupted("not valid JSON at line 1, column 7: expected a value"));
}

TEST(JSON, refusesBrokenSyntaxInMembersThatNobodyAskedFor) {
    for (const char* text : {"{",
                             "}",
                             "{]",
                             "{\"a\"}",
                             "{\"a\":}",
                             "{\"a\":1,}",
                             "{,\"a\":1}",
                             "{\"a\" 1}",
                             "{\"a\":1 \"b\":2}",
                             "{a:1}",
                             "{1:1}",
                             "{\"a\":1}}",
                             "{\"a\":1}{}",
                             "{\"a\":1},",
                             "{\"a\":[}",
                             "{\"a\":[1}",
                             "{\"a\":[1,]}",
                             "{\"a\":[,1]}",
                             "{\"a\":[1 2]}",
                             "{\"a\":{]}",
                             "{\"a\":{\"b\"}}",
                             "{\"a\":[1}]",
                             "{\"a\":tru}",
                             "{\"a\":True}",
                             "{\"a\":truex}",
                             "{\"a\":true1}",
                             "{\"a\":nul}",
                             "{\"a\":nulll}",
                             "{\"a\":NaN}",
                             "{\"a\":Infinity}",
                             "{\"a\":-Infinity}",
                             "{\"a\":undefined}",
                             "{\"a\":'b'}",
                             "{\"a\":\"b}",
                             "{\"a\":\"b\"\"c\"}",
                             "{\"a\":\"b\"c}",
                             "{\"a\":1\"b\"}",
                             "{\"a\"::1}",
                             "{\"a\":1,,\"b\":2}",
                             "{\"a\":1/**/}",
                             "// x\n{}",
                             "hello",
                             "{\"a\":\"\\\"}"})
        EXPECT_EQ(outcome(text).error, Kind::dataCorrupted) << text;
}

TEST(JSON, refusesNumbersThatTheGrammarDoesNotKnow) {
    for (const char* number : {"01",  "-01", "00",   "-",     "+1", ".5",  "-.5",   "1.",   "1.e5", "1e",
                               "1e+", "1E-", "0x10", "1_000", "1a", "--1", "1e5.5", "1 .5", "- 1",  "1.5.5"})
        EXPECT_FALSE(accepted(std::string("{\"a\":") + number + "}")) << number;
}

TEST(JSON, refusesBrokenStringsInMembersThatNobodyAskedFor) {
    for (const char* body :
         {"\\x41", "\\u12", "\\u12G4", "\\u", "\\ud800", "\\ud800x", "\\ud800\\n", "\\ud800\\u0041", "\\udc00",
          "\\udc00\\ud800", "\\ud800\\ud800", "\\'", "\\0", "\\U0041", "a\nb", "a\tb", "\x01"})
        EXPECT_FALSE(accepted(std::string("{\"a\":\"") + body + "\"}")) << body;
    EXPECT_FALSE(accepted("{\"\\x\":1}"));
}

TEST(JSON, refusesTextThatIsNotUtf8) {
    EXPECT_EQ(outcome("{\"a\":\"\xFF\"}"), corrupted("not valid JSON: the text is not UTF-8"));
    EXPECT_FALSE(accepted("{\"a\":\"\xC3\"}"));
    EXPECT_FALSE(accepted("{\"a\":\"\xED\xA0\x80\"}"));
    EXPECT_FALSE(accepted(std::string_view("{\"a\":\"\0\"}", 9)));
    EXPECT_FALSE(accepted(std::string_view("{\"a\":1}\0", 8)));
}

TEST(JSON, resolvesEveryEscape) {
    EXPECT_EQ(stringIn(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(stringIn(R"("\u0041\u00e4\u20AC\uD83D\uDE00")"), "A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(stringIn(R"("a\u0000b")"), std::string("a\0b", 3));
    EXPECT_EQ(stringIn(R"("x\\")"), "x\\");
    EXPECT_EQ(stringIn("\"\xC3\xA4 plain\""), "\xC3\xA4 plain");
    EXPECT_EQ(stringIn("\"\""), "");
    EXPECT_EQ(stringIn("\"  spaces  \""), "  spaces  ");
}

TEST(JSON, leavesStringsWithoutEscapesWhereTheyLie) {
    const std::string text = R"({"s":"plain text"})";
    JSONReader reader;
    reader.readObject(text, [&](std::string_view, JSONElement& element) {
        EXPECT_EQ(element.string().data(), text.data() + text.find("plain"));
    });
}

TEST(JSON, readsKeysWithEscapes) {
    EXPECT_EQ(JSONStringMembers(R"({"\u0069\u0064":"7"})").string("id"), "7");
}

TEST(JSON, readsNumbersAsTheNearestDouble) {
    EXPECT_EQ(numberIn("0"), 0);
    EXPECT_EQ(numberIn("-17"), -17);
    EXPECT_EQ(numberIn("4096.7"), 4096.7);
    EXPECT_EQ(numberIn("1e3"), 1000);
    EXPECT_EQ(numberIn("1E+3"), 1000);
    EXPECT_EQ(numberIn("25e-1"), 2.5);
    EXPECT_EQ(numberIn("9007199254740993"), 9007199254740992.0);
    EXPECT_EQ(numberIn("9007199254740995"), 9007199254740996.0);
    EXPECT_TRUE(std::signbit(*numberIn("-0")));
    EXPECT_TRUE(std::signbit(*numberIn("-0.0")));
    EXPECT_EQ(numberIn("2.2250738585072011e-308"), 2.2250738585072011e-308);
    EXPECT_EQ(numberIn("5e-324"), 5e-324);
    EXPECT_EQ(numberIn("1e-400"), 0);
    EXPECT_EQ(numberIn("1.7976931348623157e308"), std::numeric_limits<double>::max());
}

TEST(JSON, readsIntegersOfAnyLength) {
    EXPECT_EQ(numberIn("9223372036854775808"), 9223372036854775808.0);
    EXPECT_EQ(numberIn("18446744073709551616"), 18446744073709551616.0);
    EXPECT_EQ(numberIn("-99999999999999999999999999999999999999"), -1e38);
    EXPECT_EQ(numberIn("1" + std::string(300, '0')), 1e300);
    EXPECT_EQ(numberIn("0." + std::string(400, '0') + "1e401"), 1);
    EXPECT_EQ(numberIn("0." + std::string(2000, '3')), 1.0 / 3);
}

TEST(JSON, saysThatANumberIsTooLargeForADouble) {
    EXPECT_EQ(numberIn("1e400"), std::nullopt);
    EXPECT_EQ(numberIn("-1e400"), std::nullopt);
    EXPECT_EQ(numberIn("1" + std::string(400, '0')), std::nullopt);
}

TEST(JSON, acceptsANumberTooLargeForADoubleWhereNobodyAsksForIt) {
    EXPECT_TRUE(accepted("{\"a\":1e400}"));
}

TEST(JSON, readsNumbersLikeTheCLibrary) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 50'000; ++i) {
        std::string literal = random() % 2 == 0 ? "-" : "";
        literal += std::to_string(random() >> random() % 64);
        if (random() % 2 == 0)
            literal += "." + std::to_string(random());
        if (random() % 2 == 0)
            literal += "e" + std::to_string(static_cast<int>(random() % 600) - 300);
        const double expected = std::strtod(literal.c_str(), nullptr);
        const std::optional<double> number = numberIn(literal);
        if (std::isinf(expected))
            ASSERT_EQ(number, std::nullopt) << literal;
        else
            ASSERT_EQ(number, expected) << literal;
    }
}

std::string nested(std::size_t levels) {
    // The object around it all is the first level.
    return "{\"a\":" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
}

TEST(JSON, accepts512LevelsAndNoMore) {
    EXPECT_TRUE(accepted(nested(512)));
    EXPECT_EQ(outcome(nested(513)).error, Kind::dataCorrupted);
    EXPECT_FALSE(accepted(std::string(1'000'000, '[')));
}

TEST(JSON, canBeUsedAgainAfterAnError) {
    JSONReader reader;
    EXPECT_THROW(reader.readObject("{\"a\":[[", ignore), DecodingError);
    EXPECT_THROW(reader.readObject("", ignore), DecodingError);
    EXPECT_THROW(reader.readObject("\"", ignore), DecodingError);
    int members = 0;
    reader.readObject(R"({"a":1,"b":2})", [&](std::string_view, JSONElement&) { ++members; });
    EXPECT_EQ(members, 2);
}

TEST(JSON, readsTextsOfGrowingSize) {
    JSONReader reader;
    for (std::size_t size = 1; size <= 4'000'000; size *= 7) {
        const std::string text = "{\"a\":\"" + std::string(size, 'x') + "\"}";
        std::size_t seen = 0;
        reader.readObject(text, [&](std::string_view, JSONElement& value) { seen = value.string().size(); });
        EXPECT_EQ(seen, size);
    }
}

std::optional<Outcome> lookUp(std::string_view text, std::string_view key) {
    try {
        (void)JSONStringMembers(text).string(key);
        return std::nullopt;
    } catch (const DecodingError& error) {
        return Outcome{error.kind(), error.description()};
    }
}

TEST(JSONStringMembers, givesStringsByTheirExactKey) {
    const JSONStringMembers members(R"({"driveId":"d","other":[1,{"driveId":"inner"}],"empty":""})");
    EXPECT_EQ(members.string("driveId"), "d");
    EXPECT_EQ(members.string("empty"), "");
}

TEST(JSONStringMembers, saysWhichKeyIsMissing) {
    EXPECT_EQ(lookUp(R"({"driveid":"d"})", "driveId"), (Outcome{Kind::keyNotFound, "key \"driveId\" is missing"}));
}

TEST(JSONStringMembers, saysWhatWasExpectedAndWhatWasFound) {
    EXPECT_EQ(lookUp(R"({"driveId":42})", "driveId"),
              (Outcome{Kind::typeMismatch, "key \"driveId\": expected a string, found a number"}));
    EXPECT_EQ(lookUp(R"({"driveId":null})", "driveId"),
              (Outcome{Kind::valueNotFound, "key \"driveId\": expected a string, found null"}));
    EXPECT_EQ(lookUp(R"({"driveId":["d"]})", "driveId")->text, "key \"driveId\": expected a string, found an array");
}

TEST(JSONStringMembers, takesTheLastOfTwoMembersWithOneKey) {
    EXPECT_EQ(JSONStringMembers(R"({"a":1,"a":"x","a":"y"})").string("a"), "y");
    EXPECT_EQ(lookUp(R"({"a":"x","a":1})", "a")->error, Kind::typeMismatch);
}

TEST(DecodingError, carriesThePlatformsNumbers) {
    const auto value = [](Kind kind) { return DecodingError(kind, "x").nsError(); };
    EXPECT_EQ(value(Kind::keyNotFound), (foundation::NSError{"NSCocoaErrorDomain", 4865, std::nullopt, {}}));
    EXPECT_EQ(value(Kind::valueNotFound).code, 4865);
    EXPECT_EQ(value(Kind::typeMismatch).code, 4864);
    EXPECT_EQ(value(Kind::dataCorrupted).code, 4864);
    EXPECT_EQ(foundation::EncodingError("x").nsError(),
              (foundation::NSError{"NSCocoaErrorDomain", 4866, std::nullopt, {}}));
}

} // namespace
