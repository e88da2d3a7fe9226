#include "control/JSONText.h"
#include "control/Members.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using control::Members;

TEST(MembersTests, keepTheirOrderAndEscapeWhatMustBe) {
    EXPECT_EQ(Members().json(), "{}");
    EXPECT_EQ(Members().add("b", "x\n\"").add("a", true).addNull("n").json(), R"({"b":"x\n\"","a":true,"n":null})");
    EXPECT_EQ(Members().add("p", "/a\xff").json(), "{\"p\":\"/a\xef\xbf\xbd\"}");
}

TEST(MembersTests, writeNumbersAsPeopleDo) {
    EXPECT_EQ(Members()
                  .add("i", -5)
                  .add("u", std::numeric_limits<std::uint64_t>::max())
                  .add("million", 1e6)
                  .add("half", 0.5)
                  .add("none", std::numeric_limits<double>::infinity())
                  .json(),
              R"({"i":-5,"u":18446744073709551615,"million":1000000,"half":0.5,"none":null})");
}

TEST(MembersTests, nest) {
    EXPECT_EQ(Members()
                  .add("o", Members().add("k", 1U))
                  .add("t", std::vector<std::string>{"a", "b"})
                  .add("l", std::vector<Members>{Members(), Members().add("k", 2)})
                  .append(Members().add("more", false))
                  .append({})
                  .json(),
              R"({"o":{"k":1},"t":["a","b"],"l":[{},{"k":2}],"more":false})");
    EXPECT_EQ(Members().append(Members().add("first", 1)).json(), R"({"first":1})");
}

TEST(MembersTests, areWhatValuesAreWrittenWith) {
    using kemvi::JSONValue;
    const JSONValue value(kemvi::JSONObject(
        {{"z", JSONValue(1.0)},
         {"a", JSONValue(JSONValue::Array{JSONValue("x/y"), JSONValue(true), JSONValue(JSONValue::Null{})})}}));
    EXPECT_EQ(control::jsonText(value), R"({"z":1,"a":["x/y",true,null]})");
}

} // namespace
