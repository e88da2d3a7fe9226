#include "Request.h"

#include "Escapes.h"
#include "foundation/DecodingError.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace kemvi::kit {
namespace {

std::string textOf(std::span<const std::byte> data) {
    return {reinterpret_cast<const char*>(data.data()), data.size()};
}

class Requests : public testing::Test {
protected:
    void read(std::string_view text) {
        line_.clear();
        line_.append(text);
        request.read(line_.view());
    }

    Request request;

private:
    foundation::ByteBuffer line_;
};

TEST_F(Requests, haveTheirMembersInAnyOrderWithSlashesEscaped) {
    read(R"({"length":5,"path":"\/a b\/c","op":"read","handle":7,"offset":9007199254740991,"id":"x\"1","mode":420})");
    EXPECT_EQ(request.id.text, "x\"1");
    EXPECT_EQ(request.op.text, "read");
    EXPECT_EQ(request.path.text, "/a b/c");
    EXPECT_EQ(request.handle, 7);
    EXPECT_EQ(request.offset, 9007199254740991);
    EXPECT_EQ(request.length, 5);
    EXPECT_EQ(request.mode, 420);
    EXPECT_FALSE(request.oldPath.isGiven);
    EXPECT_FALSE(request.hasFlags);
    EXPECT_EQ(request.payload, Request::Payload::absent);
}

TEST_F(Requests, keepNothingOfTheOneBefore) {
    read(R"({"id":"1","op":"open","path":"\/a","flags":["write","create","truncate"],"handle":3,"dataBase64":"QQ=="})");
    EXPECT_TRUE(request.hasFlags && request.writes && request.creates && request.truncates && !request.reads);
    read("{}");
    EXPECT_FALSE(request.id.isGiven || request.op.isGiven || request.path.isGiven || request.hasFlags);
    EXPECT_FALSE(request.writes || request.creates || request.truncates);
    EXPECT_FALSE(request.handle);
    EXPECT_EQ(request.payload, Request::Payload::absent);
    EXPECT_TRUE(request.data().empty());
}

TEST_F(Requests, takeWhatIsOfAnotherTypeForNotGiven) {
    read(R"({"id":12,"op":null,"path":["\/a"],"handle":"3","offset":-1,"length":1.5,"mode":1e400,"flags":"read"})");
    EXPECT_FALSE(request.id.isGiven || request.op.isGiven || request.path.isGiven || request.hasFlags);
    EXPECT_EQ(request.numberAsId, 12);
    EXPECT_FALSE(request.handle || request.offset || request.length || request.mode);
    read(R"({"flags":["read",1],"handle":9007199254740992,"dataBase64":5})");
    EXPECT_FALSE(request.hasFlags);
    EXPECT_FALSE(request.handle);
    EXPECT_EQ(request.payload, Request::Payload::notText);
    read(R"({"flags":["read","Write"]})");
    EXPECT_EQ(request.unknownFlag, "Write");
}

TEST_F(Requests, areRefusedUnlessTheLineIsAJsonObject) {
    for (const char* text : {"", "x", "[]", "null", "\"a\"", "{", "{}}", "{\"id\":}", "{\"id\":\"1\",}", "{'id':'1'}",
                             "{\"id\":\"\xff\"}", "{\"a\":01}"})
        EXPECT_THROW(read(text), foundation::DecodingError) << text;
}

TEST_F(Requests, haveTheSamePayloadWhetherTheLineIsShortOrLong) {
    for (const std::size_t size : {0U, 1U, 2U, 3U, 15U, 16U, 300U, 383U, 384U, 385U, 1000U, 65'536U, 2'000'000U}) {
        // Every third character of the text is a slash, and all of them in some places.
        std::string letters(size / 3 * 4, 'A');
        std::string escaped;
        for (std::size_t i = 0; i < letters.size(); ++i) {
            if (i % 3 == 0 || i % 1000 < 40)
                letters[i] = '/';
            escaped += letters[i] == '/' ? "\\/" : "A";
        }
        read(R"({"id":"1","op":"write","dataBase64":")" + escaped + R"(","handle":1})");
        ASSERT_EQ(request.payload, Request::Payload::given) << size;
        EXPECT_EQ(request.handle, 1);
        const std::string cut = textOf(request.data());
        ASSERT_EQ(cut.size(), size / 3 * 3);
        read(R"({"id":"1","op":"write","dataBase64":")" + letters + R"("})"); // slashes need not be escaped
        EXPECT_EQ(textOf(request.data()), cut) << size;
    }
}

TEST_F(Requests, decodeThePayloadThatStandsAtTheTop) {
    const std::string other(600, 'A');
    read(R"({"x":{"dataBase64":")" + other + R"("},"dataBase64":"Zm9v"})");
    EXPECT_EQ(textOf(request.data()), "foo");
    read(R"({"x":{"dataBase64":")" + other + R"("},"dataBase64":""})");
    EXPECT_EQ(request.payload, Request::Payload::given);
    EXPECT_EQ(textOf(request.data()), "");
    read(R"({"x":{"dataBase64":")" + other + R"("}})");
    EXPECT_EQ(request.payload, Request::Payload::absent);
    read(R"({"path":"\"dataBase64\":\")" + other + R"(","dataBase64":"Zm9v"})");
    EXPECT_EQ(textOf(request.data()), "foo");
}

TEST_F(Requests, tellAPayloadThatIsNoBase64) {
    const std::string much(600, 'A');
    for (const std::string& text :
         {std::string("Zg"), std::string("Zm9-"), std::string("Z==="), much + "A",
          much + "A\\n=", much + "=" + much + "AAA", much + "\\\\/A", "\\" + std::string("tAA")}) {
        read(R"({"dataBase64":")" + text + R"("})");
        EXPECT_EQ(request.payload, Request::Payload::notBase64) << text;
        EXPECT_TRUE(request.data().empty());
    }
    EXPECT_THROW(read(R"({"dataBase64":")" + much), foundation::DecodingError);
    read(R"({"dataBase64":")" + much + R"(\u0041AAA"})"); // any escape of JSON is as good as the letter
    EXPECT_EQ(request.data().size(), 453U);
}

TEST(SlashEscapes, areUndoneAtEveryPlace) {
    std::mt19937 random(3);
    for (std::size_t size = 0; size < 200; ++size) {
        std::string plain;
        std::string escaped;
        for (std::size_t i = 0; i < size; ++i) {
            plain += random() % 4 == 0 ? '/' : 'a';
            escaped += plain.back() == '/' ? "\\/" : "a";
        }
        std::string text = escaped + std::string(copySlack, '\\');
        std::string copy(escaped.size() + copySlack, '?');
        const auto length = copyUnescapingSlashes({text.data(), escaped.size()}, copy.data());
        ASSERT_EQ(length, plain.size());
        ASSERT_EQ(copy.substr(0, plain.size()), plain);
    }
}

TEST(SlashEscapes, areNoOthers) {
    for (std::size_t place = 0; place < 70; ++place) {
        std::string text = std::string(place, 'a') + "\\n" + std::string(20, 'a') + std::string(copySlack, '/');
        std::string copy(text.size() + copySlack, '?');
        EXPECT_FALSE(copyUnescapingSlashes({text.data(), place + 22}, copy.data())) << place;
        EXPECT_FALSE(copyUnescapingSlashes({text.data(), place + 1}, copy.data())) << place; // ends with the backslash
    }
}

TEST(IdAtFront, isTakenAsItStands) {
    EXPECT_EQ(idAtFront(R"({"id":"1", oops)"), R"("1")");
    EXPECT_EQ(idAtFront(R"(  { "id" : "a\"b\\" oops)"), R"("a\"b\\")");
    for (const char* text : {"", "{", R"({"id":1})", R"({"op":"x","id":"1")", R"({"id":"1)", R"({"id":"1\)",
                             "{\"id\":\"\xff\"", "{\"id\":\"\x01\"", R"({"id":"\x")"})
        EXPECT_FALSE(idAtFront(text)) << text;
}

} // namespace
} // namespace kemvi::kit
