#include "foundation/DecodingError.h"
#include "helper/AdapterError.h"
#include "helper/HelperResponse.h"
#include "helper/StatReader.h"

#include <gtest/gtest.h>

#include <random>

namespace kemvi {
namespace {

std::string said(const KemviFileStat& stat) {
    return stat.name + "|" + stat.description() + "|" + std::to_string(stat.size) + "|" +
           (stat.modifiedAt ? kemviFs().string(*stat.modifiedAt) : "-");
}

HelperResponse decode(const std::string& members, const HelperResponse::ResultHandler& onResult) {
    foundation::JSONReader reader;
    const auto line = std::make_shared<foundation::ByteBuffer>();
    line->append(R"({"id":"1","ok":true)" + members + "}");
    return HelperResponse::decode(line, reader, onResult);
}

// What a stat of these members of the answer says, or the error.
std::string read(const std::string& members) {
    StatReader stat;
    try {
        decode(members, [&](foundation::JSONElement& result) { stat.read(result); });
        return said(std::move(stat).stat());
    } catch (const AdapterError& error) {
        return error.description();
    } catch (const foundation::DecodingError& error) {
        return "decoding: " + error.description();
    }
}

// The same by way of a tree of values.
std::string readByTree(const std::string& members) {
    try {
        const HelperResponse response = decode(members, {});
        return response.result ? said(KemviFileStat(*response.result)) : "getattr result was empty";
    } catch (const AdapterError& error) {
        return error.description();
    } catch (const foundation::DecodingError& error) {
        return "decoding: " + error.description();
    }
}

TEST(StatReader, readsAStat) {
    EXPECT_EQ(read(R"(,"result":{"path":"/a/b","name":"c","isDirectory":true,"size":5.9,"other":[1],)"
                   R"("modifiedAt":"2024-05-01T12:34:56.789Z"})"),
              "c|dir /a/b|5|2024-05-01T12:34:56.789Z");
    EXPECT_EQ(read(R"(,"result":{"path":"/a/b"})"), "b|file /a/b|0|-");
    EXPECT_EQ(read(R"(,"result":{})"), "|file |0|-");
}

TEST(StatReader, readsEveryMemberUnderAnEscapedKey) {
    const std::string longText(100'000, 'x');
    EXPECT_EQ(read(R"(,"result":{"p\u0061th":"\/)" + longText + R"(","n\u0061me":"\u0041)" + longText +
                   R"(","isDirector\u0079":true,"s\u0069ze":5,"modified\u0041t":"\u0032024-05-01T12:34:56.789Z"})"),
              "A" + longText + "|dir /" + longText + "|5|2024-05-01T12:34:56.789Z");
}

TEST(StatReader, tellsNoResultFromOneOfTheWrongShape) {
    EXPECT_EQ(read(""), "getattr result was empty");
    EXPECT_EQ(read(R"(,"result":null)"), "getattr result was empty");
    for (const char* shape : {"1", "\"x\"", "true", "[]", "[{}]"})
        EXPECT_EQ(read(std::string(",\"result\":") + shape), "file stat was not an object") << shape;
}

TEST(StatReader, letsTheLastResultCount) {
    EXPECT_EQ(read(R"(,"result":{"path":"/a","size":7},"result":{"path":"/b"})"), "b|file /b|0|-");
    EXPECT_EQ(read(R"(,"result":{"path":"/a"},"result":null)"), "getattr result was empty");
    EXPECT_EQ(read(R"(,"result":7,"result":{"path":"/b"})"), "b|file /b|0|-");
}

TEST(StatReader, rejectsBrokenValuesThatItWouldIgnore) {
    EXPECT_EQ(read(R"(,"result":{"size":1e400})"), "decoding: Unsupported JSON value");
    EXPECT_EQ(read(R"(,"result":{"other":[{"x":1e400}]})"), "decoding: Unsupported JSON value");
    EXPECT_EQ(read(R"(,"result":[1e400])"), "decoding: Unsupported JSON value");
    for (const char* broken : {R"({"path":tru})", R"({"other":"\q"})", R"({"size":01})", R"({"name":nul})"})
        EXPECT_EQ(read(std::string(",\"result\":") + broken).substr(0, 10), "decoding: ") << broken;
}

TEST(StatReader, saysTheSameAsATreeOfValues) {
    static constexpr const char* keys[] = {"path", "name", "isDirectory", "size", "modifiedAt", "other", "n\\u0061me"};
    static constexpr const char* values[] = {"null",        "true",
                                             "false",       "4096.7",
                                             "-1",          "1e400",
                                             "\"\"",        "\"/a/b\"",
                                             "\"\\u0041\"", "[1,\"a\",[]]",
                                             "{}",          "{\"path\":\"/inner\"}",
                                             "nul",         "\"2024-05-01T12:34:56.789Z\""};
    std::mt19937 random(1);
    const auto any = [&](const auto& list) { return list[random() % std::size(list)]; };
    for (int i = 0; i < 5'000; ++i) {
        std::string object;
        for (std::size_t member = random() % 7; member > 0; --member)
            object.append(object.empty() ? "\"" : ",\"").append(any(keys)).append("\":").append(any(values));
        const std::string members = ",\"result\":" + (random() % 8 == 0 ? any(values) : "{" + object + "}");
        ASSERT_EQ(read(members), readByTree(members)) << members;
    }
}

} // namespace
} // namespace kemvi
