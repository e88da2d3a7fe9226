#include "extension/ToldFileSystem.h"

#include "SourceDirectory.h"
#include "foundation/Descriptor.h"
#include "foundation/PosixErrno.h"
#include "fskit/FSVolume.h"
#include "support/RecordingLog.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace extensiontests {
namespace {

using Error = std::optional<foundation::NSError>;
using testing::HasSubstr;
using testing::Not;

constexpr const char* tellEnvironment = "env > \"$KEMVI_HOME/told\"\n";

class ToldLoading : public testing::Test {
protected:
    static void SetUpTestSuite() { std::signal(SIGPIPE, SIG_IGN); }

    // A configuration that serves another directory than the one it lies in. `keys` begins with a comma.
    static void configure(const SourceDirectory& source, const std::string& script, const std::string& keys,
                          const char* helper = "helper.sh") {
        source.write(helper, script);
        source.write("mount-config.json", R"({"driveId":"d","kemviHome":")" + source.path() +
                                              R"(","repoRoot":"/nowhere","helperPath":")" + source.path(helper) + "\"" +
                                              keys + "}");
    }

    void configure(const std::string& keys) const { configure(source_, tellEnvironment + agreeableHelper(), keys); }

    void writeSecrets(const std::string& text, unsigned mode) const {
        source_.write("mount-secrets.env", text);
        std::filesystem::permissions(source_.path("mount-secrets.env"), std::filesystem::perms(mode));
    }

    Error load(const SourceDirectory& source) {
        Error failure;
        std::shared_ptr<fskit::FSVolume> loaded;
        fileSystem_.loadResource(
            std::make_shared<fskit::FSPathURLResource>(std::make_shared<foundation::URL>(source.path()), true), {},
            fskit::VolumeReply([&](auto volume, Error error) {
                loaded = std::move(volume);
                failure = std::move(error);
            }));
        EXPECT_EQ(loaded == nullptr, failure.has_value());
        if (loaded) // which ends the helper
            dynamic_cast<fskit::FSVolumeOperations&>(*loaded).unmount(fskit::Reply<>([] {}));
        return failure;
    }

    Error load() { return load(source_); }

    // Expects a load to fail before a helper is started, with EINVAL, and returns what it says.
    std::string refusal() {
        const testsupport::RecordingLog log;
        const Error error = load();
        if (!error) {
            ADD_FAILURE() << "the load succeeded";
            return {};
        }
        EXPECT_EQ(error->domain, foundation::NSPOSIXErrorDomain);
        EXPECT_EQ(error->code, foundation::posixErrno::EINVAL_);
        EXPECT_FALSE(std::filesystem::exists(source_.path("told")));
        const std::string text = error->localizedDescription.value_or("");
        EXPECT_THAT(log.texts(), testing::ElementsAre("loadResource: <private>", "loadResource failed: " + text));
        return text;
    }

    std::string told() const { return "\n" + source_.read("told"); }

    SourceDirectory source_;
    kemvi::ToldFileSystem fileSystem_;
};

TEST_F(ToldLoading, doesNotMindOptionsThatAreForAnotherHost) {
    configure(R"(,"mountOptions":"close_to_open")");
    EXPECT_FALSE(load());
}

TEST_F(ToldLoading, tellsTheHelperWhatIsSetForIt) {
    configure(R"(,"helperEnvironment":{"A":"1 = one","TOKEN":"none"})");
    writeSecrets("# of the week\nTOKEN=a b\n", 0600);
    EXPECT_EQ(load(), std::nullopt);
    EXPECT_THAT(told(), HasSubstr("\nA=1 = one\n"));
    EXPECT_THAT(told(), HasSubstr("\nTOKEN=a b\n"));
    EXPECT_THAT(told(), HasSubstr("\nKEMVI_SOURCE=" + source_.path() + "\n"));
    EXPECT_THAT(told(), HasSubstr("\nKEMVI_DRIVE_ID=d\n"));
    EXPECT_THAT(told(), Not(HasSubstr("KEMVI_COMMAND")));
}

TEST_F(ToldLoading, leavesNothingOfItBehind) {
    configure(R"(,"helperEnvironment":{"A":"1","HOME":"/elsewhere","A":"2"})");
    const std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    ::setenv("HOME", home.c_str(), 1);
    EXPECT_EQ(load(), std::nullopt);
    EXPECT_THAT(told(), HasSubstr("\nHOME=/elsewhere\n"));
    EXPECT_THAT(told(), HasSubstr("\nA=2\n"));
    EXPECT_EQ(std::getenv("A"), nullptr);
    EXPECT_EQ(std::getenv("KEMVI_SOURCE"), nullptr);
    EXPECT_EQ(std::getenv("HOME"), home);
}

TEST_F(ToldLoading, findsNodeAlongThePathThatIsSet) {
    std::filesystem::rename(source_.path("bin"), source_.path("elsewhere"));
    configure(R"(,"helperEnvironment":{"PATH":")" + source_.path("elsewhere") + R"(:/usr/bin:/bin"})");
    EXPECT_EQ(load(), std::nullopt);
    EXPECT_THAT(told(), HasSubstr("\nPATH=" + source_.path("elsewhere")));
}

TEST_F(ToldLoading, tellsTheCommandToTheScriptThatRunsIt) {
    const std::string command = R"(,"helperCommand":["/bin/a b","\"c\"",""])";
    configure(source_, tellEnvironment + agreeableHelper(), command, "program.mjs");
    EXPECT_EQ(load(), std::nullopt);
    EXPECT_THAT(told(), HasSubstr("\nKEMVI_COMMAND=[\"/bin/a b\",\"\\\"c\\\"\",\"\"]\n"));
    configure(command); // which another script is not
    EXPECT_EQ(load(), std::nullopt);
    EXPECT_THAT(told(), Not(HasSubstr("KEMVI_COMMAND")));
}

TEST_F(ToldLoading, refusesWhatCannotBeSetAndNamesIt) {
    configure(R"(,"helperEnvironment":["A=1"])");
    EXPECT_EQ(refusal(),
              source_.path("mount-config.json") + ": \"helperEnvironment\" must be an object whose values are strings");
    configure(R"(,"helperEnvironment":{"KEMVI_HOME":"/"})");
    EXPECT_THAT(refusal(), HasSubstr("mount-config.json: \"helperEnvironment\": KEMVI_HOME: names that begin with"));
    configure(source_, tellEnvironment, R"(,"helperCommand":"sh")", "program.mjs");
    EXPECT_THAT(refusal(), HasSubstr("helperCommand must be an array of strings"));
}

TEST_F(ToldLoading, refusesSecretsThatOthersMayRead) {
    configure("");
    writeSecrets("TOKEN=a\n", 0640);
    EXPECT_EQ(refusal(), source_.path("mount-secrets.env") + ": is open to others, and holds secrets; run: chmod 600 " +
                             source_.path("mount-secrets.env"));
    writeSecrets("TOKEN=a\nmy secret\n", 0600);
    EXPECT_THAT(refusal(), testing::AllOf(HasSubstr("mount-secrets.env: line 2: expected NAME=VALUE"),
                                          Not(HasSubstr("my secret"))));
}

TEST_F(ToldLoading, leavesAMissingConfigurationToTheLoad) {
    const Error error = load();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, foundation::NSCocoaErrorDomain);
    source_.write("mount-config.json", R"({"helperEnvironment":7})");
    EXPECT_EQ(load()->code, 4865); // a key is missing
}

TEST_F(ToldLoading, accessesTheDirectoryOnceAndUntilTheReplyIsMade) {
    configure("");
    for (const unsigned mode : {0600U, 0640U}) {
        writeSecrets("TOKEN=a\n", mode);
        const auto url = std::make_shared<ScopedURL>(source_.path(), true);
        bool replied = false;
        url->onEnd = [&] { EXPECT_TRUE(replied); };
        std::shared_ptr<fskit::FSVolume> loaded;
        fileSystem_.loadResource(std::make_shared<fskit::FSPathURLResource>(url, true), {},
                                 fskit::VolumeReply([&](auto volume, const Error&) {
                                     replied = true;
                                     loaded = std::move(volume);
                                 }));
        EXPECT_EQ(loaded != nullptr, mode == 0600U);
        EXPECT_EQ(url->begun, 1);
        EXPECT_EQ(url->ended, 1);
        if (loaded)
            dynamic_cast<fskit::FSVolumeOperations&>(*loaded).unmount(fskit::Reply<>([] {}));
    }
}

TEST_F(ToldLoading, ofAHelperThatDoesNotAnswerKeepsNoOtherWaiting) {
    configure(source_, ": > \"$KEMVI_HOME/started\"; : < \"$KEMVI_HOME/end\"\n", R"(,"helperEnvironment":{"A":"1"})");
    source_.makeNamedPipe("started");
    source_.makeNamedPipe("end");
    Error first;
    std::thread waiting([&] { first = load(); });
    { const foundation::Descriptor started(::open(source_.path("started").c_str(), O_RDONLY | O_CLOEXEC)); }
    const SourceDirectory other;
    configure(other, tellEnvironment + agreeableHelper(), "");
    EXPECT_EQ(load(other), std::nullopt);
    EXPECT_THAT("\n" + other.read("told"), Not(HasSubstr("\nA=1\n")));
    { const foundation::Descriptor end(::open(source_.path("end").c_str(), O_WRONLY | O_CLOEXEC)); }
    waiting.join();
    EXPECT_TRUE(first);
}

} // namespace
} // namespace extensiontests
