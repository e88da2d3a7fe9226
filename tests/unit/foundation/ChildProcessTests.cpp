#include "foundation/ChildProcess.h"
#include "foundation/Error.h"
#include "foundation/Pipe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using foundation::ByteBuffer;
using foundation::ChildProcess;
using foundation::NSError;
using foundation::Pipe;

// A shell script run as a child, with pipes at its standard input and output.
class Script {
public:
    explicit Script(const std::string& text, std::map<std::string, std::string> environment = {}) {
        ChildProcess::Options options;
        options.executable = "/bin/sh";
        options.arguments = {"-c", text, "sh", "an argument with  spaces"};
        options.environment = std::move(environment);
        options.standardInput = input.fileHandleForReading().fileDescriptor();
        options.standardOutput = output.fileHandleForWriting().fileDescriptor();
        process.launch(options);
        input.fileHandleForReading().close();
        output.fileHandleForWriting().close();
    }

    ~Script() {
        input.fileHandleForWriting().close();
        process.waitUntilExit();
    }

    std::string line() {
        ByteBuffer text;
        return output.fileHandleForReading().readLine(text) ? std::string(text.view()) : "<end>";
    }

    std::string everything() {
        std::string text;
        while (const auto byte = output.fileHandleForReading().readByte())
            text += static_cast<char>(*byte);
        return text;
    }

    Pipe input;
    Pipe output;
    ChildProcess process;
};

NSError launchError(const std::string& executable) {
    ChildProcess process;
    ChildProcess::Options options;
    options.executable = executable;
    try {
        process.launch(options);
    } catch (const foundation::NSErrorException& error) {
        EXPECT_EQ(process.processIdentifier(), 0);
        return error.nsError();
    }
    return {};
}

TEST(ChildProcess, readsAndWritesThroughThePipes) {
    Script script("read line; echo \"got $line\"");
    script.input.fileHandleForWriting().write("hello\n");
    EXPECT_EQ(script.line(), "got hello");
    EXPECT_EQ(script.line(), "<end>");
}

TEST(ChildProcess, passesEachArgumentAsItIs) {
    EXPECT_EQ(Script("echo \"$#:$1\"").line(), "1:an argument with  spaces");
}

TEST(ChildProcess, hasExactlyTheGivenEnvironment) {
    ::setenv("KEMVI_TEST_INHERITED", "yes", 1);
    Script script("/usr/bin/env", {{"KEMVI_A", "one two"}, {"KEMVI_EMPTY", ""}});
    ::unsetenv("KEMVI_TEST_INHERITED");
    const std::string text = "\n" + script.everything();
    EXPECT_NE(text.find("\nKEMVI_A=one two\n"), std::string::npos);
    EXPECT_NE(text.find("\nKEMVI_EMPTY=\n"), std::string::npos);
    EXPECT_EQ(text.find("KEMVI_TEST_INHERITED"), std::string::npos);
    EXPECT_EQ(text.find("\nHOME="), std::string::npos);
}

TEST(ChildProcess, inheritsTheWorkingDirectoryAndStandardError) {
    testing::internal::CaptureStderr();
    {
        Script script("pwd; echo said >&2");
        EXPECT_EQ(script.line(), std::filesystem::current_path());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "said\n");
}

TEST(ChildProcess, saysItsErrorsWhereItIsTold) {
    Pipe input;
    Pipe output;
    Pipe errors;
    ChildProcess process;
    process.launch({"/bin/sh",
                    {"-c", "echo said >&2"},
                    {},
                    input.fileHandleForReading().fileDescriptor(),
                    output.fileHandleForWriting().fileDescriptor(),
                    errors.fileHandleForWriting().fileDescriptor()});
    process.waitUntilExit();
    std::array<char, 16> text{};
    const auto count = ::read(errors.fileHandleForReading().fileDescriptor(), text.data(), text.size());
    EXPECT_EQ(std::string(text.data(), static_cast<std::size_t>(std::max<ssize_t>(0, count))), "said\n");
}

TEST(ChildProcess, getsNoOtherDescriptorNotEvenACarelessOne) {
    // Without the close-on-exec mark, and numbered clear of what the listing itself opens.
    const int careless = ::fcntl(STDERR_FILENO, F_DUPFD, 50);
    Script script("for fd in /dev/fd/*; do echo \"${fd##*/}\"; done | grep -c '^5.$'");
    EXPECT_EQ(script.line(), "0");
    ::close(careless);
}

TEST(ChildProcess, seesTheEndOfItsInputWhenOurEndCloses) {
    Script script("cat; echo done");
    script.input.fileHandleForWriting().close();
    EXPECT_EQ(script.line(), "done");
}

TEST(ChildProcess, hasAProcessGroupOfItsOwn) {
    Script script("read line");
    EXPECT_EQ(::getpgid(script.process.processIdentifier()), script.process.processIdentifier());
}

TEST(ChildProcess, startsWithSignalsAtTheirDefaultsAndNoneBlocked) {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    Script script("kill -PIPE $$; kill -TERM $$; read line; echo survived");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    script.input.fileHandleForWriting().close();
    EXPECT_EQ(script.line(), "<end>");
}

TEST(ChildProcess, saysThatTheProgramDoesNotExist) {
    const NSError error = launchError("/nonexistent/program");
    EXPECT_EQ(error.domain, foundation::NSCocoaErrorDomain);
    EXPECT_EQ(error.code, 4);
    EXPECT_EQ(error.localizedDescription, "the program /nonexistent/program does not exist");
}

TEST(ChildProcess, reportsAnyOtherLaunchErrorWithItsMacOSNumber) {
    const NSError error = launchError("/etc/passwd");
    EXPECT_EQ(error.domain, foundation::NSPOSIXErrorDomain);
    EXPECT_EQ(error.code, 13);
}

TEST(ChildProcess, canBeWaitedForAgainAndFromSeveralThreads) {
    Script script("read line");
    std::thread first([&] { script.process.waitUntilExit(); });
    std::thread second([&] { script.process.waitUntilExit(); });
    EXPECT_TRUE(script.process.isRunning());
    script.input.fileHandleForWriting().close();
    first.join();
    second.join();
    script.process.waitUntilExit();
    EXPECT_FALSE(script.process.isRunning());
}

TEST(ChildProcess, thatWasNeverLaunchedIsNotWaitedFor) {
    ChildProcess process;
    process.waitUntilExit();
    EXPECT_FALSE(process.isRunning());
    EXPECT_EQ(process.processIdentifier(), 0);
}

TEST(ChildProcess, knowsThatItExitedWithoutBeingWaitedFor) {
    Script script("exit 3");
    EXPECT_EQ(script.line(), "<end>"); // its output closes when it exits
    siginfo_t information{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(script.process.processIdentifier()), &information, WEXITED | WNOWAIT),
              0);
    EXPECT_FALSE(script.process.isRunning());
}

TEST(ChildProcess, tellsWhatItExitedWith) {
    Script script("read line; exit 3");
    EXPECT_EQ(script.process.exitStatus(), std::nullopt);
    script.input.fileHandleForWriting().close();
    script.process.waitUntilExit();
    const auto status = script.process.exitStatus();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->code(), 3);
    EXPECT_EQ(status->signal(), std::nullopt);
    EXPECT_EQ(status->description(), "exited with status 3");
    EXPECT_EQ(script.process.exitStatus(), status);
}

TEST(ChildProcess, tellsWhichSignalEndedItWithoutBeingWaitedFor) {
    Script script("kill -KILL $$");
    siginfo_t information{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(script.process.processIdentifier()), &information, WEXITED | WNOWAIT),
              0);
    const auto status = script.process.exitStatus();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->code(), std::nullopt);
    EXPECT_EQ(status->signal(), SIGKILL);
    EXPECT_EQ(status->description(), "was killed by signal 9 (Killed)");
}

TEST(ChildProcess, hasNoExitStatusBeforeItIsLaunchedNorIfSomebodyElseTookIt) {
    EXPECT_EQ(ChildProcess().exitStatus(), std::nullopt);
    Script script("exit 3");
    ASSERT_EQ(::waitpid(script.process.processIdentifier(), nullptr, 0), script.process.processIdentifier());
    script.process.waitUntilExit();
    EXPECT_FALSE(script.process.isRunning());
    EXPECT_EQ(script.process.exitStatus(), std::nullopt);
}

TEST(ChildProcess, keepsRunningWhenItsObjectGoesAwayAndIsCollectedLater) {
    Pipe input;
    pid_t pid = 0;
    {
        ChildProcess process;
        ChildProcess::Options options;
        options.executable = "/bin/cat";
        options.standardInput = input.fileHandleForReading().fileDescriptor();
        process.launch(options);
        pid = process.processIdentifier();
    }
    EXPECT_EQ(::kill(pid, 0), 0);
    input.fileHandleForReading().close();
    input.fileHandleForWriting().close();
    siginfo_t information{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &information, WEXITED | WNOWAIT), 0);
    Script("exit 0"); // a later launch takes its status from the process table
    EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, howItEndedCanStillBeAskedWhenItsObjectHasGone) {
    siginfo_t information{};
    pid_t pid = 0;
    {
        ChildProcess process;
        ChildProcess::Options options;
        options.executable = "/bin/sh";
        options.arguments = {"-c", "exit 3"};
        process.launch(options);
        pid = process.processIdentifier();
        ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &information, WEXITED | WNOWAIT), 0);
    }
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(pid), &information, WEXITED | WNOWAIT | WNOHANG), 0);
    EXPECT_EQ(information.si_pid, pid);
    EXPECT_EQ(information.si_status, 3);
}

TEST(ChildProcess, findsAProgramAlongThePath) {
    Pipe output;
    ChildProcess process;
    ChildProcess::Options options;
    options.executable = "sh";
    options.arguments = {"-c", "echo found"};
    options.standardOutput = output.fileHandleForWriting().fileDescriptor();
    process.launch(options);
    output.fileHandleForWriting().close();
    ByteBuffer line;
    ASSERT_TRUE(output.fileHandleForReading().readLine(line));
    EXPECT_EQ(line.view(), "found");
    process.waitUntilExit();
}

TEST(ChildProcess, tellsOfAProgramThatIsNotAlongThePath) {
    ChildProcess process;
    ChildProcess::Options options;
    options.executable = "unmistakable-program";
    try {
        process.launch(options);
        ADD_FAILURE() << "it was launched";
    } catch (const foundation::NSErrorException& error) {
        EXPECT_EQ(error.nsError().domain, foundation::NSCocoaErrorDomain);
        EXPECT_EQ(error.nsError().code, 4);
    }
}

} // namespace
