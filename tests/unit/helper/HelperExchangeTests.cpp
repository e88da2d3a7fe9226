#include "foundation/DecodingError.h"
#include "foundation/Error.h"
#include "foundation/Pipe.h"
#include "helper/AdapterError.h"
#include "helper/HelperExchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <utility>
#include <vector>

// The exchange by itself, without operations. What all operations share is tested through those (ExchangeTests.cpp).
namespace kemvi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HelperExchanges : public testing::Test {
protected:
    HelperExchanges() {
        std::signal(SIGPIPE, SIG_IGN);
        exchange_.onEnd = [this](const HelperRequest& request) {
            ends_.push_back(request.id + " " + request.op);
            if (std::exchange(asksAtEnd_, false))
                errorAtEnd_ = errorOf([this] { exchange_.ask(second_); });
        };
    }

    void say(std::string_view line) { output_.fileHandleForWriting().write(std::string(line) + "\n"); }

    std::string sent() {
        foundation::ByteBuffer line;
        return input_.fileHandleForReading().readLine(line) ? std::string(line.view()) : "<end>";
    }

    template <typename Ask>
    static std::string errorOf(Ask&& ask) {
        try {
            ask();
            return "<no error>";
        } catch (const foundation::Error& error) {
            return error.description();
        }
    }

    static HelperRequest request(const char* op) {
        HelperRequest made;
        made.op = op;
        return made;
    }

    foundation::Pipe input_;
    foundation::Pipe output_;
    HelperExchange exchange_{input_.fileHandleForWriting(), output_.fileHandleForReading()};
    std::vector<std::string> ends_;
    HelperRequest second_ = request("flush");
    bool asksAtEnd_ = false;
    std::string errorAtEnd_;
};

TEST_F(HelperExchanges, numberARequestAndReturnItsAnswer) {
    HelperRequest made = request("anything");
    say(R"({"id":"1","ok":true,"result":"yes"})");
    EXPECT_EQ(exchange_.ask(made).result, JSONValue("yes"));
    EXPECT_EQ(made.id, "1");
    EXPECT_EQ(sent(), R"({"id":"1","op":"anything"})");
    EXPECT_THAT(ends_, IsEmpty());
}

TEST_F(HelperExchanges, leaveAPayloadToWhoeverAsked) {
    HelperRequest made = request("read");
    say(R"({"id":"1","ok":true,"dataBase64":"AAAA"})");
    const auto answer = exchange_.askForPayload(made);
    EXPECT_TRUE(answer.isWanted);
    EXPECT_EQ(answer.response.dataBase64->text, "AAAA");
}

TEST_F(HelperExchanges, tellWhatIsWrongWithAnAnswerThatHasNoPayload) {
    HelperRequest made = request("read");
    say(R"({"id":"1","ok":false,"error":{"message":"no such handle","code":"EBADF"}})");
    const auto failed = exchange_.askForPayload(made);
    EXPECT_FALSE(failed.isWanted);
    EXPECT_EQ(errorOf([&] { exchange_.acceptedAnswer(made, failed); }), "no such handle");
    say(R"({"id":"7","ok":true,"dataBase64":"AAAA"})");
    const auto stray = exchange_.askForPayload(made);
    EXPECT_FALSE(stray.isWanted);
    EXPECT_EQ(errorOf([&] { exchange_.acceptedAnswer(made, stray); }), "response id 7 did not match request id 2");
    say(R"({"id":"3","ok":true})");
    const auto empty = exchange_.askForPayload(made);
    EXPECT_FALSE(empty.isWanted);
    EXPECT_FALSE(exchange_.acceptedAnswer(made, empty).dataBase64) << "an accepted answer, if not a wanted one";
}

TEST_F(HelperExchanges, tellOfTheEndBeforeTheRequestFails) {
    output_.fileHandleForWriting().close();
    HelperRequest made = request("getattr");
    std::size_t toldBefore = 0;
    try {
        exchange_.ask(made);
    } catch (const AdapterError& error) {
        toldBefore = ends_.size();
        ASSERT_TRUE(error.origin());
        EXPECT_EQ(error.origin()->state, helperGoneState);
    }
    EXPECT_EQ(toldBefore, 1U);
    EXPECT_EQ(errorOf([&] { exchange_.askForPayload(made); }), "helper closed stdout");
    EXPECT_THAT(ends_, ElementsAre("1 getattr", "2 getattr"));
}

TEST_F(HelperExchanges, holdNoLockWhileTheyTellOfTheEnd) {
    output_.fileHandleForWriting().close();
    asksAtEnd_ = true;
    HelperRequest made = request("getattr");
    EXPECT_EQ(errorOf([&] { exchange_.ask(made); }), "helper closed stdout");
    EXPECT_EQ(errorAtEnd_, "helper closed stdout");
    EXPECT_THAT(ends_, ElementsAre("1 getattr", "2 flush"));
}

TEST_F(HelperExchanges, thatFailInAnotherWayAreNoEnd) {
    HelperRequest made = request("getattr");
    say("garbage");
    EXPECT_THROW(exchange_.ask(made), foundation::DecodingError);
    say(R"({"id":"9","ok":true})");
    EXPECT_EQ(errorOf([&] { exchange_.ask(made); }), "response id 9 did not match request id 2");
    EXPECT_THAT(ends_, IsEmpty());
}

} // namespace
} // namespace kemvi
