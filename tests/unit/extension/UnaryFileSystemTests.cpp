#include "SourceDirectory.h"
#include "extension/KemviFSExtension.h"
#include "extension/KemviUnaryFileSystem.h"
#include "foundation/PosixErrno.h"
#include "support/RecordingLog.h"
#include "volume/KemviVolume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <sstream>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace extensiontests {
namespace {

using Error = std::optional<foundation::NSError>;
using foundation::LogLevel;
using testing::ElementsAre;
using testing::HasSubstr;
using testsupport::RecordingLog;

constexpr const char* protocolDomain = "KemviFSExtension.AdapterError";

class OtherResource final : public fskit::FSResource {
public:
    std::string description() const override { return "something else"; }
};

struct Loaded {
    std::shared_ptr<fskit::FSVolume> volume;
    Error error;
    int replies = 0;
};

RecordingLog::Line line(LogLevel level, const std::string& text) {
    return {level, "com.kemvi.fs.extension", "FileSystem", text};
}

class UnaryFileSystem : public testing::Test {
protected:
    static void SetUpTestSuite() { std::signal(SIGPIPE, SIG_IGN); }

    std::shared_ptr<fskit::FSResource> resource() {
        return std::make_shared<fskit::FSPathURLResource>(std::make_shared<foundation::URL>(source_.path()), true);
    }

    Loaded load(const std::shared_ptr<fskit::FSResource>& resource) {
        Loaded loaded;
        fileSystem_.loadResource(resource, {}, fskit::VolumeReply([&](auto volume, Error error) {
                                     loaded.volume = std::move(volume);
                                     loaded.error = std::move(error);
                                     ++loaded.replies;
                                 }));
        EXPECT_EQ(loaded.replies, 1) << "the reply comes once, before the operation returns";
        EXPECT_EQ(loaded.volume == nullptr, loaded.error.has_value());
        return loaded;
    }

    Loaded load() { return load(resource()); }

    // Expects a load to fail and to log its error.
    foundation::NSError failedLoad() {
        const RecordingLog log;
        const Error error = load().error;
        if (!error) {
            ADD_FAILURE() << "the load succeeded";
            return {};
        }
        EXPECT_EQ(log.lines().back(), line(LogLevel::error, "loadResource failed: " + error->description()));
        return *error;
    }

    static void unmount(const Loaded& loaded) {
        bool done = false;
        dynamic_cast<fskit::FSVolumeOperations&>(*loaded.volume).unmount(fskit::Reply<>([&] { done = true; }));
        EXPECT_TRUE(done);
    }

    static fskit::FSProbeResult probe(fskit::FSUnaryFileSystem& fileSystem,
                                      const std::shared_ptr<fskit::FSResource>& resource) {
        std::optional<fskit::FSProbeResult> answer;
        fileSystem.probeResource(resource, fskit::ProbeReply([&](auto result, const Error& error) {
                                     answer = std::move(result);
                                     EXPECT_FALSE(error);
                                 }));
        EXPECT_TRUE(answer);
        return answer.value_or(fskit::FSProbeResult());
    }

    SourceDirectory source_;
    kemvi::KemviUnaryFileSystem fileSystem_;
};

/// Notes what it is told of helpers.
class Notes final : public kemvi::HelperObserver {
public:
    void helperStarted(const std::shared_ptr<foundation::ChildProcess>& helper) noexcept override {
        helpers.push_back(helper);
        texts.push_back("started " + std::to_string(helpers.size()));
    }

    void helperEnded(const std::shared_ptr<foundation::ChildProcess>& helper,
                     const std::string& lastRequest) noexcept override {
        const auto place = std::find(helpers.begin(), helpers.end(), helper);
        texts.push_back("ended " + std::to_string(place - helpers.begin() + 1) + " " + lastRequest);
    }

    std::vector<std::string> texts;
    std::vector<std::shared_ptr<foundation::ChildProcess>> helpers;
};

// Whoever makes the file system is told of its helpers.
class ObservedLoading : public testing::Test {
protected:
    static void SetUpTestSuite() { std::signal(SIGPIPE, SIG_IGN); }

    std::shared_ptr<fskit::FSVolume> load() {
        std::shared_ptr<fskit::FSVolume> loaded;
        fileSystem_.loadResource(
            std::make_shared<fskit::FSPathURLResource>(std::make_shared<foundation::URL>(source_.path()), true), {},
            fskit::VolumeReply([&](auto volume, const Error&) { loaded = std::move(volume); }));
        return loaded;
    }

    static void unmount(fskit::FSVolume& volume) {
        dynamic_cast<fskit::FSVolumeOperations&>(volume).unmount(fskit::Reply<>([] {}));
    }

    SourceDirectory source_;
    Notes notes_;
    kemvi::KemviUnaryFileSystem fileSystem_{notes_};
};

class Probing : public UnaryFileSystem {};

class Loading : public UnaryFileSystem {};

class FailedLoading : public UnaryFileSystem {};

class ScopedAccess : public UnaryFileSystem {
protected:
    // Loads the source directory and checks that access is ended last of all, if it was begun.
    void loadAndExpectAccessToEndLast(bool granted) {
        const auto url = std::make_shared<ScopedURL>(source_.path(), granted);
        bool replied = false;
        url->onEnd = [&] { EXPECT_TRUE(replied) << "access ended before the reply"; };
        std::shared_ptr<fskit::FSVolume> volume;
        fileSystem_.loadResource(std::make_shared<fskit::FSPathURLResource>(url, true), {},
                                 fskit::VolumeReply([&](auto made, const Error&) {
                                     volume = std::move(made);
                                     replied = true;
                                     EXPECT_EQ(url->begun, 1);
                                     EXPECT_EQ(url->ended, 0);
                                 }));
        EXPECT_TRUE(replied);
        EXPECT_EQ(url->ended, granted ? 1 : 0);
        if (volume)
            unmount({volume, {}, 1});
    }
};

class Unloading : public UnaryFileSystem {};

TEST_F(Probing, findsAnyResourceUsableWithoutLookingAtIt) {
    for (const auto& probed : {resource(), std::shared_ptr<fskit::FSResource>(std::make_shared<OtherResource>())}) {
        const fskit::FSProbeResult result = probe(fileSystem_, probed);
        EXPECT_EQ(result.result(), fskit::FSMatchResult::usable);
        EXPECT_EQ(result.name(), "Kemvi");
    }
}

TEST_F(Probing, twiceCarriesTheSameContainerIdentifier) {
    const auto first = probe(fileSystem_, resource()).containerID();
    ASSERT_TRUE(first);
    EXPECT_EQ(probe(fileSystem_, std::make_shared<OtherResource>()).containerID(), first);
}

TEST_F(Probing, throughAnotherFileSystemCarriesAnother) {
    const kemvi::KemviFSExtension extension;
    const auto first = extension.fileSystem();
    const auto second = extension.fileSystem();
    EXPECT_NE(first, second);
    EXPECT_FALSE(probe(*first, resource()).containerID() == probe(*second, resource()).containerID());
}

TEST_F(Probing, isLoggedWithoutShowingTheResource) {
    const RecordingLog log;
    probe(fileSystem_, resource());
    EXPECT_THAT(log.lines(), ElementsAre(line(LogLevel::info, "probeResource: <private>")));
}

TEST_F(Probing, showsTheResourceWherePrivateValuesAreAskedFor) {
    const RecordingLog log;
    foundation::Log::showPrivateValues(true);
    probe(fileSystem_, resource());
    foundation::Log::showPrivateValues(false);
    EXPECT_THAT(log.texts(), ElementsAre("probeResource: FSPathURLResource " + source_.path()));
}

TEST_F(Loading, givesAVolumeNamedKemviOverAHelperThatAnswers) {
    source_.configure(agreeableHelper());
    const Loaded loaded = load();
    ASSERT_TRUE(loaded.volume);
    EXPECT_EQ(loaded.volume->name().data(), "Kemvi");
    EXPECT_TRUE(std::dynamic_pointer_cast<kemvi::KemviVolume>(loaded.volume));
    unmount(loaded);
}

TEST_F(Loading, isLoggedStepByStep) {
    source_.configure(agreeableHelper());
    const RecordingLog log;
    const Loaded loaded = load();
    std::vector<RecordingLog::Line> lines = log.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[3].text, "KemviVolume init");
    lines.pop_back();
    EXPECT_THAT(lines, ElementsAre(line(LogLevel::info, "loadResource: <private>"),
                                   line(LogLevel::info,
                                        "loaded mount config driveId=drive-7 helperPath=" + source_.path("helper.sh")),
                                   line(LogLevel::info, "helper started and ping succeeded")));
    unmount(loaded);
}

TEST_F(Loading, twiceGivesTwoVolumesWithHelpersAndIdentifiersOfTheirOwn) {
    source_.configure("echo $$ >> \"$KEMVI_HOME/pids\"\n" + agreeableHelper());
    const Loaded first = load();
    const Loaded second = load();
    ASSERT_TRUE(first.volume && second.volume);
    EXPECT_FALSE(first.volume->volumeID() == second.volume->volumeID());
    EXPECT_EQ(first.volume->name(), second.volume->name());
    std::istringstream pids(source_.read("pids"));
    int one = 0;
    int other = 0;
    pids >> one >> other;
    ASSERT_GT(one, 0);
    ASSERT_GT(other, 0);
    EXPECT_NE(one, other);
    unmount(first);
    unmount(second);
    EXPECT_EQ(kill(one, 0), -1);
    EXPECT_EQ(kill(other, 0), -1);
}

TEST_F(Loading, startsTheHelperWithItsPathAsTheOnlyArgumentAndTheConfiguredEnvironment) {
    setenv("KEMVI_HOME", "/inherited", 1);
    source_.configure("printf '%s|' \"$#\" \"$KEMVI_DRIVE_ID\" \"$KEMVI_HOME\" \"$KEMVI_REPO_ROOT\" > \"$0.seen\"\n" +
                      agreeableHelper());
    const Loaded loaded = load();
    unsetenv("KEMVI_HOME");
    ASSERT_TRUE(loaded.volume);
    EXPECT_EQ(source_.read("helper.sh.seen"), "0|drive-7|" + source_.path() + "|" + source_.path() + "|");
    unmount(loaded);
}

TEST_F(Loading, acceptsADirectoryWithASlashAtItsEnd) {
    source_.configure(agreeableHelper());
    const auto url = std::make_shared<foundation::URL>(source_.path() + "/");
    const Loaded loaded = load(std::make_shared<fskit::FSPathURLResource>(url, true));
    ASSERT_TRUE(loaded.volume);
    unmount(loaded);
}

TEST_F(Loading, throwsThePingsResultAway) {
    source_.configure(std::string(answerFunction) + "answer '\"ok\":true,\"result\":[1,\"pong\"]'\nread -r end\n");
    const Loaded loaded = load();
    ASSERT_TRUE(loaded.volume);
    unmount(loaded);
}

TEST_F(FailedLoading, ofAResourceThatIsNoPathIsInvalidAndLogsNoFailure) {
    const RecordingLog log;
    const Loaded loaded = load(std::make_shared<OtherResource>());
    EXPECT_EQ(loaded.error, foundation::NSError::posix(foundation::posixErrno::EINVAL_,
                                                       "KemviFS requires an FSPathURLResource source directory"));
    EXPECT_THAT(log.lines(), ElementsAre(line(LogLevel::info, "loadResource: <private>")));
}

TEST_F(FailedLoading, withoutAConfigurationIsTheFileReadingError) {
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 260);
    EXPECT_THAT(error.localizedDescription.value_or(""), HasSubstr(source_.path("mount-config.json")));
}

TEST_F(FailedLoading, withAConfigurationThatMayNotBeReadIsThePermissionError) {
    source_.write("mount-config.json", "{}");
    ASSERT_EQ(chmod(source_.path("mount-config.json").c_str(), 0), 0);
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0); // permissions do not stop root
    }
    const foundation::NSError error = failedLoad();
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(error.domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 257);
    EXPECT_THAT(error.localizedDescription.value_or(""), HasSubstr("mount-config.json"));
}

TEST_F(FailedLoading, withADirectoryForAConfigurationIsAFileReadingError) {
    ASSERT_EQ(mkdir(source_.path("mount-config.json").c_str(), 0755), 0);
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 256);
}

TEST_F(FailedLoading, withANamedPipeForAConfigurationDoesNotWaitForAWriter) {
    source_.makeNamedPipe("mount-config.json");
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.code, 256);
    EXPECT_THAT(error.localizedDescription.value_or(""), HasSubstr("not a regular file"));
}

TEST_F(FailedLoading, withAConfigurationThatLacksAKeyIsTheDecodingErrorAndStartsNoHelper) {
    source_.write("mount-config.json", R"({"driveId":"d","kemviHome":"/","repoRoot":"/"})");
    const RecordingLog log;
    const Error error = load().error;
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error->code, 4865);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1].level, LogLevel::error);
    EXPECT_THAT(log.texts()[1], HasSubstr("helperPath"));
}

TEST_F(FailedLoading, withAnEmptyConfigurationIsTheDecodingError) {
    source_.write("mount-config.json", "");
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 4864);
}

TEST_F(FailedLoading, whenTheHelperCannotBeLaunchedIsTheLaunchError) {
    // One variable longer than the system hands to a program.
    source_.write("mount-config.json", R"({"driveId":")" + std::string(4 << 20, 'x') +
                                           R"(","kemviHome":"/","repoRoot":"/","helperPath":"helper.sh"})");
    const foundation::NSError error = failedLoad();
    EXPECT_TRUE(error.isPosix());
    EXPECT_EQ(error.code, foundation::posixErrno::E2BIG_);
}

TEST_F(FailedLoading, whenTheHelperExitsAtOnceIsAProtocolFault) {
    source_.configure("exit 0\n");
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.domain, protocolDomain);
    EXPECT_EQ(error.code, 2);
    EXPECT_EQ(error.description(), "helper closed stdout");
    EXPECT_FALSE(error.localizedDescription);
}

TEST_F(FailedLoading, whenTheScriptDoesNotExistIsAProtocolFault) {
    source_.configure("");
    ASSERT_EQ(unlink(source_.path("helper.sh").c_str()), 0);
    EXPECT_EQ(failedLoad().description(), "helper closed stdout");
}

TEST_F(FailedLoading, whenThePingIsAnsweredWithAnErrorIsThatError) {
    source_.configure(std::string(answerFunction) +
                      "answer '\"ok\":false,\"error\":{\"message\":\"not today\",\"code\":\"EACCES\"}'\n");
    EXPECT_EQ(failedLoad(), foundation::NSError::posix(foundation::posixErrno::EACCES_, "not today"));
}

TEST_F(FailedLoading, whenTheAnswerIsOfAnotherRequestIsAProtocolFault) {
    source_.configure("read -r request; echo '{\"id\":\"01\",\"ok\":true}'\n");
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.domain, protocolDomain);
    EXPECT_EQ(error.description(), "response id 01 did not match request id 1");
}

TEST_F(FailedLoading, whenTheAnswerIsNoResponseIsTheDecodingError) {
    source_.configure("read -r request; echo 'Hello there'\n");
    const foundation::NSError error = failedLoad();
    EXPECT_EQ(error.domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 4864);
}

TEST_F(FailedLoading, doesNotWaitForTheHelperToExit) {
    source_.makeNamedPipe("go");
    source_.makeNamedPipe("gone-on");
    source_.configure(std::string(answerFunction) + "answer '\"ok\":false'\n"
                                                    "read -r word < \"$KEMVI_HOME/go\"\n"
                                                    "echo \"$word\" > \"$KEMVI_HOME/gone-on\"\n");
    EXPECT_EQ(failedLoad().description(), "unknown helper error");
    // The helper lives on, waiting for a word from here.
    source_.write("go", "alive\n");
    EXPECT_EQ(source_.read("gone-on"), "alive\n");
}

TEST_F(ScopedAccess, endsLastOfAllAfterASuccess) {
    source_.configure(agreeableHelper());
    loadAndExpectAccessToEndLast(true);
}

TEST_F(ScopedAccess, endsLastOfAllWithoutAConfiguration) {
    loadAndExpectAccessToEndLast(true);
}

TEST_F(ScopedAccess, endsLastOfAllAfterADecodingError) {
    source_.write("mount-config.json", "[]");
    loadAndExpectAccessToEndLast(true);
}

TEST_F(ScopedAccess, endsLastOfAllWhenTheHelperFails) {
    source_.configure("exit 1\n");
    loadAndExpectAccessToEndLast(true);
}

TEST_F(ScopedAccess, thatWasNotBegunIsNotEnded) {
    source_.configure(agreeableHelper());
    loadAndExpectAccessToEndLast(false);
    source_.configure("exit 1\n");
    loadAndExpectAccessToEndLast(false);
}

TEST_F(ObservedLoading, tellsOfEachHelperThatStartsAndEnds) {
    source_.configure(agreeableHelper());
    const auto first = load();
    ASSERT_TRUE(first);
    EXPECT_THAT(notes_.texts, ElementsAre("started 1"));
    const auto second = load();
    ASSERT_TRUE(second);
    unmount(*first);
    unmount(*second);
    unmount(*second);
    EXPECT_THAT(notes_.texts, ElementsAre("started 1", "started 2", "ended 1 ", "ended 2 "));
    EXPECT_EQ(notes_.helpers.at(1)->exitStatus()->code(), 0);
}

TEST_F(ObservedLoading, tellsOfAHelperThatEndsInsteadOfAnswering) {
    source_.configure("read -r request; exit 3\n");
    EXPECT_FALSE(load());
    EXPECT_THAT(notes_.texts, ElementsAre("started 1", "ended 1 ping"));
    notes_.helpers.at(0)->waitUntilExit();
    EXPECT_EQ(notes_.helpers.at(0)->exitStatus()->code(), 3);
}

TEST_F(ObservedLoading, tellsOfNoEndWhereTheAnswerWasWrong) {
    source_.configure("read -r request; echo 'Hello there'; read -r request; exit 4\n");
    EXPECT_FALSE(load());
    EXPECT_THAT(notes_.texts, ElementsAre("started 1"));
    notes_.helpers.at(0)->waitUntilExit(); // its input has ended with the client
    EXPECT_EQ(notes_.helpers.at(0)->exitStatus()->code(), 4);
}

TEST_F(ObservedLoading, tellsNothingWhereNoHelperIsStarted) {
    EXPECT_FALSE(load());
    EXPECT_THAT(notes_.texts, testing::IsEmpty());
}

TEST_F(Unloading, completesWithoutErrorOnAnotherThreadThoughNothingWasLoaded) {
    const RecordingLog log;
    const auto completed = std::make_shared<std::promise<std::pair<Error, std::thread::id>>>();
    fileSystem_.unloadResource(resource(), {}, fskit::ErrorReply([completed](Error error) {
                                   completed->set_value({std::move(error), std::this_thread::get_id()});
                               }));
    const auto [error, thread] = completed->get_future().get();
    EXPECT_FALSE(error);
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_THAT(log.lines(), ElementsAre(line(LogLevel::info, "unloadResource")));
}

TEST_F(Unloading, leavesVolumeAndHelperAlone) {
    source_.configure(agreeableHelper());
    const Loaded loaded = load();
    ASSERT_TRUE(loaded.volume);
    std::promise<Error> completed;
    fileSystem_.unloadResource(resource(), {},
                               fskit::ErrorReply([&](Error error) { completed.set_value(std::move(error)); }));
    EXPECT_FALSE(completed.get_future().get());
    Error error;
    dynamic_cast<fskit::FSVolumeOpenCloseOperations&>(*loaded.volume)
        .openItem(std::make_shared<kemvi::KemviItem>("/a", fskit::FSItemID{9}, false, 0, std::nullopt),
                  fskit::FSVolumeOpenModes::read, fskit::ErrorReply([&](Error answer) { error = std::move(answer); }));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->description(), "open result missing handle"); // the helper answered, if not with a handle
    unmount(loaded);
}

} // namespace
} // namespace extensiontests
