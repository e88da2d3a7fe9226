#include "cli/HelperProcesses.h"

#include "cli/ProcessTable.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace cli {

namespace {

constexpr int graceAfterEndOfInput = 300;  // milliseconds
constexpr int graceAfterTermination = 700; // milliseconds
constexpr int graceAfterEndOfOutput = 500; // milliseconds; a process that ends closes its output a little earlier

} // namespace

void HelperProcesses::remember() {
    auto running = childrenOf(::getpid()).helpers;
    const std::lock_guard lock(mutex_);
    remembered_ = std::move(running);
}

std::vector<pid_t> HelperProcesses::pids() const {
    const std::lock_guard lock(mutex_);
    return remembered_ ? *remembered_ : childrenOf(::getpid()).helpers;
}

void HelperProcesses::kill() const {
    const auto children = childrenOf(::getpid()).helpers;
    for (const pid_t pid : pids()) {
        // One that is no child any more was waited for, and its number may be another's by now.
        if (std::find(children.begin(), children.end(), pid) != children.end())
            ProcessHandle(pid).signalGroup(SIGKILL);
    }
}

HelperProcesses::~HelperProcesses() {
    std::vector<ProcessHandle> helpers;
    for (const pid_t pid : childrenOf(::getpid()).helpers)
        helpers.emplace_back(pid);
    endProcesses(helpers, graceAfterEndOfInput, graceAfterTermination);
    for (const auto& helper : helpers)
        ::waitpid(helper.pid(), nullptr, 0);
}

std::optional<std::string> HelperProcesses::howEnded() const {
    for (const pid_t pid : pids()) {
        siginfo_t info{};
        if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != pid)
            continue;
        if (info.si_code == CLD_EXITED)
            return "exited with status " + std::to_string(info.si_status);
        return "was killed by signal " + std::to_string(info.si_status) + " (" + ::strsignal(info.si_status) + ")";
    }
    return std::nullopt;
}

std::optional<int> HelperProcesses::exitStatus() const {
    const auto helpers = pids();
    siginfo_t info{};
    if (helpers.empty() || !ProcessHandle(helpers.front()).waitGone(graceAfterEndOfOutput) ||
        ::waitid(P_PID, static_cast<id_t>(helpers.front()), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_code != CLD_EXITED)
        return std::nullopt;
    return info.si_status;
}

std::string HelperProcesses::afterEndOfOutput() const {
    const auto helpers = pids();
    if (helpers.empty())
        return {};
    const std::string helper = "the helper (pid " + std::to_string(helpers.front()) + ") ";
    if (!ProcessHandle(helpers.front()).waitGone(graceAfterEndOfOutput))
        return helper + "has closed its output but still runs";
    const auto end = howEnded();
    return end ? helper + *end : helper + "has ended";
}

} // namespace cli
