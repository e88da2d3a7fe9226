#include "foundation/DecodingError.h"
#include "helper/AdapterError.h"
#include "helper/HelperClient.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace kemvi {
namespace {

std::map<std::string, std::string> environmentFor(const std::string& misbehaviour) {
    std::signal(SIGPIPE, SIG_IGN);
    const char* path = std::getenv("PATH");
    return {{"PATH", path != nullptr ? path : ""}, {"KEMVI_MISBEHAVIOUR", misbehaviour}};
}

// A started client of the misbehaving helper that is stopped in any case.
class NodeHelper {
public:
    explicit NodeHelper(const std::string& misbehaviour, const std::string& script = KEMVI_MISBEHAVING_HELPER)
        : client(script, environmentFor(misbehaviour)) {
        client.start();
    }

    ~NodeHelper() { client.stop(); }

    std::string pingError() {
        try {
            client.ping();
            return "<no error>";
        } catch (const foundation::Error& error) {
            return error.description();
        }
    }

    HelperClient client;
};

TEST(NodeHelper, hasExactlyItsEnvironmentAndNoArguments) {
    NodeHelper helper("environment");
    const auto result = helper.client.ping();
    ASSERT_TRUE(result && result->asObject());
    const JSONValue* environment = result->asObject()->find("environment");
    ASSERT_TRUE(environment && environment->asObject());
    EXPECT_EQ(environment->asObject()->members().size(), 2U) << environment->description();
    EXPECT_EQ(*environment->asObject()->find("KEMVI_MISBEHAVIOUR"), JSONValue("environment"));
    EXPECT_EQ(*result->asObject()->find("arguments"), JSONValue(JSONValue::Array{}));
}

TEST(NodeHelper, thatExitsBeforeAnsweringHasClosedItsOutput) {
    NodeHelper helper("exit");
    EXPECT_EQ(helper.pingError(), "helper closed stdout");
    EXPECT_EQ(helper.pingError(), "helper closed stdout");
}

TEST(NodeHelper, thatExitsInTheMiddleOfALineHasClosedItsOutput) {
    EXPECT_EQ(NodeHelper("halfLine").pingError(), "helper closed stdout");
}

TEST(NodeHelper, whoseScriptDoesNotExistHasClosedItsOutput) {
    EXPECT_EQ(NodeHelper("exit", "/nonexistent path/helper.mjs").pingError(), "helper closed stdout");
}

TEST(NodeHelper, thatPrintsGarbageFailsToDecode) {
    NodeHelper helper("garbage");
    EXPECT_THROW(helper.client.ping(), foundation::DecodingError);
}

TEST(NodeHelper, thatAnswersAnotherIdIsSaidToDoSo) {
    EXPECT_EQ(NodeHelper("wrongId").pingError(), "response id 99 did not match request id 1");
}

TEST(NodeHelper, thatFailsGivesItsPosixError) {
    NodeHelper helper("fail");
    try {
        helper.client.getattr("/a");
        FAIL();
    } catch (const foundation::NSErrorException& error) {
        EXPECT_EQ(error.nsError(), foundation::NSError::posix(2, "no entry"));
    }
}

TEST(NodeHelper, thatAnswersTwiceHasItsSecondLineReadNext) {
    NodeHelper helper("twoLines");
    EXPECT_EQ(helper.client.ping(), JSONValue(1.0));
    EXPECT_EQ(helper.client.ping(), JSONValue(2.0));
    EXPECT_EQ(helper.pingError(), "response id 2 did not match request id 3");
}

TEST(NodeHelper, mayAnswerEightMebibytes) {
    NodeHelper helper("big");
    const auto result = helper.client.ping();
    ASSERT_TRUE(result && result->asString());
    EXPECT_EQ(result->asString()->size(), std::size_t{8} << 20);
}

TEST(NodeHelper, stopsTwiceAndIsGone) {
    NodeHelper helper("environment");
    const pid_t pid = helper.client.processIdentifier();
    helper.client.stop();
    helper.client.stop();
    EXPECT_EQ(::kill(pid, 0), -1);
    EXPECT_EQ(helper.pingError(), "helper closed stdout");
}

} // namespace
} // namespace kemvi
