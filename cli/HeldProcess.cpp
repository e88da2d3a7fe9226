#include "cli/HeldProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

using std::chrono::milliseconds;

constexpr int withoutLimit = -1;

/// True if the process behind the descriptor has ended; `timeout` as poll(2) takes it.
bool awaitEnd(int process, int timeout) {
    pollfd ended{process, POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&ended, 1, timeout);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace

HeldProcess::HeldProcess(pid_t pid) : pid_(pid), descriptor_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

HeldProcess::HeldProcess(pid_t pid, foundation::Descriptor descriptor)
    : pid_(pid), descriptor_(std::move(descriptor)) {}

void HeldProcess::waitGone() const {
    if (descriptor_.isOpen())
        awaitEnd(descriptor_.number(), withoutLimit);
}

bool HeldProcess::waitGone(milliseconds limit) const {
    return !descriptor_.isOpen() ||
           awaitEnd(descriptor_.number(), static_cast<int>(std::max(limit, milliseconds(0)).count()));
}

void HeldProcess::signal(int number) const {
    if (descriptor_.isOpen())
        ::syscall(SYS_pidfd_send_signal, descriptor_.number(), number, nullptr, 0);
}

void HeldProcess::signalGroup(int number) const {
    constexpr unsigned toProcessGroup = 1U << 2; // PIDFD_SIGNAL_PROCESS_GROUP, since Linux 6.9
    if (!descriptor_.isOpen() ||
        ::syscall(SYS_pidfd_send_signal, descriptor_.number(), number, nullptr, toProcessGroup) == 0)
        return;
    // The number of a group stays taken while its leader lives, so this cannot hit another group.
    if (errno == EINVAL && !gone() && ::getpgid(pid_) == pid_)
        ::kill(-pid_, number);
    signal(number);
}

bool allGone(const std::vector<HeldProcess>& processes, milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    return std::all_of(processes.begin(), processes.end(), [&](const HeldProcess& process) {
        return process.waitGone(std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()));
    });
}

bool endProcesses(const std::vector<HeldProcess>& processes, Patience patience) {
    if (allGone(processes, patience.alone))
        return true;
    for (const int number : {SIGTERM, SIGKILL}) {
        for (const auto& process : processes)
            process.signalGroup(number);
        if (number == SIGTERM && allGone(processes, patience.afterTermination))
            break;
    }
    return false;
}

} // namespace cli
