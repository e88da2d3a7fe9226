#include "cli/Supervisor.h"

#include "foundation/Error.h"
#include "foundation/Log.h"
#include "helper/HelperExchange.h"
#include "hosts/fuse/FuseHost.h"
#include "hosts/fuse/calls/Quietly.h"

#include <sstream>
#include <utility>

namespace cli {

using fusehost::OnDeath;
using std::chrono::milliseconds;

namespace {

using namespace std::chrono_literals;

/// What a helper gets to finish what it does, or to end, when it is to be started anew.
constexpr auto grace = 5s;
/// What one gets whose output has ended and that still runs.
constexpr Patience afterEndOfOutput{500ms, 500ms};
/// The same for one whose answers are out of step: nothing has told it to end.
constexpr Patience afterBreach{0ms, 500ms};

const foundation::Logger& logger() {
    static const auto* const instance = new foundation::Logger("kemvi", "Supervisor");
    return *instance;
}

std::string inSeconds(milliseconds time) {
    std::ostringstream text;
    text << std::chrono::duration<double>(time).count() << " s";
    return text.str();
}

} // namespace

Supervisor::Supervisor(HelperProcesses& helpers, const fusehost::MountOptions& options, Files files)
    : helpers_(helpers), options_(options), files_(files) {}

void Supervisor::use(fusehost::FuseHost* host) {
    {
        const std::lock_guard guard(lock_);
        host_ = host;
        if (host_ != nullptr)
            limit_.began(Clock::now());
    }
    if (host == nullptr)
        finish("the mount ends");
}

void Supervisor::restart(fusehost::KernelCaches caches, Outcome outcome) {
    const std::lock_guard guard(lock_);
    if (host_ == nullptr) {
        outcome("the mount is not served");
        return;
    }
    outcomes_.push_back(std::move(outcome));
    restartWithLock(caches);
}

void Supervisor::restartAfter(const std::string& change) {
    const std::lock_guard guard(lock_);
    if (host_ == nullptr)
        return;
    change_ = Change{change, Clock::now()};
    restartWithLock(fusehost::KernelCaches::drop);
}

void Supervisor::restartWithLock(fusehost::KernelCaches caches) {
    limit_.forget();
    // Where it hangs nothing else would ever let the restart begin.
    if (!deadline_)
        deadline_ = Clock::now() + grace;
    host_->restart(caches);
}

void Supervisor::helperGone() {
    const std::lock_guard guard(lock_);
    if (host_ != nullptr)
        host_->lookAtVolume();
}

std::optional<Supervisor::Clock::time_point> Supervisor::deadline() const {
    const std::lock_guard guard(lock_);
    return deadline_;
}

void Supervisor::setDeadline(std::optional<Clock::time_point> deadline) {
    const std::lock_guard guard(lock_);
    deadline_ = deadline;
}

void Supervisor::deadlinePassed() {
    setDeadline(std::nullopt);
    logger().error({"the helper does not come to an end within ", foundation::logPublic(inSeconds(grace)),
                    ", and is killed to be started anew"});
    helpers_.kill();
}

void Supervisor::endLateHelper(milliseconds limit) {
    logger().error({"the helper (pid ", foundation::logPublic(std::to_string(helpers_.pid().value_or(0))),
                    ") has not answered for ", foundation::logPublic(inSeconds(limit)),
                    " (op_timeout), and is killed"});
    helpers_.kill();
}

std::optional<ExitCode> Supervisor::verdict() const {
    const std::lock_guard guard(lock_);
    return verdict_;
}

// A helper whose answers are out of step lives, and stays so until it is ended.
bool Supervisor::isEnd(const foundation::ErrorOrigin& origin) noexcept {
    if (origin.state == kemvi::helperGoneState)
        return true;
    if (!origin.state.starts_with(kemvi::outOfStepStateBeginning))
        return false;
    fusehost::quietly("taking note of a breach", [&] {
        const std::lock_guard guard(lock_);
        if (breach_.empty()) // the first is where it began
            breach_ = origin.state + " (" + origin.operation + ")";
    });
    return true;
}

bool Supervisor::isOutOfStep() const {
    const std::lock_guard guard(lock_);
    return !breach_.empty();
}

std::string Supervisor::breach() const {
    const std::lock_guard guard(lock_);
    return breach_;
}

std::string Supervisor::takeBreach() {
    const std::lock_guard guard(lock_);
    return std::exchange(breach_, {});
}

bool Supervisor::hasEnded() const noexcept {
    return helpers_.ended() || helpers_.isGone() || isOutOfStep();
}

void Supervisor::leaving() noexcept {
    isRestarting_ = true;
    isLeaving_ = true;
    setDeadline(Clock::now() + grace);
}

bool Supervisor::settle() noexcept {
    const bool wasTold = std::exchange(isLeaving_, false);
    startFailed_ = isRestarting_.exchange(true) && !wasTold; // it was one that served nothing yet
    setDeadline(std::nullopt);
    if (!startFailed_)
        takeReason();
    bool isInOrder = false;
    fusehost::quietly("ending the helper", [&] {
        const std::string breach = takeBreach();
        const HelperProcesses::Ending ending = helpers_.endLast(breach.empty() ? afterEndOfOutput : afterBreach);
        lastProblem_ = startFailed_ ? failedStart() + ending.description : ending.description;
        if (!breach.empty())
            lastProblem_ += ": " + breach;
        isInOrder = wasTold && ending.status && ending.status->code() == 0;
    });
    return isInOrder;
}

void Supervisor::takeReason() {
    const std::lock_guard guard(lock_);
    reason_ = std::exchange(change_, std::nullopt);
}

std::string Supervisor::failedStart() const {
    return (reason_ ? reason_->text + ": " : std::string()) + "the helper could not be started anew: ";
}

std::optional<milliseconds> Supervisor::pause() noexcept {
    std::optional<milliseconds> pause;
    fusehost::quietly("deciding about a restart", [&] {
        const std::lock_guard guard(lock_);
        // The next attempt with the same files would fail as well.
        if (options_.onDeath == OnDeath::restart && !(startFailed_ && files_ == Files::watched))
            pause = limit_.failed(Clock::now());
        if (pause)
            logger().error({foundation::logPublic(lastProblem_), "; it is started anew in ",
                            foundation::logPublic(inSeconds(*pause))});
        else
            logger().error({foundation::logPublic(lastProblem_)});
    });
    return pause;
}

void Supervisor::loadFailed(const foundation::NSError& error) noexcept {
    startFailed_ = true;
    fusehost::quietly("telling of a failed start", [&] {
        const HelperProcesses::Ending ending = helpers_.endLast(afterEndOfOutput);
        lastProblem_ = failedStart() + error.description();
        if (!ending.description.empty())
            lastProblem_ += " (" + ending.description + ")";
    });
}

void Supervisor::renewed() noexcept {
    isRestarting_ = false;
    fusehost::quietly("telling of a restart", [&] {
        {
            const std::lock_guard guard(lock_);
            breach_.clear(); // of the one before, met while it was ended
            limit_.began(Clock::now());
            deadline_.reset();
        }
        std::string line = reason_ ? reason_->text + ": " : std::string();
        line += "the helper was started anew (pid " + std::to_string(helpers_.pid().value_or(0));
        if (reason_) {
            const auto took = std::chrono::duration_cast<milliseconds>(Clock::now() - reason_->seen);
            line += ", " + std::to_string(took.count()) + " ms";
        }
        logger().warning({foundation::logPublic(line + ")")});
    });
    finish({});
}

/// A helper that ends by itself ends the mount where that is asked for; one that is just being written does not.
bool Supervisor::waitsForChange() const {
    return files_ == Files::watched && (startFailed_ || options_.onDeath != OnDeath::exit);
}

void Supervisor::gaveUp() noexcept {
    isRestarting_ = false;
    fusehost::quietly("giving up", [&] {
        const std::lock_guard guard(lock_);
        if (waitsForChange()) {
            logger().error({"operations fail with \"Input/output error\" until the helper's files change"});
        } else if (options_.onDeath == OnDeath::fail) {
            logger().error({"operations fail with \"Input/output error\" from here on"});
        } else {
            verdict_ = options_.onDeath == OnDeath::exit ? ExitCode::helperEnded : ExitCode::helperKeepsEnding;
            if (host_ != nullptr)
                host_->requestStop();
        }
    });
    finish(lastProblem_);
}

void Supervisor::failedAtLast() noexcept {
    fusehost::quietly("telling of a loss", [&] {
        logger().error(
            {foundation::logPublic(lastProblem_), ", at the end of the mount; what was not safe by then may be lost"});
        const std::lock_guard guard(lock_);
        if (!verdict_)
            verdict_ = options_.onDeath == OnDeath::exit ? ExitCode::helperEnded : ExitCode::failure;
    });
}

void Supervisor::finish(const std::string& problem) noexcept {
    fusehost::quietly("answering who asked for a restart", [&] {
        std::vector<Outcome> outcomes;
        {
            const std::lock_guard guard(lock_);
            outcomes = std::exchange(outcomes_, {});
        }
        for (const Outcome& outcome : outcomes)
            outcome(problem);
    });
}

} // namespace cli
