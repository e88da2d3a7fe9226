#include "foundation/DecodingError.h"
#include "helper/JSONValue.h"

#include <gtest/gtest.h>

namespace kemvi {
namespace {

using Array = JSONValue::Array;
using Case = JSONValue::Case;

JSONValue read(const std::string& json) {
    foundation::JSONReader reader;
    JSONValue value;
    reader.readObject("{\"v\":" + json + "}",
                      [&](std::string_view, foundation::JSONElement& element) { value = JSONValue::read(element); });
    return value;
}

std::string text(const std::string& json) {
    return read(json).description();
}

TEST(JSONValue, readsEachTypeIntoItsCase) {
    EXPECT_TRUE(read("null").isNull());
    EXPECT_EQ(read("null").kind(), Case::null);
    EXPECT_FALSE(read("0").isNull());
    EXPECT_EQ(read("true"), JSONValue(true));
    EXPECT_EQ(read("false").kind(), Case::boolean);
    EXPECT_EQ(read("1"), JSONValue(1.0));
    EXPECT_EQ(read("1").kind(), Case::number);
    EXPECT_EQ(read("\"1\""), JSONValue("1"));
    EXPECT_EQ(read("[1,\"a\",[],null]"), JSONValue(Array{1.0, "a", Array{}, JSONValue::Null{}}));
    EXPECT_EQ(read(R"({"a":1,"b":{"c":true}})"), JSONValue(JSONObject({{"a", 1.0}, {"b", JSONObject({{"c", true}})}})));
}

TEST(JSONValue, tellsBooleansFromNumbers) {
    EXPECT_EQ(read("true").asNumber(), nullptr);
    EXPECT_EQ(read("1").asBool(), nullptr);
    EXPECT_FALSE(read("1") == read("true"));
}

TEST(JSONValue, roundsIntegersBeyondTheExactRange) {
    EXPECT_EQ(*read("9007199254740993").asNumber(), 9007199254740992.0);
}

TEST(JSONValue, refusesANumberThatNoDoubleHolds) {
    try {
        read("[[1e400]]");
        FAIL();
    } catch (const foundation::DecodingError& error) {
        EXPECT_EQ(error.kind(), foundation::DecodingError::Kind::dataCorrupted);
        EXPECT_EQ(error.description(), "Unsupported JSON value");
    }
}

TEST(JSONValue, hasItsCasesInTheirOrder) {
    EXPECT_EQ(static_cast<int>(Case::boolean), 0);
    EXPECT_EQ(static_cast<int>(Case::number), 1);
    EXPECT_EQ(static_cast<int>(Case::string), 2);
    EXPECT_EQ(static_cast<int>(Case::array), 3);
    EXPECT_EQ(static_cast<int>(Case::object), 4);
    EXPECT_EQ(static_cast<int>(Case::null), 5);
}

TEST(JSONValue, showsNumbersAsFloatingPoint) {
    const std::pair<const char*, const char*> texts[] = {{"3", "3.0"},
                                                         {"0.5", "0.5"},
                                                         {"-2", "-2.0"},
                                                         {"0", "0.0"},
                                                         {"-0", "-0.0"},
                                                         {"0.1", "0.1"},
                                                         {"1e3", "1000.0"},
                                                         {"123456.789", "123456.789"},
                                                         {"9007199254740992", "9007199254740992.0"},
                                                         {"9007199254740994", "9.007199254740994e+15"},
                                                         {"1e16", "1e+16"},
                                                         {"-1e16", "-1e+16"},
                                                         {"1.5e300", "1.5e+300"},
                                                         {"0.0001", "0.0001"},
                                                         {"0.00012", "0.00012"},
                                                         {"0.00001", "1e-05"},
                                                         {"2.5e-7", "2.5e-07"},
                                                         {"5e-324", "5e-324"}};
    for (const auto& [json, shown] : texts)
        EXPECT_EQ(text(json), shown) << json;
}

TEST(JSONValue, showsStringsAndNullWithoutQuotes) {
    EXPECT_EQ(text(R"("a \"b\"")"), "a \"b\"");
    EXPECT_EQ(text("\"null\""), "null");
    EXPECT_EQ(text("null"), "null");
    EXPECT_EQ(text("true"), "true");
    EXPECT_EQ(text("false"), "false");
}

TEST(JSONValue, showsContainersWithKeysInOrder) {
    EXPECT_EQ(text("[]"), "[]");
    EXPECT_EQ(text("{}"), "{}");
    EXPECT_EQ(text(R"({"b":1,"a":[true,null]})"), "{a: [true, null], b: 1.0}");
    EXPECT_EQ(text(R"(["x",["y"]])"), "[x, [y]]");
    EXPECT_EQ(text(R"({"b":1,"B":2,"\u00e4":3,"aa":4,"a":5})"), "{B: 2.0, a: 5.0, aa: 4.0, b: 1.0, \xC3\xA4: 3.0}");
}

TEST(JSONObject, keepsTheLastOfTwoMembersWithOneKey) {
    EXPECT_EQ(text(R"({"a":1,"b":2,"a":3})"), "{a: 3.0, b: 2.0}");
    std::string many = "{\"k7\":\"first\"";
    for (int i = 0; i < 100; ++i)
        many += ",\"k" + std::to_string(i) + "\":" + std::to_string(i);
    const JSONValue value = read(many + ",\"k7\":\"last\"}");
    EXPECT_EQ(value.asObject()->members().size(), 100U);
    EXPECT_EQ(*value.asObject()->find("k7"), JSONValue("last"));
    EXPECT_EQ(*value.asObject()->find("k99"), JSONValue(99.0));
}

TEST(JSONObject, findsMembersByTheirExactKey) {
    const JSONValue value = read(R"({"handle":5,"":6})");
    EXPECT_EQ(*value.asObject()->find("handle"), JSONValue(5.0));
    EXPECT_EQ(*value.asObject()->find(""), JSONValue(6.0));
    EXPECT_EQ(value.asObject()->find("Handle"), nullptr);
    EXPECT_EQ(value.asObject()->find("handl"), nullptr);
}

TEST(JSONObject, comparesWithoutRegardToOrder) {
    EXPECT_EQ(read(R"({"a":1,"b":2})"), read(R"({"b":2,"a":1})"));
    EXPECT_FALSE(read(R"({"a":1,"b":2})") == read(R"({"a":1})"));
    EXPECT_FALSE(read(R"({"a":1})") == read(R"({"b":1})"));
    EXPECT_FALSE(read(R"({"a":1,"b":2})") == read(R"({"b":3,"a":1})"));
}

} // namespace
} // namespace kemvi
