#include "PipePeer.h"
#include "foundation/DecodingError.h"
#include "helper/AdapterError.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <span>
#include <thread>

namespace kemvi {
namespace {

std::vector<std::byte> bytesOf(std::string_view text) {
    const std::span bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

class Operation : public testing::Test, protected PipePeer {
protected:
    // The answer to the next request, with the members beside id and ok.
    void answer(const std::string& members = {}) {
        sayLine(R"({"id":")" + std::to_string(++answers_) + R"(","ok":true)" + (members.empty() ? "" : "," + members) +
                "}");
    }

    // The request line of one operation that succeeds, without its id.
    std::string requestOf(const std::function<void()>& operation) {
        answer();
        operation();
        const std::string line = request();
        const std::string id = R"({"id":")" + std::to_string(answers_) + "\",";
        EXPECT_EQ(line.substr(0, id.size()), id);
        return line.substr(id.size() - 1);
    }

    static std::string protocolError(const std::function<void()>& operation) {
        try {
            operation();
            return "<no error>";
        } catch (const AdapterError& error) {
            EXPECT_EQ(error.nsError(), (foundation::NSError{"KemviFSExtension.AdapterError", 2, std::nullopt, {}}));
            return error.description();
        }
    }

private:
    int answers_ = 0;
};

TEST_F(Operation, sendsExactlyItsFields) {
    EXPECT_EQ(requestOf([&] { client.ping(); }), R"(,"op":"ping"})");
    EXPECT_EQ(requestOf([&] { client.flush(3); }), R"(,"op":"flush","handle":3})");
    EXPECT_EQ(requestOf([&] { client.release(-4); }), R"(,"op":"release","handle":-4})");
    EXPECT_EQ(requestOf([&] { client.mkdir("/d"); }), R"(,"op":"mkdir","path":"\/d"})");
    EXPECT_EQ(requestOf([&] { client.unlink("/d/f"); }), R"(,"op":"unlink","path":"\/d\/f"})");
    EXPECT_EQ(requestOf([&] { client.rename("/a", "/b"); }), R"(,"op":"rename","oldPath":"\/a","newPath":"\/b"})");
    EXPECT_EQ(requestOf([&] { client.chmod("/f", 0644); }), R"(,"op":"chmod","path":"\/f","mode":420})");
    EXPECT_EQ(requestOf([&] { client.utimes("/f", foundation::Date{1714566896.789}); }),
              R"(,"op":"utimes","path":"\/f","mtime":"2024-05-01T12:34:56.789Z"})");
    EXPECT_EQ(requestOf([&] { client.write(3, 8192, bytesOf("hi")); }),
              R"(,"op":"write","handle":3,"offset":8192,"dataBase64":"aGk="})");
}

TEST_F(Operation, withAResultSendsExactlyItsFields) {
    answer(R"("result":{})");
    client.statfs();
    EXPECT_EQ(request(), R"({"id":"1","op":"statfs"})");
    answer(R"("result":[])");
    client.readdir("/");
    EXPECT_EQ(request(), R"({"id":"2","op":"readdir","path":"\/"})");
    answer(R"("result":{})");
    client.getattr("/a/b");
    EXPECT_EQ(request(), R"({"id":"3","op":"getattr","path":"\/a\/b"})");
    answer(R"("result":{"handle":1})");
    client.open("/a", {"write", "create", "truncate"});
    EXPECT_EQ(request(), R"({"id":"4","op":"open","path":"\/a","flags":["write","create","truncate"]})");
    answer(R"("result":{"handle":1})");
    client.open("/a", {});
    EXPECT_EQ(request(), R"({"id":"5","op":"open","path":"\/a","flags":[]})");
    answer(R"("dataBase64":"")");
    client.read(3, 8192, 4096);
    EXPECT_EQ(request(), R"({"id":"6","op":"read","handle":3,"offset":8192,"length":4096})");
}

TEST_F(Operation, passesIntegersUnchanged) {
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    answer(R"("dataBase64":"")");
    client.read(least, most, -1);
    EXPECT_EQ(request(),
              R"({"id":"1","op":"read","handle":-9223372036854775808,"offset":9223372036854775807,"length":-1})");
}

TEST_F(Operation, passesPathsAsTheyAre) {
    EXPECT_EQ(requestOf([&] { client.mkdir("/a//b/../\xC3\xA4 \"q\" \\ \n\r\t\b\f\x01\x1F\x7F"); }),
              ",\"op\":\"mkdir\",\"path\":\"\\/a\\/\\/b\\/..\\/\xC3\xA4 \\\"q\\\" \\\\ "
              "\\n\\r\\t\\b\\f\\u0001\\u001f\x7F\"}");
    EXPECT_EQ(requestOf([&] { client.mkdir(""); }), R"(,"op":"mkdir","path":""})");
}

TEST_F(Operation, escapesSlashesInsideWrittenData) {
    EXPECT_EQ(requestOf([&] { client.write(1, 0, bytesOf("\xFF\xFF\xFF")); }),
              R"(,"op":"write","handle":1,"offset":0,"dataBase64":"\/\/\/\/"})");
}

TEST_F(Operation, writeOfNothingSendsTheEmptyText) {
    EXPECT_EQ(requestOf([&] { client.write(1, 5, {}); }), R"(,"op":"write","handle":1,"offset":5,"dataBase64":""})");
}

TEST_F(Operation, writesAndReadsMegabytesUnchanged) {
    std::vector<std::byte> data(3'000'000);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::byte>(i * 2654435761U >> 13);
    // A helper that answers the read with the text of the write, its escapes included.
    std::thread helper([&] {
        const std::string line = request();
        const std::size_t start = line.find("dataBase64");
        ASSERT_NE(start, std::string::npos);
        sayLine(R"({"id":"1","ok":true})");
        request();
        sayLine(R"({"id":"2","ok":true,")" + line.substr(start));
    });
    client.write(1, 0, data);
    EXPECT_TRUE(client.read(1, 0, 3'000'000) == data);
    helper.join();
}

TEST_F(Operation, pingReturnsTheResultAsItIs) {
    answer();
    EXPECT_EQ(client.ping(), std::nullopt);
    answer(R"("result":null)");
    EXPECT_EQ(client.ping(), std::nullopt);
    answer(R"("result":[1,null])");
    EXPECT_EQ(client.ping(), JSONValue(JSONValue::Array{1.0, JSONValue::Null{}}));
}

TEST_F(Operation, statfsReadsItsFigures) {
    answer(R"("result":{"bytes":4096.9,"files":3,"directories":"2"})");
    const KemviStatFS figures = client.statfs();
    EXPECT_EQ(figures.files, 3);
    EXPECT_EQ(figures.directories, 0);
    EXPECT_EQ(figures.bytes, 4096);
}

TEST_F(Operation, statfsRefusesAnythingButAnObject) {
    for (const char* members : {"", "\"result\":null", "\"result\":[]", "\"result\":5"}) {
        answer(members);
        EXPECT_EQ(protocolError([&] { client.statfs(); }), "statfs result was not an object") << members;
    }
}

TEST_F(Operation, readdirKeepsTheHelpersOrderAndDuplicates) {
    answer(R"("result":[{"path":"/b"},{"path":"/a","isDirectory":true,"size":5},{"path":"/b"}])");
    const auto entries = client.readdir("/");
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].path, "/b");
    EXPECT_EQ(entries[0].size, 0);
    EXPECT_EQ(entries[1].description(), "dir  /a");
    EXPECT_EQ(entries[1].size, 5);
    EXPECT_EQ(entries[2], entries[0]);
}

TEST_F(Operation, readdirOfAnEmptyDirectoryIsAnEmptyList) {
    answer(R"("result":[])");
    EXPECT_TRUE(client.readdir("/").empty());
}

TEST_F(Operation, readdirRefusesAnythingButAnArray) {
    for (const char* members : {"", "\"result\":null", "\"result\":{}", "\"result\":\"[]\""}) {
        answer(members);
        EXPECT_EQ(protocolError([&] { client.readdir("/"); }), "readdir result was not an array") << members;
    }
}

TEST_F(Operation, readdirFailsAsAWholeAtAnElementThatIsNoObject) {
    answer(R"("result":[{"path":"/a"},7,{"path":"/b"}])");
    EXPECT_EQ(protocolError([&] { client.readdir("/"); }), "file stat was not an object");
}

TEST_F(Operation, getattrReadsAStat) {
    answer(R"("result":{"path":"/docs/a.txt","size":4096.7,"modifiedAt":"2024-05-01T12:34:56.789Z"})");
    const KemviFileStat stat = client.getattr("/docs/a.txt");
    EXPECT_EQ(stat.name, "a.txt");
    EXPECT_EQ(stat.size, 4096);
    EXPECT_EQ(stat.modifiedAt, foundation::Date{1714566896.789});
}

TEST_F(Operation, getattrTellsNoResultFromAResultOfTheWrongShape) {
    answer();
    EXPECT_EQ(protocolError([&] { client.getattr("/"); }), "getattr result was empty");
    answer(R"("result":null)");
    EXPECT_EQ(protocolError([&] { client.getattr("/"); }), "getattr result was empty");
    answer(R"("result":"file")");
    EXPECT_EQ(protocolError([&] { client.getattr("/"); }), "file stat was not an object");
}

TEST_F(Operation, openCutsTheHandleOffTowardZero) {
    const std::pair<const char*, std::int64_t> handles[] = {{"5.0", 5},
                                                            {"7.9", 7},
                                                            {"-0.5", 0},
                                                            {"-7.9", -7},
                                                            {"0", 0},
                                                            {"1e3", 1000},
                                                            {"-9223372036854775808", INT64_MIN}};
    for (const auto& [text, handle] : handles) {
        answer(std::string(R"("result":{"other":"x","h\u0061ndle":)") + text + R"(,"x":"\u0068andle"})");
        EXPECT_EQ(client.open("/a", {"read"}), handle) << text;
        answer(std::string(R"("result":{"other":"x","handle":)") + text + "}");
        EXPECT_EQ(client.open("/a", {"read"}), handle) << text;
    }
}

TEST_F(Operation, openRefusesANumberThatNoDoubleHoldsAnywhereInItsResult) {
    for (const char* result :
         {R"({"handle":3,"other":1e400})", R"({"other":[1e400],"handle":3})", "[1e400]", "1e400"}) {
        answer(std::string(R"("result":)") + result);
        EXPECT_THROW(client.open("/a", {"read"}), foundation::DecodingError) << result;
    }
}

TEST_F(Operation, openRefusesAResultWithoutANumericHandle) {
    for (const char* members :
         {"", "\"result\":null", "\"result\":[5]", "\"result\":5", "\"result\":{}", "\"result\":{\"Handle\":5}",
          "\"result\":{\"handle\":\"5\"}", "\"result\":{\"handle\":true}", "\"result\":{\"handle\":null}"}) {
        answer(members);
        EXPECT_EQ(protocolError([&] { client.open("/a", {"read"}); }), "open result missing handle") << members;
    }
}

TEST_F(Operation, readReturnsTheBytesHoweverManyWereAskedFor) {
    answer(R"("dataBase64":"aGVsbG8=","result":{"dataBase64":"eA=="})");
    EXPECT_EQ(client.read(1, 0, 2), bytesOf("hello"));
    answer(R"("dataBase64":"")");
    EXPECT_EQ(client.read(1, 0, 2), bytesOf(""));
}

TEST_F(Operation, readIntoMemoryStoresWhatFitsAndCountsAll) {
    std::vector<std::byte> into(3);
    answer(R"("dataBase64":"aGVsbG8=")");
    EXPECT_EQ(client.read(1, 0, 5, into), 5U);
    EXPECT_EQ(into, bytesOf("hel"));
    answer(R"("dataBase64":"eA==")");
    EXPECT_EQ(client.read(1, 0, 5, into), 1U);
    EXPECT_EQ(into, bytesOf("xel"));
}

TEST_F(Operation, readAcceptsEscapesInTheText) {
    answer(R"("dataBase64":"\/\/8\u003d")");
    EXPECT_EQ(client.read(1, 0, 2), bytesOf("\xFF\xFF"));
}

TEST_F(Operation, readRefusesAnAnswerWithoutData) {
    for (const char* members :
         {"", "\"dataBase64\":null", "\"result\":{\"dataBase64\":\"eA==\"}", "\"result\":\"eA==\""}) {
        answer(members);
        EXPECT_EQ(protocolError([&] { client.read(1, 0, 1); }), "read response missing dataBase64") << members;
    }
}

TEST_F(Operation, readRefusesDataThatIsNotStrictBase64) {
    for (const char* text : {"eA", "eA=", "e A=", "eA==\\n", "eA-_", "!", "eA==eA==", "\xC3\xA4xx"}) {
        answer("\"dataBase64\":\"" + std::string(text) + "\"");
        EXPECT_EQ(protocolError([&] { client.read(1, 0, 1); }), "read response missing dataBase64") << text;
        answer("\"dataBase64\":\"" + std::string(text) + "\"");
        std::byte byte{};
        EXPECT_EQ(protocolError([&] { client.read(1, 0, 1, {&byte, 1}); }), "read response missing dataBase64") << text;
    }
}

// Long enough to be decoded from where it stands, before it was looked at as JSON.
TEST_F(Operation, readRefusesALongAnswerForTheReasonThatComesFirst) {
    const std::string data(5'000, 'A');
    std::byte byte{};
    const auto read = [&] { client.read(1, 0, 1, {&byte, 1}); };
    answer(R"("dataBase64":")" + data + "-AAA\"");
    EXPECT_EQ(protocolError(read), "read response missing dataBase64");
    for (const char* broken : {"\\x", "\xFF", "\t", "\" "}) {
        answer(R"("dataBase64":")" + data + broken + "\"");
        EXPECT_THROW(read(), foundation::DecodingError) << broken;
        sayLine(R"({"id":"0","ok":false,"error":{"message":"m"},"dataBase64":")" + data + broken + "\"}");
        EXPECT_THROW(read(), foundation::DecodingError) << broken << " of a failure";
    }
}

TEST_F(Operation, readLooksAtIdAndSuccessOfALongAnswer) {
    const std::string member = R"("dataBase64":")" + std::string(5'000, 'A') + "\"";
    sayLine(R"({"id":"9","ok":true,)" + member + "}");
    EXPECT_EQ(protocolError([&] { client.read(1, 0, 1); }), "response id 9 did not match request id 1");
    sayLine(R"({"id":"2","ok":false,)" + member + "}");
    EXPECT_EQ(protocolError([&] { client.read(1, 0, 1); }), "unknown helper error");
    // The id that counts is the last one, and it stands inside what looks like the data.
    sayLine(R"({"id":"3","ok":true,"dataBase64":")" + std::string(5'000, 'A') + R"(","id":"x","y":"AAAA"})");
    EXPECT_EQ(protocolError([&] { client.read(1, 0, 1); }), "response id x did not match request id 3");
    sayLine(R"({"id":"4","ok":false,"error":{"message":"m","code":"EACCES"},)" + member + "}");
    EXPECT_THROW(client.read(1, 0, 1), foundation::NSErrorException);
}

TEST_F(Operation, rejectsDataOfTheWrongTypeAsUndecodableInAnyOperation) {
    answer(R"("dataBase64":5)");
    EXPECT_THROW(client.ping(), foundation::DecodingError);
    answer(R"("dataBase64":5)");
    EXPECT_THROW(client.read(1, 0, 1), foundation::DecodingError);
}

TEST_F(Operation, withoutAResultIgnoresWhatCame) {
    const std::function<void()> operations[] = {[&] { client.flush(1); },         [&] { client.release(1); },
                                                [&] { client.mkdir("/"); },       [&] { client.unlink("/"); },
                                                [&] { client.rename("/", "/"); }, [&] { client.chmod("/", 0); },
                                                [&] { client.utimes("/", {}); },  [&] { client.write(1, 0, {}); }};
    for (const auto& operation : operations) {
        answer(R"("result":[1,{"a":"b"}],"dataBase64":"not base64")");
        EXPECT_NO_THROW(operation());
    }
}

using OperationDeathTest = Operation;

TEST_F(OperationDeathTest, openStopsTheProcessAtAHandleThatDoesNotFit) {
    for (const char* number : {"9223372036854775808", "-9223372036854777856", "1e300"}) {
        const auto openWith = [&] {
            answer(std::string(R"("result":{"handle":)") + number + "}");
            client.open("/a", {"read"});
        };
        EXPECT_EXIT(openWith(), testing::KilledBySignal(SIGABRT), "does not fit") << number;
    }
}

TEST_F(OperationDeathTest, readdirStopsTheProcessAtASizeThatDoesNotFit) {
    const auto list = [&] {
        answer(R"("result":[{"size":1e19}])");
        client.readdir("/");
    };
    EXPECT_EXIT(list(), testing::KilledBySignal(SIGABRT), "does not fit");
}

TEST_F(Operation, readdirOfAnAnswerThatIsNotAcceptedLooksAtNoSize) {
    sayLine(R"({"id":"9","ok":true,"result":[{"size":1e19}]})");
    EXPECT_EQ(protocolError([&] { client.readdir("/"); }), "response id 9 did not match request id 1");
}

TEST_F(Operation, readdirRejectsAResultWithAnUnsupportedNumberAsUndecodable) {
    sayLine(R"({"id":"1","ok":true,"result":[{"path":"/a","extra":[1e400]}]})");
    EXPECT_THROW(client.readdir("/"), foundation::DecodingError);
}

} // namespace
} // namespace kemvi
