#include "cli/check/HelperGuard.h"

#include "cli/DeathWatch.h"
#include "cli/HeldProcess.h"

#include <chrono>
#include <csignal>

namespace cli::check {

namespace {

/// What the helper gets to finish should this process be killed; one that is still there then hangs.
constexpr Patience afterOurDeath{std::chrono::seconds(1), std::chrono::seconds(1)};

} // namespace

struct HelperGuard::Parts {
    DeathWatch watch{afterOurDeath};
    HeldProcess held;
};

HelperGuard::HelperGuard(pid_t helper) : parts_(new Parts{DeathWatch(afterOurDeath), HeldProcess(helper)}) {
    parts_->watch.guard(parts_->held);
}

HelperGuard::~HelperGuard() = default;

int HelperGuard::descriptor() const {
    return parts_->held.descriptor();
}

void HelperGuard::kill() {
    parts_->held.signalGroup(SIGKILL);
}

} // namespace cli::check
