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

Supervisor::Supervisor(HelperProcesses& helpers, const fusehost::MountOptions& options)
    : helpers_(helpers), options_(options) {}

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

bool Supervisor::isEnd(const foundation::ErrorOrigin& origin) const noexcept {
    return origin.state == kemvi::helperGoneState;
}

bool Supervisor::hasEnded() const noexcept {
    return helpers_.ended() || helpers_.isGone();
}

void Supervisor::leaving() noexcept {
    isRestarting_ = true;
    isLeaving_ = true;
    setDeadline(Clock::now() + grace);
}

bool Supervisor::settle() noexcept {
    isRestarting_ = true;
    setDeadline(std::nullopt);
    const bool wasTold = std::exchange(isLeaving_, false);
    bool isInOrder = false;
    fusehost::quietly("ending the helper", [&] {
        const HelperProcesses::Ending ending = helpers_.endLast(afterEndOfOutput);
        lastProblem_ = ending.description;
        isInOrder = wasTold && ending.status && ending.status->code() == 0;
    });
    return isInOrder;
}

std::optional<milliseconds> Supervisor::pause() noexcept {
    std::optional<milliseconds> pause;
    fusehost::quietly("deciding about a restart", [&] {
        const std::lock_guard guard(lock_);
        if (options_.onDeath == OnDeath::restart)
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
    fusehost::quietly("telling of a failed start", [&] {
        const HelperProcesses::Ending ending = helpers_.endLast(afterEndOfOutput);
        lastProblem_ = "the helper could not be started anew: " + error.description();
        if (!ending.description.empty())
            lastProblem_ += " (" + ending.description + ")";
    });
}

void Supervisor::renewed() noexcept {
    isRestarting_ = false;
    fusehost::quietly("telling of a restart", [&] {
        {
            const std::lock_guard guard(lock_);
            limit_.began(Clock::now());
            deadline_.reset();
        }
        logger().warning({"the helper was started anew (pid ",
                          foundation::logPublic(std::to_string(helpers_.pid().value_or(0))), ")"});
    });
    finish({});
}

void Supervisor::gaveUp() noexcept {
    isRestarting_ = false;
    fusehost::quietly("giving up", [&] {
        const std::lock_guard guard(lock_);
        if (options_.onDeath == OnDeath::fail) {
            logger().error({"operations fail with \"Input/output error\" from here on"});
        } else {
            verdict_ = options_.onDeath == OnDeath::exit ? ExitCode::helperEnded : ExitCode::helperKeepsEnding;
            if (host_ != nullptr)
                host_->requestStop();
        }
    });
    finish(lastProblem_);
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
