#include "extension/KemviMountConfig.h"
#include "foundation/DecodingError.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace {

using foundation::DecodingError;
using kemvi::KemviMountConfig;

/// An environment variable with a value of its own for as long as the object lives.
class SetVariable {
public:
    SetVariable(const char* name, const char* value) : name_(name) {
        if (const char* present = std::getenv(name))
            saved_ = present;
        setenv(name, value, 1);
    }

    ~SetVariable() {
        if (saved_)
            setenv(name_, saved_->c_str(), 1);
        else
            unsetenv(name_);
    }

    SetVariable(const SetVariable&) = delete;
    SetVariable& operator=(const SetVariable&) = delete;

private:
    const char* name_;
    std::optional<std::string> saved_;
};

std::optional<DecodingError> decodingError(std::string_view text) {
    try {
        KemviMountConfig::decode(text);
        return std::nullopt;
    } catch (const DecodingError& error) {
        return error;
    }
}

void expectError(std::string_view text, DecodingError::Kind kind, const std::string& named) {
    const auto error = decodingError(text);
    ASSERT_TRUE(error) << text;
    EXPECT_EQ(error->kind(), kind) << text;
    EXPECT_NE(error->description().find(named), std::string::npos) << error->description();
}

TEST(MountConfig, decodesItsFourKeysInAnyOrderAndIgnoresOthers) {
    const KemviMountConfig config = KemviMountConfig::decode(
        R"({"helperPath":"/h.js","extra":[1,{"driveId":"inner"}],"repoRoot":"/r","kemviHome":"/k","driveId":"d","n":null})");
    EXPECT_EQ(config.driveId, "d");
    EXPECT_EQ(config.kemviHome, "/k");
    EXPECT_EQ(config.repoRoot, "/r");
    EXPECT_EQ(config.helperPath, "/h.js");
}

TEST(MountConfig, passesValuesThroughAsTheyAre) {
    const KemviMountConfig config = KemviMountConfig::decode(
        "{\"driveId\":\"a b\\n\\u00e9\",\"kemviHome\":\"~/x/../y\",\"repoRoot\":\"\",\"helperPath\":\"\xF0\x9F\x98\x80 "
        "s.js\"}");
    EXPECT_EQ(config.driveId, "a b\n\xC3\xA9");
    EXPECT_EQ(config.kemviHome, "~/x/../y");
    EXPECT_EQ(config.repoRoot, "");
    EXPECT_EQ(config.helperPath, "\xF0\x9F\x98\x80 s.js");
}

TEST(MountConfig, readsValuesUnderEscapedKeys) {
    const std::string longText(100'000, 'x');
    const auto config = KemviMountConfig::decode(R"({"driv\u0065Id":"\u0041)" + longText +
                                                 R"(","kemviHome":"\u0042","repo\u0052oot":"\u0043)" + longText +
                                                 R"(","helper\u0050ath":"\u0044"})");
    EXPECT_EQ(config.driveId, "A" + longText);
    EXPECT_EQ(config.kemviHome, "B");
    EXPECT_EQ(config.repoRoot, "C" + longText);
    EXPECT_EQ(config.helperPath, "D");
}

TEST(MountConfig, withAKeyInOtherCaseLacksThatKey) {
    expectError(R"({"driveId":"d","kemvihome":"k","repoRoot":"r","helperPath":"h"})", DecodingError::Kind::keyNotFound,
                "kemviHome");
}

TEST(MountConfig, withAValueThatIsNoStringDoesNotDecode) {
    expectError(R"({"driveId":42,"kemviHome":"k","repoRoot":"r","helperPath":"h"})", DecodingError::Kind::typeMismatch,
                "driveId");
    expectError(R"({"driveId":"d","kemviHome":true,"repoRoot":"r","helperPath":"h"})",
                DecodingError::Kind::typeMismatch, "kemviHome");
    expectError(R"({"driveId":"d","kemviHome":"k","repoRoot":["r"],"helperPath":"h"})",
                DecodingError::Kind::typeMismatch, "repoRoot");
    expectError(R"({"driveId":"d","kemviHome":"k","repoRoot":"r","helperPath":{}})", DecodingError::Kind::typeMismatch,
                "helperPath");
    expectError(R"({"driveId":"d","kemviHome":"k","repoRoot":"r","helperPath":null})",
                DecodingError::Kind::valueNotFound, "helperPath");
}

TEST(MountConfig, namesTheFirstOfSeveralFaultsInTheOrderOfItsFields) {
    expectError(R"({"helperPath":1})", DecodingError::Kind::keyNotFound, "driveId");
    expectError(R"({"helperPath":1,"driveId":"d","repoRoot":2})", DecodingError::Kind::keyNotFound, "kemviHome");
}

TEST(MountConfig, thatIsNoJSONObjectDoesNotDecode) {
    expectError("", DecodingError::Kind::dataCorrupted, "");
    expectError("[\"driveId\"]", DecodingError::Kind::typeMismatch, "");
    expectError("{\"driveId\":\"d\"", DecodingError::Kind::dataCorrupted, "");
    expectError("driveId: d\n", DecodingError::Kind::dataCorrupted, "");
}

TEST(HelperEnvironment, addsTheThreeVariablesToTheProcesssOwn) {
    const SetVariable other("KEMVI_TEST_OTHER", "with = and spaces");
    const auto environment = KemviMountConfig{"d", "/k", "/r", "/h.js"}.helperEnvironment();
    EXPECT_EQ(environment.at("KEMVI_DRIVE_ID"), "d");
    EXPECT_EQ(environment.at("KEMVI_HOME"), "/k");
    EXPECT_EQ(environment.at("KEMVI_REPO_ROOT"), "/r");
    EXPECT_EQ(environment.at("KEMVI_TEST_OTHER"), "with = and spaces");
    EXPECT_EQ(environment.at("PATH"), std::getenv("PATH"));
}

TEST(HelperEnvironment, prefersTheConfiguredValueToTheInheritedOne) {
    const SetVariable inherited("KEMVI_HOME", "/inherited");
    EXPECT_EQ((KemviMountConfig{"d", "/k", "/r", "/h.js"}.helperEnvironment().at("KEMVI_HOME")), "/k");
}

TEST(HelperEnvironment, setsEmptyValuesToEmptyText) {
    const SetVariable inherited("KEMVI_DRIVE_ID", "inherited");
    const auto environment = KemviMountConfig{"", "", "", ""}.helperEnvironment();
    EXPECT_EQ(environment.at("KEMVI_DRIVE_ID"), "");
    EXPECT_EQ(environment.at("KEMVI_HOME"), "");
    EXPECT_EQ(environment.at("KEMVI_REPO_ROOT"), "");
}

TEST(HelperEnvironment, doesNotHoldTheHelpersPath) {
    const auto environment = KemviMountConfig{"d", "/k", "/r", "/a-path-like-no-other"}.helperEnvironment();
    for (const auto& [name, value] : environment)
        EXPECT_EQ(value.find("/a-path-like-no-other"), std::string::npos) << name;
}

TEST(HelperEnvironment, isReadAnewEachTime) {
    const KemviMountConfig config{"d", "/k", "/r", "/h.js"};
    EXPECT_FALSE(config.helperEnvironment().contains("KEMVI_TEST_LATER"));
    const SetVariable later("KEMVI_TEST_LATER", "1");
    EXPECT_TRUE(config.helperEnvironment().contains("KEMVI_TEST_LATER"));
}

} // namespace
