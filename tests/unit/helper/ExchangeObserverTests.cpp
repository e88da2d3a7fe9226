#include "foundation/DecodingError.h"
#include "foundation/Error.h"
#include "foundation/Pipe.h"
#include "helper/ExchangeObserver.h"
#include "helper/HelperClient.h"
#include "helper/HelperExchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

namespace kemvi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Writes down what it is told.
class Noted final : public ExchangeObserver {
public:
    void exchangeBegan(const HelperRequest& request, const HelperRequestEncoder::Line& line) noexcept override {
        notes.push_back("began " + request.op + " " + request.path.value_or("-"));
        requestLine = std::string(line.head) + std::string(line.payload) + std::string(line.tail);
    }

    void answerArrived() noexcept override { notes.emplace_back("arrived"); }

    void exchangeEnded(const HelperRequest& request, const ExchangeEnd& end) noexcept override {
        static constexpr const char* kinds[] = {"success", "failure", "breach", "gone"};
        std::string note = "ended " + request.op + " " + kinds[static_cast<int>(end.kind)];
        if (!end.code.empty())
            note += " " + std::string(end.code);
        notes.push_back(note);
        answerLine = end.answer;
    }

    std::vector<std::string> notes;
    std::string requestLine;
    std::string answerLine;
};

class ExchangeObserverTest : public testing::Test {
protected:
    ExchangeObserverTest() {
        std::signal(SIGPIPE, SIG_IGN);
        exchange_.observer = &noted_;
    }

    void say(std::string_view line) { output_.fileHandleForWriting().write(std::string(line) + "\n"); }

    static HelperRequest request(const char* op, const char* path) {
        HelperRequest made;
        made.op = op;
        made.path = path;
        return made;
    }

    foundation::Pipe input_;
    foundation::Pipe output_;
    Noted noted_;
    HelperExchange exchange_{input_.fileHandleForWriting(), output_.fileHandleForReading()};
    HelperRequest asked_ = request("getattr", "/a");
};

TEST_F(ExchangeObserverTest, isToldOfAnExchangeWithBothLines) {
    say(R"({"id":"1","ok":true,"result":{"size":5}})");
    exchange_.ask(asked_);
    EXPECT_THAT(noted_.notes, ElementsAre("began getattr /a", "arrived", "ended getattr success"));
    EXPECT_EQ(noted_.requestLine, "{\"id\":\"1\",\"op\":\"getattr\",\"path\":\"\\/a\"}\n");
    EXPECT_EQ(noted_.answerLine, R"({"id":"1","ok":true,"result":{"size":5}})");
}

TEST_F(ExchangeObserverTest, isToldThePayloadAsItStandsOnTheLine) {
    HelperRequest write = request("write", "/a");
    write.dataBase64 = "AAAA";
    say(R"({"id":"1","ok":true})");
    exchange_.ask(write);
    EXPECT_THAT(noted_.requestLine, testing::HasSubstr("\"AAAA\""));
    say(R"({"id":"2","ok":true,"dataBase64":"BBBB"})");
    exchange_.askForPayload(asked_);
    EXPECT_EQ(noted_.answerLine, R"({"id":"2","ok":true,"dataBase64":"BBBB"})");
    EXPECT_EQ(noted_.notes.back(), "ended getattr success");
}

TEST_F(ExchangeObserverTest, isToldTheCodeOfAFailure) {
    say(R"({"id":"1","ok":false,"error":{"message":"not there","code":"ENOENT"}})");
    EXPECT_ANY_THROW(exchange_.ask(asked_));
    EXPECT_EQ(noted_.notes.back(), "ended getattr failure ENOENT");
    say(R"({"id":"2","ok":false,"error":{"message":"no reason"}})");
    exchange_.askForPayload(asked_);
    EXPECT_EQ(noted_.notes.back(), "ended getattr failure");
}

TEST_F(ExchangeObserverTest, isToldOfWhatIsNoAnswer) {
    const std::vector<std::string> lines{"garbage", R"({"id":"7","ok":true})", R"({"id":"3","ok":false})",
                                         R"({"ok":true})"};
    for (const std::string& line : lines) {
        noted_.notes.clear();
        say(line);
        EXPECT_ANY_THROW(exchange_.ask(asked_));
        EXPECT_THAT(noted_.notes, ElementsAre("began getattr /a", "arrived", "ended getattr breach")) << line;
        EXPECT_EQ(noted_.answerLine, line);
    }
    noted_.notes.clear();
    say("garbage");
    EXPECT_ANY_THROW(exchange_.askForPayload(asked_));
    EXPECT_THAT(noted_.notes, ElementsAre("began getattr /a", "arrived", "ended getattr breach"));
}

TEST_F(ExchangeObserverTest, isToldThatTheHelperIsGone) {
    output_.fileHandleForWriting().close();
    EXPECT_ANY_THROW(exchange_.ask(asked_));
    EXPECT_ANY_THROW(exchange_.askForPayload(asked_));
    EXPECT_THAT(noted_.notes, ElementsAre("began getattr /a", "arrived", "ended getattr gone", "began getattr /a",
                                          "arrived", "ended getattr gone"));
    EXPECT_EQ(noted_.answerLine, "");
}

TEST_F(ExchangeObserverTest, isNotToldOfWhatCannotBeSent) {
    HelperRequest broken = request("getattr", "\xFF");
    EXPECT_ANY_THROW(exchange_.ask(broken));
    EXPECT_THAT(noted_.notes, IsEmpty());
}

TEST(HelperClientsWithAnExchangeObserver, tellItOfTheirExchanges) {
    std::signal(SIGPIPE, SIG_IGN);
    Noted noted;
    HelperClient client("/helper.mjs", {}, nullptr, &noted);
    client.output().fileHandleForWriting().write(std::string("{\"id\":\"1\",\"ok\":true}\n"));
    client.ping();
    EXPECT_THAT(noted.notes, ElementsAre("began ping -", "arrived", "ended ping success"));
}

} // namespace
} // namespace kemvi
