#include "foundation/DecodingError.h"
#include "helper/AdapterError.h"
#include "helper/HelperResponse.h"
#include "helper/ListingReader.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>

namespace kemvi {
namespace {

// What a listing of this result says: its entries, or the error.
std::string listed(const std::string& members) {
    ListingReader listing;
    foundation::JSONReader reader;
    const auto line = std::make_shared<foundation::ByteBuffer>();
    line->append(R"({"id":"1","ok":true)" + members + "}");
    try {
        HelperResponse::decode(line, reader, [&](foundation::JSONElement& result) { listing.read(result); });
        std::string text;
        for (const KemviDirEntry& entry : std::move(listing).entries())
            text += entry.name + "|" + entry.description() + "|" + std::to_string(entry.size.value_or(-1)) + "|" +
                    (entry.modifiedAt ? kemviFs().string(*entry.modifiedAt) : "-") + "\n";
        return text;
    } catch (const AdapterError& error) {
        return error.description();
    } catch (const foundation::DecodingError& error) {
        return "decoding: " + error.description();
    }
}

// The same by way of a tree of values, as every other result is read.
std::string listedByTree(const std::string& result) {
    foundation::JSONReader reader;
    std::string text;
    try {
        JSONValue tree;
        reader.readObject("{\"v\":" + result + "}",
                          [&](std::string_view, foundation::JSONElement& element) { tree = JSONValue::read(element); });
        if (tree.asArray() == nullptr)
            return "readdir result was not an array";
        for (const JSONValue& element : *tree.asArray()) {
            const KemviDirEntry entry{KemviFileStat(element)};
            text += entry.name + "|" + entry.description() + "|" + std::to_string(entry.size.value_or(-1)) + "|" +
                    (entry.modifiedAt ? kemviFs().string(*entry.modifiedAt) : "-") + "\n";
        }
        return text;
    } catch (const AdapterError& error) {
        return error.description();
    } catch (const foundation::DecodingError& error) {
        return "decoding: " + error.description();
    }
}

TEST(ListingReader, readsElementsAsStats) {
    EXPECT_EQ(
        listed(R"(,"result":[{"path":"/a","isDirectory":true},{"size":5.9,"modifiedAt":"2024-05-01T12:34:56.789Z"}])"),
        "a|dir  /a|0|-\n|file |5|2024-05-01T12:34:56.789Z\n");
}

TEST(ListingReader, readsElementsWhoseKeysAndTextsHaveEscapes) {
    const std::string longText(100'000, 'x');
    EXPECT_EQ(listed(R"(,"result":[{"p\u0061th":"\/)" + longText +
                     R"(","n\u0061me":"\u006eame"},)"
                     R"({"n\u0061me":"\u0070ath","s\u0069ze":3}])"),
              "name|file /" + longText + "|0|-\npath|file |3|-\n");
}

TEST(ListingReader, refusesAnAbsentResultAndOneThatIsNoArray) {
    for (const char* members : {"", ",\"result\":null", ",\"result\":{}", ",\"result\":1"})
        EXPECT_EQ(listed(members), "readdir result was not an array") << members;
}

TEST(ListingReader, letsTheLastResultCount) {
    EXPECT_EQ(listed(R"(,"result":[{"path":"/a"}],"result":[{"path":"/b"}])"), "b|file /b|0|-\n");
    EXPECT_EQ(listed(R"(,"result":[{"path":"/a"}],"result":null)"), "readdir result was not an array");
    EXPECT_EQ(listed(R"(,"result":[7],"result":[{"path":"/b"}])"), "b|file /b|0|-\n");
    EXPECT_EQ(listed(R"(,"result":[{"size":1e300}],"result":[{"path":"/b"}])"), "b|file /b|0|-\n");
}

TEST(ListingReader, letsTheLastMemberOfOneNameCount) {
    EXPECT_EQ(listed(R"(,"result":[{"size":5,"path":"/a","size":"5","path":"/b","name":"n","name":0}])"),
              "b|file /b|0|-\n");
}

TEST(ListingReader, rejectsBrokenValuesEvenBehindAnElementThatIsNoObject) {
    EXPECT_EQ(listed(R"(,"result":[7,[1e400]])"), "decoding: Unsupported JSON value");
    EXPECT_EQ(listed(R"(,"result":[{"other":1e400}])"), "decoding: Unsupported JSON value");
    EXPECT_EQ(listed(R"(,"result":{"other":1e400})"), "decoding: Unsupported JSON value");
    EXPECT_EQ(listed(R"(,"result":[7,{"a":nul}])").substr(0, 10), "decoding: ");
}

TEST(ListingReader, saysTheSameAsATreeOfValues) {
    static constexpr const char* keys[] = {"path", "name", "isDirectory", "size", "modifiedAt", "other", "p\\u0061th"};
    static constexpr const char* values[] = {"null",
                                             "true",
                                             "false",
                                             "0",
                                             "4096.7",
                                             "-1",
                                             "1e400",
                                             "\"\"",
                                             "\"/\"",
                                             "\"/a/b\"",
                                             "\"x\\u0041\"",
                                             "[]",
                                             "[1,\"a\"]",
                                             "{}",
                                             "{\"path\":\"/inner\"}",
                                             "\"2024-05-01T12:34:56.789Z\"",
                                             "\"2024-05-01T12:34:56Z\""};
    std::mt19937 random(1);
    const auto any = [&](const auto& list) { return list[random() % std::size(list)]; };
    for (int i = 0; i < 5'000; ++i) {
        std::string result = "[";
        for (std::size_t element = random() % 4; element > 0; --element) {
            result += result.size() > 1 ? "," : "";
            if (random() % 8 == 0) {
                result += any(values);
                continue;
            }
            std::string object;
            for (std::size_t member = random() % 7; member > 0; --member)
                object.append(object.empty() ? "\"" : ",\"").append(any(keys)).append("\":").append(any(values));
            result += "{" + object + "}";
        }
        result += "]";
        ASSERT_EQ(listed(",\"result\":" + result), listedByTree(result)) << result;
    }
}

TEST(ListingReaderDeathTest, judgesElementsInTheirOrder) {
    EXPECT_EXIT(listed(R"(,"result":[{"size":1e19},7])"), testing::KilledBySignal(SIGABRT), "does not fit");
    EXPECT_EQ(listed(R"(,"result":[7,{"size":1e19}])"), "file stat was not an object");
}

} // namespace
} // namespace kemvi
