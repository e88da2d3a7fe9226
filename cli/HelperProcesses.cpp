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
    const auto started = std::make_shared<Helper>(Helper{helper, HeldProcess(helper->processIdentifier())});
    const std::lock_guard lock(mutex_);
    watch_.guard(started->held);
    helpers_.push_back(started);
    ++starts_;
    if (companion_ != nullptr)
        companion_->began(started->held.pid());
}

void HelperProcesses::helperEnded(const std::shared_ptr<foundation::ChildProcess>& helper,
                                  const std::string&) noexcept {
    const std::lock_guard lock(mutex_);
    if (companion_ != nullptr)
        companion_->ended(helper->processIdentifier());
    for (const auto& known : helpers_)
        if (known->child == helper)
            known->ended = true;
}

std::shared_ptr<const HelperProcesses::Helper> HelperProcesses::current() const {
    const std::lock_guard lock(mutex_);
    return helpers_.empty() ? nullptr : helpers_.back();
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
