#include "cli/Supervisor.h"
#include "support/RecordingLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using cli::ExitCode;
using cli::Supervisor;
using fusehost::OnDeath;
using testing::Contains;
using testing::HasSubstr;

/// A supervisor as the host's serving thread asks it.
class Supervisors : public testing::Test {
protected:
    Supervisor& supervisor(OnDeath onDeath, Supervisor::Files files) {
        options_.onDeath = onDeath;
        return supervisor_.emplace(helpers_, options_, files);
    }

    static void failToStart(Supervisor& supervisor) {
        supervisor.settle();
        supervisor.loadFailed(foundation::NSError::posix(5, "it said nothing"));
    }

    testsupport::RecordingLog log;

private:
    cli::DeathWatch watch_{cli::Patience{20s, 20s}};
    cli::HelperProcesses helpers_{watch_};
    fusehost::MountOptions options_;
    std::optional<Supervisor> supervisor_;
};

class WatchingSupervisors : public Supervisors, public testing::WithParamInterface<OnDeath> {};

TEST_P(WatchingSupervisors, keepTheMountWhereAStartFails) {
    Supervisor& watching = supervisor(GetParam(), Supervisor::Files::watched);
    failToStart(watching);
    EXPECT_EQ(watching.pause(), std::nullopt) << "the same files would fail again";
    watching.gaveUp();
    EXPECT_EQ(watching.verdict(), std::nullopt);
    EXPECT_THAT(log.texts(), Contains(HasSubstr("it said nothing")));
    EXPECT_THAT(log.texts(), Contains(HasSubstr("until the helper's files change")));
}

INSTANTIATE_TEST_SUITE_P(OnDeath, WatchingSupervisors, testing::Values(OnDeath::fail, OnDeath::exit, OnDeath::restart));

TEST_F(Supervisors, thatWatchEndTheMountWithAHelperThatEndsByItselfIfThatIsAskedFor) {
    Supervisor& watching = supervisor(OnDeath::exit, Supervisor::Files::watched);
    failToStart(watching);
    watching.gaveUp();
    watching.settle(); // another one had started, and has ended
    EXPECT_EQ(watching.pause(), std::nullopt);
    watching.gaveUp();
    EXPECT_EQ(watching.verdict(), ExitCode::helperEnded);
}

TEST_F(Supervisors, thatWatchKeepTheMountWhereHelpersEndAgainAndAgain) {
    Supervisor& watching = supervisor(OnDeath::restart, Supervisor::Files::watched);
    int pauses = 0;
    for (watching.settle(); watching.pause(); watching.settle()) {
        watching.renewed();
        ++pauses;
    }
    EXPECT_EQ(pauses, 9);
    watching.gaveUp();
    EXPECT_EQ(watching.verdict(), std::nullopt);
}

TEST_P(WatchingSupervisors, takeAHelperThatServesNothingForOneThatDoesNotStart) {
    Supervisor& watching = supervisor(GetParam(), Supervisor::Files::watched);
    watching.settle();
    watching.settle(); // it answered, but not as a helper must
    EXPECT_EQ(watching.pause(), std::nullopt);
    watching.gaveUp();
    EXPECT_EQ(watching.verdict(), std::nullopt);
    EXPECT_THAT(log.texts(), Contains(HasSubstr("could not be started anew")));
}

TEST_F(Supervisors, thatDoNotWatchEndTheMountWhereAStartFailsAgainAndAgain) {
    Supervisor& plain = supervisor(OnDeath::restart, Supervisor::Files::notWatched);
    failToStart(plain);
    EXPECT_TRUE(plain.pause());
    plain.gaveUp();
    EXPECT_EQ(plain.verdict(), ExitCode::helperKeepsEnding);
}

TEST_F(Supervisors, askNothingOfAHostThatIsNotInUse) {
    Supervisor& watching = supervisor(OnDeath::fail, Supervisor::Files::watched);
    watching.restartAfter("tree.mjs changed");
    EXPECT_EQ(watching.deadline(), std::nullopt);
}

} // namespace
