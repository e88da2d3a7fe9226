#include "Samples.h"
#include "recording/LineMaker.h"
#include "recording/RecordingError.h"
#include "recording/Scrambler.h"

#include <gmock/gmock.h>

namespace recording {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string refusal(const std::string& line) {
    try {
        Header::parse(line);
    } catch (const RecordingError& error) {
        return error.what();
    }
    return "none";
}

TEST(Headers, ReadBackAsTheyWereWritten) {
    const Header written{"1.2", "2026-01-02T03:04:05.000006Z", "/mnt/\"x\"", {Payloads::hash, Names::scrambled}};
    const Header read = Header::parse(written.line());
    EXPECT_EQ(read.kemvi, "1.2");
    EXPECT_EQ(read.started, written.started);
    EXPECT_EQ(read.mountPoint, written.mountPoint);
    EXPECT_EQ(read.settings.payloads, Payloads::hash);
    EXPECT_EQ(read.settings.names, Names::scrambled);
}

TEST(Headers, OfOtherKindsOfFilesAreRefused) {
    EXPECT_THAT(refusal("hello"), HasSubstr("is no recording"));
    EXPECT_THAT(refusal(R"({"a":1})"), HasSubstr("is no recording"));
    EXPECT_THAT(refusal(R"({"recording":"1"})"), HasSubstr("is no recording"));
    EXPECT_THAT(refusal(R"({"recording":1,"payloads":"some","names":"plain"})"), HasSubstr("full, hash, none"));
    EXPECT_THAT(refusal(R"({"recording":1,"payloads":"full","names":"odd"})"), HasSubstr("plain, scrambled"));
    EXPECT_THAT(refusal(R"({"recording":1,"payloads":7,"names":"odd"})"), HasSubstr("\"payloads\""));
}

TEST(Headers, OfAnotherFormatNameItAndTheCommandThatKnowsIt) {
    const std::string text = refusal(R"({"recording":2,"kemvi":"9.9"})");
    EXPECT_THAT(text, HasSubstr("format 2"));
    EXPECT_THAT(text, HasSubstr("kemvi 9.9"));
}

TEST(Scrambling, IsTheSameForEqualNamesAndDiffersForOthersAndInOtherRecordings) {
    const Scrambler one("key");
    const Scrambler other;
    EXPECT_EQ(one.name("report"), one.name("report"));
    EXPECT_NE(one.name("report"), one.name("Report"));
    EXPECT_NE(one.name("a.txt"), one.name("b.txt"));
    EXPECT_NE(one.name("report"), other.name("report"));
    EXPECT_NE(Scrambler().name("report"), other.name("report"));
}

TEST(Scrambling, KeepsDotExtensionAndLengthClass) {
    const Scrambler scrambler("key");
    EXPECT_TRUE(scrambler.name(".profile").starts_with("."));
    EXPECT_TRUE(scrambler.name("letter.txt").ends_with(".txt"));
    EXPECT_EQ(scrambler.name("a").size(), 12U);
    EXPECT_EQ(scrambler.name("twelve-bytes.txt").size(), 16U);
    EXPECT_EQ(scrambler.name("thirteen-byte").size(), 24U);
    EXPECT_EQ(scrambler.name(std::string(97, 'x')).size(), 192U);
    EXPECT_LE(scrambler.name("." + std::string(247, 'x') + ".sqlite").size(), 255U);
}

TEST(Scrambling, KeepsNoExtensionThatMayBeAName) {
    const std::string scrambled = Scrambler("key").name("john.smith");
    EXPECT_EQ(scrambled.find('.'), std::string::npos);
}

TEST(Scrambling, OfPathsKeepsTheirShape) {
    const Scrambler scrambler("key");
    EXPECT_EQ(scrambler.path("/"), "/");
    EXPECT_EQ(scrambler.path("/a/b.c"), "/" + scrambler.name("a") + "/" + scrambler.name("b.c"));
    EXPECT_EQ(scrambler.path("/.kemvi-hidden-12345678-1"), "/.kemvi-hidden-12345678-1") << "no user's name";
}

constexpr const char* write = R"({"id":"7","op":"write","handle":3,"offset":0,"dataBase64":"aGVs\/G8="})";
constexpr const char* done = R"({"id":"7","ok":true})";

TEST(Lines, OfWholePayloadsHoldBothLinesAsTheyWere) {
    LineMaker maker({});
    EXPECT_EQ(maker.exchange({5, 7, std::string(write) + "\n", done}),
              R"({"t":5,"d":7,"q":)" + std::string(write) + R"(,"a":)" + done + "}");
}

TEST(Lines, WithoutPayloadsHoldTheirLengthOrTheirHash) {
    constexpr const char* read = R"({"id":"8","ok":true,"dataBase64":"aGVsbG8="})";
    EXPECT_EQ(LineMaker({Payloads::none, Names::plain}).exchange({0, 0, R"({"op":"read"})", read}),
              R"({"t":0,"d":0,"q":{"op":"read"},"a":{"id":"8","ok":true,"dataLength":5}})");
    EXPECT_EQ(LineMaker({Payloads::hash, Names::plain}).exchange({0, 0, R"({"op":"read"})", read}),
              R"({"t":0,"d":0,"q":{"op":"read"},"a":{"id":"8","ok":true,"dataLength":5,"dataSHA256":)"
              R"("2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"}})");
    const std::string line = LineMaker({Payloads::hash, Names::plain}).exchange({0, 0, write, done});
    EXPECT_THAT(line, HasSubstr(R"("dataLength":5,"dataSHA256":")"));
    EXPECT_THAT(line, Not(HasSubstr("aGVs")));
}

TEST(Lines, TellOfAnswersThatCouldNotBeReadOrNeverCame) {
    LineMaker maker({});
    EXPECT_EQ(maker.exchange({0, 0, R"({"op":"ping"})", std::nullopt}), R"({"t":0,"d":0,"q":{"op":"ping"},"a":null})");
    EXPECT_EQ(maker.exchange({0, 0, R"({"op":"ping"})", "oh \"no\""}),
              R"({"t":0,"d":0,"q":{"op":"ping"},"a":null,"unreadable":"oh \"no\""})");
    const std::string scrambled = LineMaker({Payloads::none, Names::scrambled}).exchange({0, 0, "{}", "secret"});
    EXPECT_THAT(scrambled, Not(HasSubstr("secret")));
}

TEST(Lines, WithScrambledNamesHoldNoneOfThem) {
    LineMaker maker({Payloads::none, Names::scrambled});
    const std::string listing = maker.exchange(
        {0, 0, R"({"id":"1","op":"readdir","path":"\/secret folder"})",
         R"({"id":"1","ok":true,"result":[{"path":"/secret folder/hidden.txt","name":"hidden.txt","isDirectory":false,)"
         R"("size":5,"modifiedAt":"2024-05-01T12:34:56.789Z","owner":"private"}]})"});
    for (const char* const name : {"secret", "hidden", "private"})
        EXPECT_THAT(listing, Not(HasSubstr(name)));
    EXPECT_THAT(listing, HasSubstr(R"("op":"readdir")"));
    EXPECT_THAT(listing, HasSubstr(R"("size":5,"modifiedAt":"2024-05-01T12:34:56.789Z")"));
    const std::string error =
        maker.exchange({0, 0, R"({"id":"2","op":"rename","oldPath":"/secret","newPath":"/private"})",
                        R"({"id":"2","ok":false,"error":{"message":"no /secret","code":"ENOENT"}})"});
    EXPECT_THAT(error, HasSubstr(R"("code":"ENOENT")"));
    EXPECT_THAT(error, Not(HasSubstr("secret")));
    EXPECT_THAT(error, Not(HasSubstr("private")));
    const std::string kernel = maker.kernelRequest(
        R"({"time":"2026-11-22T12:00:00.000001Z","process":"spy","op":"RENAME","path":"/secret","name":"hidden"})");
    EXPECT_THAT(kernel, HasSubstr(R"({"k":{"time":"2026-11-22T12:00:00.000001Z")"));
    for (const char* const name : {"secret", "hidden", "spy"})
        EXPECT_THAT(kernel, Not(HasSubstr(name)));
}

TEST(Lines, KeepOneNameAlikeInRequestsAnswersAndListings) {
    LineMaker maker({Payloads::none, Names::scrambled}, Scrambler("key"));
    const std::string name = Scrambler("key").name("a.txt");
    EXPECT_THAT(maker.exchange({0, 0, R"({"op":"getattr","path":"\/a.txt"})", R"({"result":{"name":"a.txt"}})"}),
                testing::AllOf(HasSubstr("\"/" + name + "\""), HasSubstr("\"name\":\"" + name + "\"")));
}

} // namespace
} // namespace recording
