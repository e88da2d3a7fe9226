// What a supervisor decides, without a mount: of limits, of the order in which a helper has ended, and of what comes
// then.

#include "Shell.h"
#include "cli/Supervisor.h"
#include "foundation/NSError.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>

namespace {

using namespace std::chrono_literals;
using cli::DeathWatch;
using cli::ExitCode;
using cli::HelperProcesses;
using cli::Supervisor;
using clitests::Shell;
using fusehost::OnDeath;

constexpr auto longEnough = 20s;

class SupervisionRules : public testing::Test {
protected:
    void start(const Shell& shell) { helpers_.helperStarted(shell.child); }

    void startAndEnd(const char* script) {
        const Shell shell(script);
        start(shell);
        shell.child->waitUntilExit(); // or it would be killed with the shell
        helpers_.helperEnded(shell.child, "");
    }

    DeathWatch watch_{cli::Patience{longEnough, longEnough}};
    HelperProcesses helpers_{watch_};
    fusehost::MountOptions options_;
    Supervisor supervisor_{helpers_, options_};
};

TEST_F(SupervisionRules, aHelperThatIsToldToEndHasFiveSecondsForIt) {
    startAndEnd("exit 0");
    EXPECT_EQ(supervisor_.deadline(), std::nullopt);
    const auto before = Supervisor::Clock::now();
    supervisor_.leaving();
    ASSERT_TRUE(supervisor_.deadline());
    EXPECT_GE(*supervisor_.deadline(), before + 5s);
    EXPECT_LE(*supervisor_.deadline(), Supervisor::Clock::now() + 5s);
    EXPECT_TRUE(supervisor_.isRestarting());
    supervisor_.settle();
    EXPECT_EQ(supervisor_.deadline(), std::nullopt) << "it has ended: nothing is to be killed any more";
}

TEST_F(SupervisionRules, aDeadlineThatHasPassedIsKeptOnce) {
    Shell shell("while :; do sleep 0.01; done");
    start(shell);
    supervisor_.leaving();
    supervisor_.deadlinePassed();
    EXPECT_EQ(supervisor_.deadline(), std::nullopt) << "or it would be the next helper's end";
    ASSERT_TRUE(helpers_.held()->waitGone(longEnough));
    EXPECT_FALSE(supervisor_.settle()) << "it was killed";
}

TEST_F(SupervisionRules, aHelperThatServesHasNoDeadline) {
    Shell shell("read -r line");
    start(shell);
    supervisor_.leaving();
    supervisor_.renewed();
    EXPECT_EQ(supervisor_.deadline(), std::nullopt);
    EXPECT_FALSE(supervisor_.isRestarting());
    shell.endInput();
}

TEST_F(SupervisionRules, anEndIsInOrderIfItWasAskedForAndWithoutAnError) {
    startAndEnd("exit 0");
    EXPECT_FALSE(supervisor_.settle()) << "nobody had asked for it";
    startAndEnd("exit 0");
    supervisor_.leaving();
    EXPECT_TRUE(supervisor_.settle());
    startAndEnd("exit 1");
    supervisor_.leaving();
    EXPECT_FALSE(supervisor_.settle());
    startAndEnd("exit 0");
    EXPECT_FALSE(supervisor_.settle()) << "what was asked of one is asked of no other";
}

TEST_F(SupervisionRules, onlyWhoWantsThatGetsAnotherAttempt) {
    for (const auto onDeath : {OnDeath::fail, OnDeath::exit}) {
        options_.onDeath = onDeath;
        EXPECT_EQ(supervisor_.pause(), std::nullopt);
    }
    options_.onDeath = OnDeath::restart;
    EXPECT_EQ(supervisor_.pause(), 100ms);
    EXPECT_EQ(supervisor_.pause(), 200ms);
}

TEST_F(SupervisionRules, aHelperThatCouldNotBeLoadedDoesNotStay) {
    Shell shell("trap '' TERM; echo ready; while :; do sleep 0.01; done");
    EXPECT_EQ(shell.line(), "ready");
    start(shell);
    supervisor_.loadFailed(foundation::NSError{"protocol", 1, std::nullopt, "no answer"});
    EXPECT_TRUE(helpers_.isGone());
}

TEST_F(SupervisionRules, theVerdictIsThatOfTheOption) {
    options_.onDeath = OnDeath::fail;
    startAndEnd("exit 1");
    supervisor_.settle();
    supervisor_.gaveUp();
    EXPECT_EQ(supervisor_.verdict(), std::nullopt) << "the mount goes on, and fails";
    EXPECT_FALSE(supervisor_.isRestarting());
    options_.onDeath = OnDeath::exit;
    supervisor_.gaveUp();
    EXPECT_EQ(supervisor_.verdict(), ExitCode::helperEnded);
    options_.onDeath = OnDeath::restart;
    supervisor_.gaveUp();
    EXPECT_EQ(supervisor_.verdict(), ExitCode::helperKeepsEnding);
}

TEST_F(SupervisionRules, whereNothingIsServedNothingIsStartedAnew) {
    std::string problem;
    supervisor_.restart(fusehost::KernelCaches::drop, [&](const std::string& why) { problem = why; });
    EXPECT_EQ(problem, "the mount is not served");
    supervisor_.helperGone(); // and it does no harm
    EXPECT_EQ(supervisor_.deadline(), std::nullopt);
}

TEST_F(SupervisionRules, aHelperIsOverWhenItIsGoneThoughNothingWasReadOfThat) {
    Shell shell("read -r line");
    start(shell);
    EXPECT_FALSE(supervisor_.hasEnded());
    shell.endInput();
    ASSERT_TRUE(helpers_.held()->waitGone(longEnough));
    EXPECT_FALSE(helpers_.ended());
    EXPECT_TRUE(supervisor_.hasEnded());
}

} // namespace
