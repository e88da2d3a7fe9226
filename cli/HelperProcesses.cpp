#include "cli/HelperProcesses.h"

#include <chrono>
#include <csignal>
#include <utility>

namespace cli {

namespace {

using namespace std::chrono_literals;

constexpr Patience afterEndOfInput{300ms, 700ms};
constexpr auto graceAfterEndOfOutput = 500ms; // a process that ends closes its output a little earlier

} // namespace

HelperProcesses::~HelperProcesses() {
    std::vector<HeldProcess> held;
    for (const auto& helper : helpers_)
        held.push_back(std::move(helper->held));
    endProcesses(held, afterEndOfInput);
    for (const auto& helper : helpers_)
        helper->child->waitUntilExit();
}

void HelperProcesses::helperStarted(const std::shared_ptr<foundation::ChildProcess>& helper) noexcept {
    // The number is still its own: nobody has waited for it yet.
    const auto started = std::make_shared<Helper>(helper, HeldProcess(helper->processIdentifier()));
    const std::lock_guard lock(mutex_);
    watch_.guard(started->held);
    // Those before it that have gone, and whose exit is collected: a mount may see very many helpers.
    std::erase_if(helpers_, [](const auto& earlier) { return earlier->held.gone() && !earlier->child->isRunning(); });
    helpers_.push_back(started);
    ++starts_;
    started_.signal();
    if (companion_ != nullptr)
        companion_->began(started->held.pid());
}

void HelperProcesses::helperEnded(const std::shared_ptr<foundation::ChildProcess>& helper,
                                  const std::string& lastRequest) noexcept {
    const std::lock_guard lock(mutex_);
    if (companion_ != nullptr)
        companion_->ended(helper->processIdentifier());
    for (const auto& known : helpers_)
        if (known->child == helper) {
            known->ended = true;
            known->lastRequest = lastRequest;
        }
}

std::shared_ptr<const HelperProcesses::Helper> HelperProcesses::current() const {
    const std::lock_guard lock(mutex_);
    return helpers_.empty() ? nullptr : helpers_.back();
}

std::shared_ptr<const HeldProcess> HelperProcesses::held() const {
    const auto helper = current();
    return helper ? std::shared_ptr<const HeldProcess>(helper, &helper->held) : nullptr;
}

bool HelperProcesses::isGone() const {
    const auto helper = current();
    return helper && helper->held.gone();
}

HelperProcesses::Ending HelperProcesses::endLast(Patience patience) {
    const auto helper = current();
    if (!helper)
        return {};
    const HeldProcess& held = helper->held;
    std::string description = "the helper (pid " + std::to_string(held.pid()) + ") ";
    const bool hadToBeEnded = !held.waitGone(patience.alone);
    if (hadToBeEnded) {
        held.signalGroup(SIGTERM);
        if (!held.waitGone(patience.afterTermination))
            held.signalGroup(SIGKILL);
        held.waitGone();
    }
    held.signalGroup(SIGKILL); // what it has left behind must not go on beside the next one
    helper->child->waitUntilExit();
    const auto status = helper->child->exitStatus();
    const std::lock_guard lock(mutex_);
    if (hadToBeEnded)
        description += helper->ended ? "had closed its output and was ended" : "was ended";
    else
        description += status ? status->description() : "has ended";
    if (!helper->lastRequest.empty())
        description += " while it was asked for " + helper->lastRequest;
    return {hadToBeEnded ? std::nullopt : status, std::move(description)};
}

std::optional<pid_t> HelperProcesses::pid() const {
    const auto helper = current();
    return helper ? std::optional(helper->held.pid()) : std::nullopt;
}

std::uint64_t HelperProcesses::restarts() const {
    const std::lock_guard guard(mutex_);
    return starts_ > 0 ? starts_ - 1 : 0;
}

void HelperProcesses::kill() const {
    const std::lock_guard lock(mutex_);
    for (const auto& helper : helpers_)
        helper->held.signalGroup(SIGKILL);
}

bool HelperProcesses::ended() const {
    const std::lock_guard lock(mutex_);
    return !helpers_.empty() && helpers_.back()->ended;
}

std::optional<foundation::ExitStatus> HelperProcesses::exitStatus() const {
    const auto helper = current();
    return helper && helper->held.waitGone(graceAfterEndOfOutput) ? helper->child->exitStatus() : std::nullopt;
}

std::optional<foundation::ExitStatus> HelperProcesses::knownExitStatus() const {
    const auto helper = current();
    return helper ? helper->child->exitStatus() : std::nullopt;
}

std::string HelperProcesses::afterEndOfOutput() const {
    if (!ended())
        return {};
    const auto helper = current();
    const std::string name = "the helper (pid " + std::to_string(helper->held.pid()) + ") ";
    if (!helper->held.waitGone(graceAfterEndOfOutput))
        return name + "has closed its output but still runs";
    const auto status = helper->child->exitStatus();
    return name + (status ? status->description() : "has ended");
}

} // namespace cli
