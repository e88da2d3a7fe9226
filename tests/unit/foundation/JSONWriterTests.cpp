#include "foundation/JSONWriter.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using foundation::JSONSlashes;
using foundation::jsonString;
using foundation::JSONWriter;

class JSONWriterTest : public testing::Test {
protected:
    JSONWriterTest() : memory_(200, '#') {}

    std::string written(const JSONWriter& writer) const {
        return memory_.substr(0, static_cast<std::size_t>(writer.at() - memory_.data()));
    }

    char* memory() { return memory_.data(); }

private:
    std::string memory_;
};

TEST_F(JSONWriterTest, writesPiecesOneAfterTheOther) {
    JSONWriter writer(memory());
    writer.literal("{\"a\":");
    EXPECT_TRUE(writer.string("b"));
    writer.literal(",\"c\":");
    writer.number(-7);
    writer.literal("}");
    EXPECT_EQ(written(writer), R"({"a":"b","c":-7})");
}

TEST_F(JSONWriterTest, writesEveryNumber) {
    JSONWriter writer(memory());
    writer.number(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(written(writer), "-9223372036854775808");
    EXPECT_EQ(written(writer).size(), JSONWriter::longestNumber);
}

TEST_F(JSONWriterTest, escapesWhatCannotStandInAString) {
    JSONWriter writer(memory());
    EXPECT_TRUE(writer.string(std::string("\"\\\b\f\n\r\t\0\x01\x1f", 10)));
    EXPECT_EQ(written(writer), R"("\"\\\b\f\n\r\t\u0000\u0001\u001f")");
}

TEST_F(JSONWriterTest, escapesSlashesWhereThatIsAskedFor) {
    JSONWriter plain(memory());
    EXPECT_TRUE(plain.string("/a"));
    EXPECT_EQ(written(plain), R"("/a")");
    JSONWriter escaped(memory(), JSONSlashes::escaped);
    EXPECT_TRUE(escaped.string("/a"));
    EXPECT_EQ(written(escaped), R"("\/a")");
}

TEST_F(JSONWriterTest, leavesOtherCharactersAsTheyAre) {
    JSONWriter writer(memory());
    EXPECT_TRUE(writer.string("'\x7f\xc3\xa4\xf0\x9f\x98\x80"));
    EXPECT_EQ(written(writer), "\"'\x7f\xc3\xa4\xf0\x9f\x98\x80\"");
}

TEST_F(JSONWriterTest, tellsOfAStringThatIsNotUtf8) {
    for (const char* text : {"\xff", "a\xc3", "\xed\xa0\x80"}) {
        JSONWriter writer(memory());
        EXPECT_FALSE(writer.string(text)) << text;
    }
}

TEST_F(JSONWriterTest, needsNoMoreThanItsRoom) {
    const std::string longest(10, '\x01');
    JSONWriter writer(memory());
    EXPECT_TRUE(writer.string(longest));
    EXPECT_EQ(written(writer).size(), JSONWriter::roomFor(longest));
}

TEST(JSONStringTest, isQuotedAndKeepsItsSlashes) {
    EXPECT_EQ(jsonString(""), R"("")");
    EXPECT_EQ(jsonString("/a/\"b\"\n"), R"("/a/\"b\"\n")");
}

TEST(JSONStringTest, replacesEachByteThatIsNotUtf8) {
    EXPECT_EQ(jsonString("a\xff\xfe/\xc3\xa4\n\xc3"), "\"a\xef\xbf\xbd\xef\xbf\xbd/\xc3\xa4\\n\xef\xbf\xbd\"");
}

} // namespace
