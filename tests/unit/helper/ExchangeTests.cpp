#include "PipePeer.h"
#include "foundation/DecodingError.h"
#include "helper/AdapterError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <set>
#include <thread>
#include <vector>

namespace kemvi {
namespace {

using foundation::DecodingError;

class Exchange : public testing::Test, protected PipePeer {
protected:
    // The text of the protocol error that a ping ends with.
    std::string pingProtocolError() {
        try {
            client.ping();
            return "<no error>";
        } catch (const AdapterError& error) {
            EXPECT_EQ(error.kind(), AdapterError::Case::protocolError);
            return error.description();
        }
    }

    std::string pingDecodingError() {
        try {
            client.ping();
            return "<no error>";
        } catch (const DecodingError& error) {
            return error.description();
        }
    }

    foundation::NSError pingPosixError() {
        try {
            client.ping();
            return {};
        } catch (const foundation::NSErrorException& error) {
            return error.nsError();
        }
    }
};

TEST_F(Exchange, numbersRequestsFromOneWhateverTheOperation) {
    sayLine(R"({"id":"1","ok":true})");
    client.mkdir("/a");
    sayLine(R"({"id":"2","ok":true})");
    client.ping();
    sayLine(R"({"id":"3","ok":true})");
    client.flush(7);
    EXPECT_EQ(request(), R"({"id":"1","op":"mkdir","path":"\/a"})");
    EXPECT_EQ(request(), R"({"id":"2","op":"ping"})");
    EXPECT_EQ(request(), R"({"id":"3","op":"flush","handle":7})");
}

TEST_F(Exchange, thatFailsAtEncodingSendsNothingAndStillConsumesAnId) {
    EXPECT_THROW(client.getattr("/\xFF"), foundation::EncodingError);
    sayLine(R"({"id":"2","ok":true})");
    client.ping();
    EXPECT_EQ(request(), R"({"id":"2","op":"ping"})");
}

TEST_F(Exchange, consumesAnIdWhateverItFailsWith) {
    sayLine("garbage");
    EXPECT_THROW(client.ping(), DecodingError);
    sayLine(R"({"id":"2","ok":false})");
    EXPECT_EQ(pingProtocolError(), "unknown helper error");
    sayLine(R"({"id":"2","ok":true})");
    EXPECT_EQ(pingProtocolError(), "response id 2 did not match request id 3");
    sayLine(R"({"id":"4","ok":false,"error":{"message":"m"}})");
    EXPECT_THROW(client.ping(), foundation::NSErrorException);
    sayLine(R"({"id":"5","ok":true})");
    EXPECT_NO_THROW(client.ping());
}

TEST_F(Exchange, comparesIdsAsTexts) {
    sayLine(R"({"id":"01","ok":true})");
    EXPECT_EQ(pingProtocolError(), "response id 01 did not match request id 1");
    sayLine(R"({"id":"","ok":true})");
    EXPECT_EQ(pingProtocolError(), "response id  did not match request id 2");
    sayLine(R"({"id":"\u0033","ok":true})");
    EXPECT_NO_THROW(client.ping());
}

TEST_F(Exchange, rejectsAnIdThatIsANumberAsUndecodable) {
    sayLine(R"({"id":1,"ok":true})");
    EXPECT_EQ(pingDecodingError(), "key \"id\": expected a string, found a number");
}

TEST_F(Exchange, prefersAnIdMismatchToAFailureReport) {
    sayLine(R"({"id":"9","ok":false,"error":{"message":"m","code":"ENOENT"}})");
    EXPECT_EQ(pingProtocolError(), "response id 9 did not match request id 1");
}

TEST_F(Exchange, staysOutOfStepAfterALineTooMany) {
    sayLine(R"({"id":"0","ok":true})");
    for (int id = 1; id <= 3; ++id) {
        sayLine(R"({"id":")" + std::to_string(id) + R"(","ok":true})");
        EXPECT_EQ(pingProtocolError(),
                  "response id " + std::to_string(id - 1) + " did not match request id " + std::to_string(id));
    }
}

TEST_F(Exchange, throwsThePosixErrorOfAFailure) {
    sayLine(R"({"id":"1","ok":false,"error":{"message":"no such file","code":"ENOENT","name":"Error"}})");
    EXPECT_EQ(pingPosixError(), foundation::NSError::posix(2, "no such file"));
}

// What an error of this call says of where it arose.
template <typename Call>
std::string originOf(Call&& call) {
    try {
        call();
        return "<no error>";
    } catch (const foundation::Error& error) {
        const foundation::ErrorOrigin origin = error.origin() ? *error.origin() : foundation::ErrorOrigin();
        return origin.request + "|" + origin.operation + "|" + origin.subject + "|" + origin.code + "|" + origin.state;
    }
}

TEST_F(Exchange, tellsOfAnErrorWhichRequestItIsOf) {
    sayLine(R"({"id":"1","ok":false,"error":{"message":"full","code":"ENOSPC"}})");
    EXPECT_EQ(originOf([&] { client.mkdir("/a"); }), "1|mkdir|/a|ENOSPC|");
    sayLine("garbage");
    EXPECT_EQ(originOf([&] { client.getattr("/b"); }), "2|getattr|/b||");
    sayLine(R"({"id":"3","ok":true,"result":7})");
    EXPECT_EQ(originOf([&] { client.getattr("/b"); }), "3|getattr|/b||");
    sayLine(R"({"id":"4","ok":true})");
    EXPECT_EQ(originOf([&] { client.read(1, 0, 10); }), "4|read|||");
    sayLine(R"({"id":"5","ok":false,"error":{"message":"m"}})");
    EXPECT_EQ(originOf([&] { client.rename("/a", "/b"); }), "5|rename|/a||");
}

TEST_F(Exchange, tellsLastingErrorsFromOthers) {
    for (int id = 0; id < 3; ++id)
        sayLine(R"({"id":")" + std::to_string(id) + R"(","ok":true})");
    for (int id = 1; id <= 3; ++id)
        EXPECT_EQ(originOf([&] { client.flush(1); }),
                  std::to_string(id) + "|flush|||answers are out of step since request 1");
    sayLine(R"({"id":"4","ok":true})");
    client.flush(1);
    sayLine(R"({"id":"0","ok":true,"dataBase64":""})");
    EXPECT_EQ(originOf([&] { client.read(1, 0, 1); }), "5|read|||answers are out of step since request 5");
    hangUp();
    for (int id = 6; id <= 7; ++id)
        EXPECT_EQ(originOf([&] { client.flush(1); }), std::to_string(id) + "|flush|||" + std::string(helperGoneState));
}

TEST_F(Exchange, reportsAFailureWithoutARecordAsUnknown) {
    sayLine(R"({"id":"1","ok":false})");
    EXPECT_EQ(pingProtocolError(), "unknown helper error");
    sayLine(R"({"id":"2","ok":false,"error":null})");
    EXPECT_EQ(pingProtocolError(), "unknown helper error");
}

TEST_F(Exchange, ignoresAnErrorThatComesWithSuccessAndAResultThatComesWithFailure) {
    sayLine(R"({"id":"1","ok":true,"result":"yes","error":{"message":"m"}})");
    EXPECT_EQ(client.ping(), JSONValue("yes"));
    sayLine(R"({"id":"2","ok":false,"result":"yes"})");
    EXPECT_EQ(pingProtocolError(), "unknown helper error");
}

TEST_F(Exchange, reportsAHelperThatExitsBeforeAnswering) {
    hangUp();
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
}

TEST_F(Exchange, reportsAHelperThatExitsInTheMiddleOfALine) {
    say(R"({"id":"1","ok":tr)");
    hangUp();
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
}

TEST_F(Exchange, sendsNothingMoreOnceTheHelperHasClosedItsOutput) {
    hangUp();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(pingProtocolError(), "helper closed stdout");
    client.input().fileHandleForWriting().close();
    EXPECT_EQ(request(), R"({"id":"1","op":"ping"})");
    EXPECT_EQ(request(), "<end>");
}

// The pipe takes a mebibyte at most; a helper that neither reads nor answers must not hold up whoever fills it.
TEST_F(Exchange, givesUpARequestThatIsLongerThanThePipeWhenTheHelperClosesItsOutput) {
    const std::vector<std::byte> data(std::size_t{4} << 20);
    auto writing = std::async(std::launch::async, [&] {
        try {
            client.write(1, 0, data);
            return std::string("<no error>");
        } catch (const AdapterError& error) {
            return error.description();
        }
    });
    EXPECT_TRUE(client.input().fileHandleForReading().readByte()); // it is being written
    hangUp();
    const bool returned = writing.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    client.input().fileHandleForReading().close();
    ASSERT_TRUE(returned);
    EXPECT_EQ(writing.get(), "helper closed stdout");
}

TEST_F(Exchange, readsTheAnswersThatCameBeforeTheHelperClosedItsOutput) {
    sayLine(R"({"id":"1","ok":true,"result":"one"})");
    sayLine(R"({"id":"2","ok":true,"result":"two"})");
    hangUp();
    EXPECT_EQ(client.ping(), JSONValue("one"));
    EXPECT_EQ(client.ping(), JSONValue("two"));
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
}

TEST_F(Exchange, sendsARequestLongerThanThePipeToAHelperThatReadsSlowly) {
    const std::vector<std::byte> data(std::size_t{4} << 20, std::byte{0x5A});
    std::thread helper([&] {
        const std::string line = request();
        EXPECT_EQ(line.size(),
                  5592408U +
                      std::string_view(R"({"id":"1","op":"write","handle":1,"offset":0,"dataBase64":""})").size());
        sayLine(R"({"id":"1","ok":true})");
    });
    EXPECT_NO_THROW(client.write(1, 0, data));
    helper.join();
}

TEST_F(Exchange, losesARequestThatNobodyReadsSilently) {
    client.input().fileHandleForReading().close();
    sayLine(R"({"id":"1","ok":true})");
    EXPECT_NO_THROW(client.ping());
    hangUp();
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
}

TEST_F(Exchange, handsAnEmptyLineToTheDecoder) {
    say("\n");
    EXPECT_EQ(pingDecodingError(), "not valid JSON: the text is empty");
}

TEST_F(Exchange, consumesALineThatDoesNotDecode) {
    sayLine("garbage");
    EXPECT_THROW(client.ping(), DecodingError);
    sayLine(R"({"id":"2","ok":true})");
    EXPECT_NO_THROW(client.ping());
}

TEST_F(Exchange, acceptsACarriageReturnAndOtherWhiteSpaceAroundTheObject) {
    say("{\"id\":\"1\",\"ok\":true}\r\n \t{\"id\":\"2\",\"ok\":true} \r\n");
    EXPECT_NO_THROW(client.ping());
    EXPECT_NO_THROW(client.ping());
}

TEST_F(Exchange, leavesASecondLineForTheNextExchange) {
    say("{\"id\":\"1\",\"ok\":true,\"result\":\"one\"}\n{\"id\":\"2\",\"ok\":true,\"result\":\"two\"}\n");
    EXPECT_EQ(client.ping(), JSONValue("one"));
    EXPECT_EQ(client.ping(), JSONValue("two"));
}

TEST_F(Exchange, joinsAnAnswerThatArrivesInPiecesOfOneByte) {
    std::thread helper([this] {
        for (const char c : std::string_view("{\"id\":\"1\",\"ok\":true,\"result\":\"piecewise\"}\n"))
            say({&c, 1});
    });
    EXPECT_EQ(client.ping(), JSONValue("piecewise"));
    helper.join();
}

TEST_F(Exchange, readsAnAnswerOfEightMebibytes) {
    const std::string text(std::size_t{8} << 20, 'x');
    std::thread helper([&] { sayLine(R"({"id":"1","ok":true,"result":")" + text + "\"}"); });
    const auto result = client.ping();
    helper.join();
    ASSERT_TRUE(result && result->asString());
    EXPECT_TRUE(*result->asString() == text);
}

TEST_F(Exchange, serialisesThreadsSoThatEachGetsItsOwnAnswer) {
    constexpr int threads = 8;
    constexpr int rounds = 200;
    // Answers only once the next request has not come early: two requests in the pipe would be a broken rule.
    std::thread helper([this] {
        for (int i = 1; i <= threads * rounds; ++i) {
            foundation::ByteBuffer line;
            ASSERT_TRUE(client.input().fileHandleForReading().readLine(line));
            const std::string text(line.view());
            const std::string start = R"({"id":")" + std::to_string(i) + R"(","op":"getattr","path":")";
            ASSERT_EQ(text.substr(0, start.size()), start);
            const std::string path = text.substr(start.size(), text.size() - start.size() - 2);
            sayLine(R"({"id":")" + std::to_string(i) + R"(","ok":true,"result":{"path":")" + path + "\"}}");
        }
    });
    std::vector<std::thread> clients;
    for (int t = 0; t < threads; ++t)
        clients.emplace_back([this, t] {
            for (int i = 0; i < rounds; ++i) {
                const std::string path = "/" + std::to_string(t) + "-" + std::to_string(i);
                ASSERT_EQ(client.getattr(path).path, path);
            }
        });
    for (std::thread& thread : clients)
        thread.join();
    helper.join();
}

TEST_F(Exchange, stopEndsAnExchangeThatWaitsOnceTheHelperExits) {
    std::promise<void> asked;
    // A helper as it should be: exits when its input ends.
    std::thread helper([&] {
        EXPECT_EQ(request(), R"({"id":"1","op":"ping"})");
        asked.set_value();
        EXPECT_EQ(request(), "<end>");
        hangUp();
    });
    std::thread stopper([&] {
        asked.get_future().wait();
        client.stop();
    });
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
    stopper.join();
    helper.join();
}

TEST_F(Exchange, stopCalledTwiceReturnsNormally) {
    client.stop();
    client.stop();
    hangUp();
    EXPECT_EQ(pingProtocolError(), "helper closed stdout");
}

TEST(HelperClient, keepsWhatItWasMadeWith) {
    const HelperClient client("/a path/helper.mjs", {{"A", "b"}});
    EXPECT_EQ(client.helperPath(), "/a path/helper.mjs");
    EXPECT_EQ(client.environment(), (std::map<std::string, std::string>{{"A", "b"}}));
    EXPECT_EQ(client.processIdentifier(), 0);
}

} // namespace
} // namespace kemvi
