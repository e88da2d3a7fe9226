#include "ShellAsNode.h"
#include "foundation/Error.h"
#include "helper/HelperProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

namespace kemvi {
namespace {

class HelperProcesses : public testing::Test {
protected:
    HelperProcesses() { std::signal(SIGPIPE, SIG_IGN); }

    HelperProcess helper(const std::string& text) { return {node_.helper(text), node_.environment()}; }

    static std::string line(HelperProcess& helper) {
        foundation::ByteBuffer text;
        return helper.output().fileHandleForReading().readLine(text) ? std::string(text.view()) : "<end>";
    }

    static void waitUntilEnded(HelperProcess& helper) {
        siginfo_t information{};
        ASSERT_EQ(
            ::waitid(P_PID, static_cast<id_t>(helper.child()->processIdentifier()), &information, WEXITED | WNOWAIT),
            0);
    }

    // The error of a start that fails.
    static foundation::NSError startError(HelperProcess& helper) {
        try {
            helper.start();
        } catch (const foundation::Error& error) {
            EXPECT_EQ(helper.child()->processIdentifier(), 0);
            EXPECT_FALSE(helper.child()->isRunning());
            EXPECT_EQ(helper.child()->exitStatus(), std::nullopt);
            return error.nsError();
        }
        ADD_FAILURE() << "it was started";
        helper.stop();
        return {};
    }

    ShellAsNode node_;
};

TEST_F(HelperProcesses, runNodeWithTheScriptAloneAndTheGivenEnvironment) {
    auto started = helper("echo \"$#|$0|$KEMVI_TEST|$HOME\"");
    started.start();
    EXPECT_EQ(line(started), "0|" + started.helperPath() + "|told|");
    EXPECT_EQ(line(started), "<end>") << "no end of its output is left open here";
    started.stop();
}

TEST_F(HelperProcesses, areSpokenToThroughThePipes) {
    auto started = helper("read -r request; echo \"got $request\"");
    started.start();
    EXPECT_TRUE(started.input().fileHandleForWriting().write("a request\n"));
    EXPECT_EQ(line(started), "got a request");
    started.stop();
}

TEST_F(HelperProcesses, sayTheirErrorsWhereTheyAreTold) {
    foundation::Pipe errors;
    auto started = helper("echo said >&2");
    started.start(errors.fileHandleForWriting().fileDescriptor());
    started.stop();
    errors.fileHandleForWriting().close();
    foundation::ByteBuffer text;
    ASSERT_TRUE(errors.fileHandleForReading().readLine(text));
    EXPECT_EQ(text.view(), "said");
}

TEST_F(HelperProcesses, endWhenTheirInputEndsAndTellWhatTheyExitedWith) {
    auto started = helper("while read -r request; do :; done; exit 3");
    started.start();
    EXPECT_TRUE(started.child()->isRunning());
    EXPECT_EQ(started.child()->exitStatus(), std::nullopt);
    started.stop();
    ASSERT_TRUE(started.child()->exitStatus());
    EXPECT_EQ(started.child()->exitStatus()->code(), 3);
    started.stop(); // again
    EXPECT_EQ(started.child()->exitStatus()->code(), 3);
}

TEST_F(HelperProcesses, tellTheSignalThatEndedThem) {
    auto started = helper("kill -9 $$");
    started.start();
    EXPECT_EQ(line(started), "<end>");
    waitUntilEnded(started);
    ASSERT_TRUE(started.child()->exitStatus());
    EXPECT_EQ(started.child()->exitStatus()->signal(), SIGKILL);
}

TEST_F(HelperProcesses, mayCloseTheirOutputAndRunOn) {
    auto started = helper("exec >&-; read -r request");
    started.start();
    EXPECT_EQ(line(started), "<end>");
    EXPECT_TRUE(started.child()->isRunning());
    EXPECT_EQ(started.child()->exitStatus(), std::nullopt);
    started.stop();
    EXPECT_FALSE(started.child()->isRunning());
}

TEST_F(HelperProcesses, ofWhichNodeCannotBeRunExitAtOnce) {
    HelperProcess started(node_.helper("exit 0"), {{"PATH", "/nonexistent"}});
    foundation::Pipe errors; // env(1) says that it found none
    started.start(errors.fileHandleForWriting().fileDescriptor());
    started.stop();
    ASSERT_TRUE(started.child()->exitStatus());
    EXPECT_EQ(started.child()->exitStatus()->code(), 127);
}

TEST_F(HelperProcesses, areNotStartedWithAnEnvironmentTooLarge) {
    HelperProcess large(node_.helper("exit 0"), {{"LARGE", std::string(std::size_t{1} << 20, 'x')}});
    const auto error = startError(large);
    EXPECT_EQ(error.domain, foundation::NSPOSIXErrorDomain);
    EXPECT_EQ(error.code, 7); // E2BIG
}

TEST_F(HelperProcesses, areNotStartedWithoutPipes) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    HelperProcess withoutPipes("/helper.sh", {});
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    const auto error = startError(withoutPipes);
    EXPECT_EQ(error.domain, foundation::NSPOSIXErrorDomain);
    EXPECT_EQ(error.code, 24); // EMFILE
}

TEST_F(HelperProcesses, loseTheirInputWithTheirObjectButAreNotEnded) {
    std::shared_ptr<foundation::ChildProcess> child;
    {
        auto started = helper("while read -r request; do :; done; exit 4");
        started.start();
        child = started.child();
        EXPECT_TRUE(child->isRunning());
    }
    child->waitUntilExit();
    ASSERT_TRUE(child->exitStatus());
    EXPECT_EQ(child->exitStatus()->code(), 4);
}

TEST_F(HelperProcesses, areStoppedByOneThreadWhileAnotherReads) {
    auto started = helper("while read -r request; do :; done");
    started.start();
    std::thread stopper([&] { started.stop(); });
    EXPECT_EQ(line(started), "<end>");
    stopper.join();
}

} // namespace
} // namespace kemvi
