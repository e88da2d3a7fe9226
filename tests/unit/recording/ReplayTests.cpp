#include "Samples.h"
#include "recording/Replayer.h"

#include <gmock/gmock.h>

#include <deque>

namespace recording {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> different(const std::string& op, const std::string& recorded, const std::string& now,
                                   CompareOptions options = {}, DataRule rule = DataRule::contents) {
    std::vector<std::string> texts;
    for (const Difference& each : compareAnswers(op, object(recorded), object(now), options, rule))
        texts.push_back(each.member + ": " + each.recorded + " | " + each.now);
    return texts;
}

TEST(Answers, AreTheSameWhateverTheirNumbersAndTheirOrder) {
    EXPECT_THAT(different("ping", R"({"id":"1","ok":true})", R"({"ok":true,"id":"2","result":null})"), IsEmpty());
    EXPECT_THAT(different("open", R"({"ok":true,"result":{"handle":1}})", R"({"ok":true,"result":{"handle":7}})"),
                IsEmpty());
    EXPECT_THAT(different("statfs", R"({"ok":true,"result":{"files":1}})", R"({"ok":true,"result":{"files":2}})"),
                IsEmpty());
    EXPECT_THAT(different("readdir", R"({"ok":true,"result":[{"name":"a"},{"name":"b"}]})",
                          R"({"ok":true,"result":[{"name":"b"},{"name":"a"}]})"),
                IsEmpty());
}

TEST(Answers, DifferMemberByMember) {
    EXPECT_THAT(different("getattr", R"({"ok":true,"result":{"size":5,"name":"a","isDirectory":false}})",
                          R"({"ok":true,"result":{"size":6,"name":"a","more":1}})"),
                ElementsAre("result.isDirectory: false | ", "result.more:  | 1", "result.size: 5 | 6"));
    EXPECT_THAT(
        different("getattr", R"({"ok":true,"result":{"size":5}})",
                  R"({"ok":false,"error":{"message":"no","code":"EIO"}})"),
        ElementsAre(R"(error:  | {"message":"no","code":"EIO"})", "ok: true | false", R"(result: {"size":5} | )"));
    EXPECT_THAT(different("readdir", R"({"ok":true,"result":[{"name":"a","size":1},{"name":"b"}]})",
                          R"({"ok":true,"result":[{"name":"a","size":2}]})"),
                ElementsAre("result: 2 entries | 1 entries", "result[a].size: 1 | 2", R"(result[b]: {"name":"b"} | )"));
    EXPECT_THAT(different("ping", R"({"ok":true,"result":[1,[true]]})", R"({"ok":true,"result":[1,[false]]})"),
                ElementsAre("result[1][0]: true | false"));
    EXPECT_THAT(different("open", R"({"ok":true,"result":{"handle":1}})", R"({"ok":true,"result":{"handle":"1"}})"),
                ElementsAre(R"(result.handle: 1 | "1")"));
}

TEST(Answers, AreComparedInTimesAndMessagesOnDemand) {
    const std::string early = R"({"ok":true,"result":{"modifiedAt":"2024-05-01T12:00:00.000Z"}})";
    const std::string same = R"({"ok":true,"result":{"modifiedAt":"2024-05-01T14:00:00.000+02:00"}})";
    const std::string late = R"({"ok":true,"result":{"modifiedAt":"2024-05-01T12:00:00.001Z"}})";
    EXPECT_THAT(different("getattr", early, late), IsEmpty());
    EXPECT_THAT(different("getattr", early, same, {true, false}), IsEmpty());
    EXPECT_EQ(different("getattr", early, late, {true, false}).size(), 1U);
    const std::string one = R"({"ok":false,"error":{"message":"one","code":"EIO"}})";
    const std::string two = R"({"ok":false,"error":{"message":"two","code":"EIO"}})";
    EXPECT_THAT(different("getattr", one, two), IsEmpty());
    EXPECT_THAT(different("getattr", one, two, {false, true}), ElementsAre(R"(error.message: "one" | "two")"));
}

TEST(Answers, AreComparedInTheirBytesByWhatIsKnownOfThem) {
    const std::string hello = R"({"ok":true,"dataBase64":"aGVsbG8="})";
    const std::string hallo = R"({"ok":true,"dataBase64":"aGFsbG8="})";
    const std::string helloHash =
        R"({"ok":true,"dataLength":5,"dataSHA256":"2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"})";
    EXPECT_THAT(different("read", hello, hello), IsEmpty());
    EXPECT_THAT(different("read", hello, hallo), ElementsAre("data: byte 1 is 101 | byte 1 is 97"));
    EXPECT_THAT(different("read", hello, hallo, {}, DataRule::lengthOnly), IsEmpty());
    EXPECT_THAT(different("read", hello, R"({"ok":true,"dataBase64":"aGVs"})"), ElementsAre("data: 5 bytes | 3 bytes"));
    EXPECT_THAT(different("read", hello, R"({"ok":true})"), ElementsAre("data: 5 bytes | "));
    EXPECT_THAT(different("read", hello, R"({"ok":true,"dataBase64":"?"})"), ElementsAre("data: 5 bytes | no base64"));
    EXPECT_THAT(different("read", helloHash, hello), IsEmpty());
    EXPECT_EQ(different("read", helloHash, hallo).size(), 1U);
    EXPECT_THAT(different("read", R"({"ok":true,"dataLength":5})", hallo), IsEmpty());
    EXPECT_EQ(different("read", R"({"ok":true,"dataLength":4})", hallo).size(), 1U);
}

TEST(InventedFiles, AreFollowedThroughRenamesAndRemovals) {
    InventedContents invented;
    invented.written("/d/a");
    invented.written("/d/b");
    invented.written("/dx");
    invented.renamed("/d", "/e");
    EXPECT_TRUE(invented.has("/e/a") && invented.has("/e/b") && invented.has("/dx"));
    EXPECT_FALSE(invented.has("/d/a"));
    invented.renamed("/x", "/e/a");
    EXPECT_FALSE(invented.has("/e/a")) << "another file took its place";
    invented.removed("/dx");
    EXPECT_FALSE(invented.has("/dx"));
}

/// Gives the answers that it was told to give, each with the id of its request.
class PlayedHelper : public AskedHelper {
public:
    std::optional<std::string> ask(kemvi::HelperRequest& request) override {
        request.id = std::to_string(++lastID_);
        const auto line = encoder_.encode(request);
        std::string text = std::string(line.head) + std::string(line.payload) + std::string(line.tail);
        text.pop_back();
        asked.push_back(text);
        if (answers.empty())
            return std::nullopt;
        std::string answer = answers.front();
        answers.pop_front();
        const std::string id = R"({"id":")" + request.id + "\",";
        return answer.starts_with("{") ? id + answer.substr(1) : answer;
    }

    std::string whyNot() const override { return "gone"; }

    bool restart() override {
        asked.emplace_back("restart");
        return true;
    }

    std::deque<std::string> answers;
    std::vector<std::string> asked;

private:
    int lastID_ = 100;
    kemvi::HelperRequestEncoder encoder_;
};

class Replays : public testing::Test {
protected:
    ReplayTotals replay(const std::vector<std::string>& lines, std::deque<std::string> answers) {
        std::vector<std::string> all{plainHeader};
        all.insert(all.end(), lines.begin(), lines.end());
        all.emplace_back(R"({"end":{}})");
        Reader reader(folder_.write(joined(all)));
        helper_.answers = std::move(answers);
        Replayer replayer(reader, helper_, {}, [this](const DifferentAnswer& each) {
            found_.push_back(std::to_string(each.line) + " " + each.request + " " + each.difference.member);
        });
        return replayer.run([] { return false; });
    }

    static std::string line(const std::string& request, const std::string& answer) {
        return R"({"t":0,"d":3,"q":)" + request + R"(,"a":)" + answer + "}";
    }

    Folder folder_;
    PlayedHelper helper_;
    std::vector<std::string> found_;
};

const std::string ok = R"({"ok":true})";

TEST_F(Replays, AskTheSameInTheSameOrderWithTheNewHandles) {
    const auto totals = replay(
        {line(R"({"id":"1","op":"ping"})", ok),
         line(R"({"op":"open","path":"\/a","flags":["write","create"]})", R"({"ok":true,"result":{"handle":1}})"),
         R"({"k":{"op":"WRITE"}})", line(R"({"op":"write","handle":1,"offset":9,"dataBase64":"//8="})", ok),
         line(R"({"op":"read","handle":1,"offset":9,"length":2})", R"({"ok":true,"dataBase64":"//8="})"),
         line(R"({"op":"release","handle":1})", ok), line(R"({"op":"rename","oldPath":"/a","newPath":"/b"})", ok),
         line(R"({"op":"chmod","path":"/b","mode":420})", ok)},
        {ok, R"({"ok":true,"result":{"handle":55}})", ok, R"({"ok":true,"dataBase64":"\/\/8="})", ok, ok, ok});
    EXPECT_THAT(helper_.asked, ElementsAre(R"({"id":"101","op":"ping"})",
                                           R"({"id":"102","op":"open","path":"\/a","flags":["write","create"]})",
                                           R"({"id":"103","op":"write","handle":55,"offset":9,"dataBase64":"\/\/8="})",
                                           R"({"id":"104","op":"read","handle":55,"offset":9,"length":2})",
                                           R"({"id":"105","op":"release","handle":55})",
                                           R"({"id":"106","op":"rename","oldPath":"\/a","newPath":"\/b"})",
                                           R"({"id":"107","op":"chmod","path":"\/b","mode":420})"));
    EXPECT_THAT(found_, IsEmpty());
    EXPECT_TRUE(totals.isSame());
    EXPECT_EQ(totals.asked, 7U);
    EXPECT_EQ(totals.recordedTime, 21);
    EXPECT_FALSE(totals.cut);
}

TEST_F(Replays, NameTheLineTheRequestAndTheMember) {
    const auto totals =
        replay({line(R"({"op":"open","path":"/a","flags":["read"]})", R"({"ok":true,"result":{"handle":1}})"),
                line(R"({"op":"read","handle":1,"offset":0,"length":9})", R"({"ok":true,"dataBase64":"AAAA"})"),
                line(R"({"op":"getattr","path":"/a"})", R"({"ok":true,"result":{"size":1,"name":"a"}})")},
               {R"({"ok":true,"result":{"handle":2}})", R"({"ok":true,"dataBase64":"AAAB"})",
                R"({"ok":true,"result":{"size":2,"name":"b"}})"});
    EXPECT_THAT(found_, ElementsAre("3 read /a 0+9 data", "4 getattr /a result.name", "4 getattr /a result.size"));
    EXPECT_EQ(totals.different, 2U);
    EXPECT_FALSE(totals.isSame());
}

TEST_F(Replays, AskNothingOfFilesThatAreNotOpenHere) {
    const auto totals =
        replay({line(R"({"op":"read","handle":9,"offset":0,"length":9})", R"({"ok":true,"dataBase64":""})"),
                line(R"({"op":"ping"})", ok)},
               {ok});
    EXPECT_EQ(totals.withoutFile, 1U);
    EXPECT_EQ(totals.asked, 1U);
    EXPECT_TRUE(totals.isSame());
}

TEST_F(Replays, GiveBackWhatWasOpenedThoughItShouldNotHaveBeen) {
    replay({line(R"({"op":"open","path":"/a"})", R"({"ok":false,"error":{"message":"","code":"ENOENT"}})")},
           {R"({"ok":true,"result":{"handle":2}})", ok});
    EXPECT_THAT(helper_.asked.back(), testing::HasSubstr(R"("op":"release","handle":2)"));
    EXPECT_THAT(found_, testing::Contains("2 open /a ok"));
}

TEST_F(Replays, StopWhenTheHelperIsLost) {
    const auto totals = replay({line(R"({"op":"ping"})", ok), line(R"({"op":"ping"})", ok)}, {});
    EXPECT_THAT(found_, ElementsAre("2 ping answer"));
    EXPECT_TRUE(totals.stopped);
    EXPECT_FALSE(totals.isSame());
    EXPECT_EQ(helper_.asked.size(), 1U);
}

TEST_F(Replays, NoticeAnswersThatAreNone) {
    replay({line(R"({"op":"ping"})", ok)}, {"hello"});
    EXPECT_THAT(found_, ElementsAre("2 ping answer"));
}

TEST_F(Replays, StartTheHelperAnewWhereItWasStartedAnew) {
    replay({line(R"({"id":"1","op":"ping"})", ok), line(R"({"id":"2","op":"ping"})", ok),
            line(R"({"id":"1","op":"ping"})", ok)},
           {ok, ok, ok});
    ASSERT_EQ(helper_.asked.size(), 4U);
    EXPECT_EQ(helper_.asked[2], "restart");
    EXPECT_THAT(found_, IsEmpty());
}

TEST_F(Replays, WriteZerosForBytesThatWereNotRecordedAndDoNotJudgeThem) {
    const std::string open = R"({"ok":true,"result":{"handle":1}})";
    const auto totals = replay(
        {line(R"({"op":"open","path":"/a","flags":["write","create"]})", open),
         line(R"({"op":"write","handle":1,"offset":0,"dataLength":5,"dataSHA256":"00"})", ok),
         line(R"({"op":"rename","oldPath":"/a","newPath":"/b"})", ok),
         line(R"({"op":"read","handle":1,"offset":0,"length":5})", R"({"ok":true,"dataLength":5,"dataSHA256":"00"})")},
        {open, ok, ok, R"({"ok":true,"dataBase64":"AAAAAAA="})"});
    EXPECT_THAT(helper_.asked[1], testing::HasSubstr(R"("dataBase64":"AAAAAAA=")"));
    EXPECT_THAT(found_, IsEmpty());
    EXPECT_EQ(totals.notCompared, 1U);
}

TEST(Changes, AreWhatTheHelperDoesToItsTree) {
    const auto changes = [](const std::string& request) {
        Exchange exchange;
        exchange.request = object(request);
        return isChange(exchange);
    };
    EXPECT_TRUE(changes(R"({"op":"unlink"})"));
    EXPECT_TRUE(changes(R"({"op":"open","flags":["write","create"]})"));
    EXPECT_FALSE(changes(R"({"op":"open","flags":["read"]})"));
    EXPECT_FALSE(changes(R"({"op":"getattr"})"));
}

} // namespace
} // namespace recording
