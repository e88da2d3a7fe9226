#include "foundation/Base64.h"
#include "foundation/DecodingError.h"
#include "helper/HelperResponse.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kemvi {
namespace {

using foundation::ByteBuffer;
using foundation::DecodingError;
using Kind = DecodingError::Kind;

HelperResponse decode(std::string_view text) {
    const auto line = std::make_shared<ByteBuffer>();
    line->append(text);
    foundation::JSONReader reader;
    return HelperResponse::decode(line, reader);
}

struct Rejection {
    Kind kind;
    std::string text;

    friend bool operator==(const Rejection&, const Rejection&) = default;
};

std::optional<Rejection> rejection(std::string_view text) {
    try {
        decode(text);
        return std::nullopt;
    } catch (const DecodingError& error) {
        return Rejection{error.kind(), error.description()};
    }
}

std::optional<std::string> payload(const HelperResponse& response) {
    return response.dataBase64 ? std::optional(std::string(response.dataBase64->text)) : std::nullopt;
}

TEST(HelperResponse, readsEveryField) {
    const HelperResponse response = decode(
        R"({"error":{"name":"Error","code":"ENOENT","message":"m"},"dataBase64":"eA==","result":5,"ok":false,"id":"7"})");
    EXPECT_EQ(response.id, "7");
    EXPECT_FALSE(response.ok);
    EXPECT_EQ(response.result, JSONValue(5.0));
    EXPECT_EQ(payload(response), "eA==");
    EXPECT_EQ(response.error, (HelperResponse::Failure{"m", "ENOENT", "Error"}));
}

TEST(HelperResponse, leavesAbsentFieldsAndNullsAbsent) {
    for (const char* text :
         {R"({"id":"7","ok":true})", R"({"id":"7","ok":true,"result":null,"dataBase64":null,"error":null})"}) {
        const HelperResponse response = decode(text);
        EXPECT_TRUE(response.ok);
        EXPECT_EQ(response.result, std::nullopt);
        EXPECT_EQ(payload(response), std::nullopt);
        EXPECT_EQ(response.error, std::nullopt);
    }
}

TEST(HelperResponse, ignoresKeysThatItDoesNotKnowAtEitherLevel) {
    const HelperResponse response = decode(
        R"({"x":[{"id":1}],"id":"7","ok":false,"Result":1,"error":{"message":"m","stack":{"message":1},"errno":-2}})");
    EXPECT_EQ(response.result, std::nullopt);
    EXPECT_EQ(response.error, (HelperResponse::Failure{"m", std::nullopt, std::nullopt}));
}

TEST(HelperResponse, requiresIdAndOk) {
    EXPECT_EQ(rejection(R"({"ok":true})"), (Rejection{Kind::keyNotFound, "key \"id\" is missing"}));
    EXPECT_EQ(rejection(R"({"id":"7"})"), (Rejection{Kind::keyNotFound, "key \"ok\" is missing"}));
    EXPECT_EQ(rejection(R"({"id":null,"ok":true})"),
              (Rejection{Kind::valueNotFound, "key \"id\": expected a string, found null"}));
    EXPECT_EQ(rejection("{}"), (Rejection{Kind::keyNotFound, "key \"id\" is missing"}));
}

TEST(HelperResponse, rejectsFieldsOfTheWrongType) {
    EXPECT_EQ(rejection(R"({"id":7,"ok":true})"),
              (Rejection{Kind::typeMismatch, "key \"id\": expected a string, found a number"}));
    for (const char* ok : {"0", "1", "\"true\"", "[]"})
        EXPECT_EQ(rejection(std::string(R"({"id":"7","ok":)") + ok + "}")->kind, Kind::typeMismatch) << ok;
    for (const char* member :
         {R"("dataBase64":5)", R"("dataBase64":true)", R"("dataBase64":[])", R"("error":"m")", R"("error":[])",
          R"("error":{"message":5})", R"("error":{"message":"m","code":2})", R"("error":{"message":"m","name":false})"})
        EXPECT_EQ(rejection(std::string(R"({"id":"7","ok":true,)") + member + "}")->kind, Kind::typeMismatch) << member;
}

// An escaped key lies in memory that the text of its value may take over.
TEST(HelperResponse, readsAFailureWhoseKeysHaveEscapes) {
    EXPECT_EQ(decode(R"({"id":"7","ok":false,"error":{"message":"m","c\u006fde":"\u006eame"}})").error,
              (HelperResponse::Failure{"m", "name", std::nullopt}));
    EXPECT_EQ(decode(R"({"id":"7","ok":false,"error":{"m\u0065ssage":"\u0063ode","c\u006fde":"\u006eame"}})").error,
              (HelperResponse::Failure{"code", "name", std::nullopt}));
    const std::string longText(100'000, 'x');
    EXPECT_EQ(decode(R"({"id":"7","ok":false,"error":{"c\u006fde":"\u0041)" + longText + R"(","message":"m"}})").error,
              (HelperResponse::Failure{"m", "A" + longText, std::nullopt}));
}

TEST(HelperResponse, readsEveryFieldUnderAnEscapedKey) {
    const std::string longText(100'000, 'x');
    const HelperResponse response =
        decode(R"({"i\u0064":"\u0041)" + longText + R"(","\u006fk":true,"r\u0065sult":"\u0042)" + longText +
               R"(","dat\u0061Base64":"\u0043)" + longText + R"(","\u0065rror":{"message":"\u0044"}})");
    EXPECT_EQ(response.id, "A" + longText);
    EXPECT_TRUE(response.ok);
    EXPECT_EQ(response.result, JSONValue("B" + longText));
    EXPECT_EQ(payload(response), "C" + longText);
    EXPECT_EQ(response.error, (HelperResponse::Failure{"D", std::nullopt, std::nullopt}));
}

TEST(HelperResponse, requiresTheMessageOfAFailure) {
    EXPECT_EQ(rejection(R"({"id":"7","ok":false,"error":{}})"),
              (Rejection{Kind::keyNotFound, "key \"error.message\" is missing"}));
    EXPECT_EQ(rejection(R"({"id":"7","ok":false,"error":{"message":null}})")->kind, Kind::valueNotFound);
}

TEST(HelperResponse, takesNullForAnAbsentCodeOrName) {
    EXPECT_EQ(decode(R"({"id":"7","ok":false,"error":{"message":"m","code":null,"name":null}})").error,
              (HelperResponse::Failure{"m", std::nullopt, std::nullopt}));
}

TEST(HelperResponse, rejectsATextThatIsNoObject) {
    EXPECT_EQ(rejection("")->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection("[]")->kind, Kind::typeMismatch);
    EXPECT_EQ(rejection("7")->kind, Kind::typeMismatch);
    EXPECT_EQ(rejection("Error: boom")->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection(R"({"id":"7","ok":true} trailing)")->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection(R"({"id":"7","ok":true}{})")->kind, Kind::dataCorrupted);
}

TEST(HelperResponse, rejectsBrokenMembersThatItWouldIgnore) {
    EXPECT_EQ(rejection(R"({"id":"7","ok":true,"x":[1,})")->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection(R"({"id":"7","ok":true,"x":"\q"})")->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection(R"({"id":"7","ok":true,"x":01})")->kind, Kind::dataCorrupted);
}

TEST(HelperResponse, rejectsAResultWithANumberThatNoDoubleHolds) {
    EXPECT_EQ(rejection(R"({"id":"7","ok":true,"result":{"a":[1e400]}})"),
              (Rejection{Kind::dataCorrupted, "Unsupported JSON value"}));
}

TEST(HelperResponse, takesTheLastOfTwoMembersWithOneKey) {
    const HelperResponse response = decode(
        R"({"id":7,"id":"8","ok":"no","ok":true,"result":1,"result":null,"dataBase64":5,"dataBase64":"eA==","error":{"message":"a","code":5,"message":"b","code":"EPERM"}})");
    EXPECT_EQ(response.id, "8");
    EXPECT_TRUE(response.ok);
    EXPECT_EQ(response.result, std::nullopt);
    EXPECT_EQ(payload(response), "eA==");
    EXPECT_EQ(response.error, (HelperResponse::Failure{"b", "EPERM", std::nullopt}));
    EXPECT_EQ(rejection(R"({"id":"7","ok":true,"id":7})")->kind, Kind::typeMismatch);
    EXPECT_EQ(decode(R"({"id":"7","ok":true,"error":{"message":"m","code":"EPERM"},"error":{"message":"n"}})").error,
              (HelperResponse::Failure{"n", std::nullopt, std::nullopt}));
}

TEST(HelperResponse, keepsItsPayloadWhenTheReaderIsUsedAgain) {
    foundation::JSONReader reader;
    const auto line = [](std::string_view text) {
        auto buffer = std::make_shared<ByteBuffer>();
        buffer->append(text);
        return buffer;
    };
    const HelperResponse plain = HelperResponse::decode(line(R"({"id":"1","ok":true,"dataBase64":"AAAA"})"), reader);
    const HelperResponse escaped =
        HelperResponse::decode(line(R"({"id":"1","ok":true,"dataBase64":"\/\/\/\/"})"), reader);
    HelperResponse::decode(line(R"({"id":"1","ok":true,"dataBase64":"\u0042\u0042\u0042\u0042"})"), reader);
    EXPECT_EQ(payload(plain), "AAAA");
    EXPECT_EQ(payload(escaped), "////");
}

TEST(HelperResponse, leavesThePayloadWhereItArrived) {
    const HelperResponse response = decode(R"({"id":"1","ok":true,"dataBase64":"AAAA"})");
    ASSERT_TRUE(response.dataBase64);
    const std::string_view line = response.dataBase64->line->view();
    EXPECT_EQ(response.dataBase64->text.data(), line.data() + line.find("AAAA"));
}

// A payload long enough to be cut out of its line before the rest is read as JSON.
const std::string longPayload(5000, 'A');

bool isBase64(std::string_view text) {
    std::vector<std::byte> bytes(foundation::base64::decodedLength(text).value_or(0));
    return foundation::base64::decode(text, bytes).has_value();
}

// What an answer's data and id are if its payload is decoded without having been looked at: nothing if that fails, so
// that the line is to be read again.
std::optional<std::string> trusted(std::string_view text) {
    const auto line = std::make_shared<ByteBuffer>();
    line->append(text);
    foundation::JSONReader reader;
    const HelperResponse response = HelperResponse::decodeTrustingBase64(line, reader);
    if (!response.dataBase64 || !isBase64(response.dataBase64->text))
        return std::nullopt;
    return response.id + " " + std::string(response.dataBase64->text);
}

std::string answerWith(const std::string& payload, const std::string& tail = {}) {
    return R"({"id":"1","ok":true,"dataBase64":")" + payload + "\"" + tail + "}";
}

TEST(HelperResponse, mayLeaveALongPayloadUnreadUntilItIsDecoded) {
    for (const char* tail : {"", R"(,"result":[1])", R"(,"x":"\\","ok":true)", " \r", R"(,"x":"\"")"})
        EXPECT_EQ(trusted(answerWith(longPayload, tail)), "1 " + longPayload) << tail;
    EXPECT_EQ(trusted(answerWith("eA==")), "1 eA==");
    EXPECT_EQ(trusted(answerWith("\\/" + longPayload + "AAA")), "1 /" + longPayload + "AAA");
}

TEST(HelperResponse, isNotMisledByAPayloadLeftUnread) {
    for (const char* odd : {"\\x", "\n", "\xFF", "\" \"", "-", "\\/"})
        EXPECT_EQ(trusted(answerWith(longPayload + odd + longPayload)), std::nullopt) << odd;
    for (const char* odd : {"\\x", "\n", "\xFF", "-"})
        EXPECT_EQ(trusted(answerWith(longPayload + odd)), std::nullopt) << odd;
    EXPECT_THROW(trusted(answerWith(longPayload + "\" \"")), DecodingError);
    const std::string another = R"(","id":"2","x":")";
    EXPECT_EQ(trusted(answerWith(longPayload + another)), "2 " + longPayload);
    EXPECT_EQ(trusted(answerWith(longPayload + another + longPayload)), std::nullopt);
    const std::string member = R"("dataBase64":")" + longPayload + "\"";
    EXPECT_EQ(trusted(R"({"id":"1","ok":true,"result":{)" + member + "}}"), std::nullopt);
    EXPECT_EQ(trusted(R"({"id":"1","ok":true,"x":{)" + member + R"(},"dataBase64":"eA=="})"), "1 eA==");
    EXPECT_EQ(trusted(R"({"id":"1","ok":true,)" + member + R"(,"dataBase64":"eA=="})"), "1 eA==");
    EXPECT_EQ(trusted(R"({"id":"1","ok":true,)" + member + R"(,"dataBase64":null})"), std::nullopt);
    EXPECT_EQ(trusted(R"({"id":"1","ok":true,"dataBase64":"eA==",)" + member + "}"), "1 " + longPayload);
    for (const std::string& broken : {answerWith(longPayload) + "x", answerWith(longPayload, ",\"x\":01"),
                                      R"({"id":1,"ok":true,)" + member + "}", R"({"id":"1","ok":true,)" + member})
        EXPECT_THROW(trusted(broken), DecodingError) << broken;
}

TEST(HelperResponse, readsALongPayloadLikeAShortOne) {
    for (const std::string& tail :
         std::vector<std::string>{"", ",\"result\":[1]", ",\"x\":\"" + std::string(3000, 'y') + "\"", " \r"}) {
        const HelperResponse response =
            decode(R"({"id":"1","ok":true,"dataBase64":")" + longPayload + "\"" + tail + "}");
        EXPECT_EQ(response.id, "1");
        EXPECT_EQ(payload(response), longPayload);
        EXPECT_EQ(response.result.has_value(), tail.find("result") != std::string::npos);
    }
}

TEST(HelperResponse, findsALongPayloadOnlyAtTheTopLevel) {
    const std::string member = R"("dataBase64":")" + longPayload + "\"";
    EXPECT_EQ(payload(decode(R"({"id":"1","ok":true,"result":{)" + member + "}}")), std::nullopt);
    EXPECT_EQ(payload(decode(R"({"id":"1","ok":true,"x":{)" + member + R"(},"dataBase64":"eA=="})")), "eA==");
    EXPECT_EQ(payload(decode(R"({"id":"1","ok":true,)" + member + R"(,"dataBase64":"eA=="})")), "eA==");
    EXPECT_EQ(payload(decode(R"({"id":"1","ok":true,)" + member + R"(,"dataBase64":null})")), std::nullopt);
    EXPECT_EQ(payload(decode(R"({"id":"1","ok":true,"dataBase64":"eA==",)" + member + "}")), longPayload);
}

TEST(HelperResponse, rejectsAnOddLongPayloadAsItRejectsAShortOne) {
    const auto with = [](const std::string& text) { return R"({"id":"1","ok":true,"dataBase64":")" + text + "\"}"; };
    EXPECT_EQ(payload(decode(with(longPayload + "\\/"))), longPayload + "/");
    EXPECT_EQ(payload(decode(with(longPayload + "\xC3\xA4"))), longPayload + "\xC3\xA4");
    for (const char* odd : {"\\x", "\n", "\xFF", "\" \""})
        EXPECT_EQ(rejection(with(longPayload + odd))->kind, Kind::dataCorrupted) << odd;
    EXPECT_EQ(rejection(R"({"id":"1","ok":true,"dataBase64":")" + longPayload)->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection(R"({"id":"1","ok":true,"dataBase64":")" + longPayload + "\"")->kind, Kind::dataCorrupted);
    EXPECT_EQ(rejection(R"({"id":1,"ok":true,"dataBase64":")" + longPayload + "\"}")->kind, Kind::typeMismatch);
    EXPECT_EQ(rejection(with(longPayload) + "x")->text,
              "not valid JSON at line 1, column 5037: expected the end of the text");
}

foundation::NSError posixErrorOf(std::optional<std::string> code) {
    return HelperResponse::Failure{"the message", std::move(code), "name"}.posixError();
}

TEST(Failure, mapsEachKnownCodeToItsMacOSNumber) {
    const std::pair<const char*, int> codes[] = {{"ENOENT", 2},  {"EEXIST", 17},  {"EINVAL", 22},
                                                 {"EISDIR", 21}, {"ENOTDIR", 20}, {"ENOTEMPTY", 66},
                                                 {"EACCES", 13}, {"EPERM", 1},    {"EROFS", 30}};
    for (const auto& [code, number] : codes)
        EXPECT_EQ(posixErrorOf(code), (foundation::NSError{"NSPOSIXErrorDomain", number, "the message", {}})) << code;
}

TEST(Failure, mapsAnyOtherCodeAndNoneToEIO) {
    for (const char* code : {"ENOSPC", "enoent", "EIO", "", " ENOENT", "ENOENT ", "2"})
        EXPECT_EQ(posixErrorOf(code).code, 5) << code;
    EXPECT_EQ(posixErrorOf(std::nullopt), foundation::NSError::posix(5, "the message"));
}

TEST(Failure, carriesAnEmptyMessageToo) {
    EXPECT_EQ((HelperResponse::Failure{"", "EPERM", std::nullopt}.posixError()), foundation::NSError::posix(1, ""));
}

TEST(Failure, describesItselfByItsMessage) {
    EXPECT_EQ((HelperResponse::Failure{"the message", "EPERM", "n"}.description()), "the message");
}

} // namespace
} // namespace kemvi
