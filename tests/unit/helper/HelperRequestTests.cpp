#include "foundation/DecodingError.h"
#include "helper/HelperRequest.h"

#include <gtest/gtest.h>

namespace kemvi {
namespace {

std::string line(const HelperRequest& request, HelperRequestEncoder& encoder) {
    const HelperRequestEncoder::Line pieces = encoder.encode(request);
    return std::string(pieces.head).append(pieces.payload).append(pieces.tail);
}

std::string line(const HelperRequest& request) {
    HelperRequestEncoder encoder;
    return line(request, encoder);
}

HelperRequest request(std::string op) {
    HelperRequest made;
    made.id = "1";
    made.op = std::move(op);
    return made;
}

TEST(HelperRequest, withoutFieldsHasTwoKeys) {
    EXPECT_EQ(line(request("ping")), "{\"id\":\"1\",\"op\":\"ping\"}\n");
}

TEST(HelperRequest, writesItsFieldsInTheirOrder) {
    HelperRequest all = request("all");
    all.mtime = "2024-05-01T12:34:56.789Z";
    all.mode = 420;
    all.dataBase64 = "AA\\/A";
    all.length = 3;
    all.offset = 2;
    all.handle = 1;
    all.flags = {"write", "create"};
    all.newPath = "/new";
    all.oldPath = "/old";
    all.path = "/";
    EXPECT_EQ(line(all),
              R"({"id":"1","op":"all","path":"\/","oldPath":"\/old","newPath":"\/new","flags":["write","create"],)"
              R"("handle":1,"offset":2,"length":3,"dataBase64":"AA\/A","mode":420,"mtime":"2024-05-01T12:34:56.789Z"})"
              "\n");
}

TEST(HelperRequest, writesEmptyValuesThatArePresent) {
    HelperRequest empty = request("open");
    empty.path = "";
    empty.flags = std::vector<std::string>();
    empty.dataBase64 = "";
    EXPECT_EQ(line(empty), "{\"id\":\"1\",\"op\":\"open\",\"path\":\"\",\"flags\":[],\"dataBase64\":\"\"}\n");
}

TEST(HelperRequest, escapesWhatJsonRequiresAndEverySlash) {
    HelperRequest odd = request("mkdir");
    odd.path = std::string("/\"\\\b\f\n\r\t\x00\x01\x1B\x1F/", 13);
    EXPECT_EQ(
        line(odd),
        "{\"id\":\"1\",\"op\":\"mkdir\",\"path\":\"\\/\\\"\\\\\\b\\f\\n\\r\\t\\u0000\\u0001\\u001b\\u001f\\/\"}\n");
}

TEST(HelperRequest, isOneLineWhateverThePath) {
    HelperRequest odd = request("mkdir");
    odd.path = "/two\nlines\r\n";
    const std::string text = line(odd);
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

// A byte takes six where it is escaped.
TEST(HelperRequest, hasRoomForTheLongestFormOfEveryText) {
    const std::string longText(100'000, '\x01');
    std::string escaped;
    for (std::size_t i = 0; i < longText.size(); ++i)
        escaped += "\\u0001";
    for (const auto field :
         {&HelperRequest::path, &HelperRequest::oldPath, &HelperRequest::newPath, &HelperRequest::mtime}) {
        HelperRequest made = request("op");
        made.*field = longText;
        EXPECT_NE(line(made).find(":\"" + escaped + "\"}\n"), std::string::npos);
    }
    HelperRequest flagged = request("op");
    flagged.flags = {longText, longText};
    EXPECT_NE(line(flagged).find("[\"" + escaped + "\",\"" + escaped + "\"]}\n"), std::string::npos);
    HelperRequest named = request(longText);
    EXPECT_NE(line(named).find(":\"" + escaped + "\"}\n"), std::string::npos);
}

TEST(HelperRequest, leavesCharactersOutsideAsciiAsTheyAre) {
    HelperRequest odd = request("mkdir");
    odd.path = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x80\xA8\x7F";
    EXPECT_EQ(line(odd),
              "{\"id\":\"1\",\"op\":\"mkdir\",\"path\":\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x80\xA8\x7F\"}\n");
}

TEST(HelperRequest, refusesStringsThatAreNotUtf8) {
    HelperRequest odd = request("mkdir");
    odd.path = "/\xFF";
    EXPECT_THROW(line(odd), foundation::EncodingError);
    HelperRequest flagged = request("open");
    flagged.flags = {"read", "\xC3"};
    EXPECT_THROW(line(flagged), foundation::EncodingError);
}

TEST(HelperRequest, canBeEncodedAfterOneThatFailed) {
    HelperRequestEncoder encoder;
    HelperRequest odd = request("mkdir");
    odd.path = "/\xFF";
    EXPECT_THROW(encoder.encode(odd), foundation::EncodingError);
    EXPECT_EQ(line(request("ping"), encoder), "{\"id\":\"1\",\"op\":\"ping\"}\n");
}

TEST(HelperRequest, doesNotCopyItsPayload) {
    const std::string data(100'000, 'A');
    HelperRequest write = request("write");
    write.dataBase64 = data;
    HelperRequestEncoder encoder;
    EXPECT_EQ(encoder.encode(write).payload.data(), data.data());
}

} // namespace
} // namespace kemvi
