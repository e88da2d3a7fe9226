#include "cli/Background.h"

#include "cli/CommandError.h"
#include "cli/Signals.h"
#include "cli/StderrRelay.h"
#include "foundation/Descriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace cli {

using foundation::Descriptor;

namespace {

/// Ties the serving process to the command while it is not ready: should the command be killed, it stops too.
void dieWithParent(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent)
        ::_exit(static_cast<int>(ExitCode::interrupted));
}

void replaceByNull(int descriptor, int flags) {
    const Descriptor null(::open("/dev/null", flags | O_CLOEXEC));
    if (null.isOpen())
        ::dup2(null.number(), descriptor);
}

[[noreturn]] void serveInChild(const std::function<ExitCode(const Progress&)>& serve, OwnSession session, pid_t parent,
                               Descriptor status) {
    dieWithParent(parent);
    if (session == OwnSession::fromTheStart)
        ::setsid();
    heedAllStopSignals();
    replaceByNull(STDIN_FILENO, O_RDONLY);
    replaceByNull(STDOUT_FILENO, O_WRONLY);
    ExitCode code = ExitCode::failure;
    {
        StderrRelay relay;
        Progress progress;
        progress.mounted = [] { ::prctl(PR_SET_PDEATHSIG, 0); }; // a setting of the thread, not of the process
        progress.ready = [&] {
            relay.switchToLogAlone();
            if (session == OwnSession::onceReady)
                ::setsid();
            const char ready = static_cast<char>(ExitCode::success);
            [[maybe_unused]] const auto written = ::write(status.number(), &ready, 1);
            status.reset();
        };
        code = reportingErrors([&] { return serve(progress); });
    }
    // Nothing that the parent made before the fork may be ended a second time here.
    ::_exit(static_cast<int>(code));
}

ExitCode exitCodeOf(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        return static_cast<ExitCode>(WEXITSTATUS(status));
    throw CommandError(ExitCode::failure, "mount",
                       "the serving process was killed by signal " + std::to_string(WTERMSIG(status)) +
                           " before the mount was ready");
}

ExitCode awaitReadiness(pid_t child, const Descriptor& status) {
    const sigset_t stopSet = stopSignals();
    const Descriptor signals(::signalfd(-1, &stopSet, SFD_CLOEXEC));
    std::array<pollfd, 2> sources{pollfd{status.number(), POLLIN, 0}, pollfd{signals.number(), POLLIN, 0}};
    for (;;) {
        if (::poll(sources.data(), sources.size(), -1) < 0)
            continue;
        signalfd_siginfo received{};
        if (sources[1].revents != 0 && ::read(signals.number(), &received, sizeof received) == sizeof received)
            ::kill(child, SIGTERM);
        if (sources[0].revents != 0) {
            char ready = 0;
            return ::read(status.number(), &ready, 1) == 1 ? ExitCode::success : exitCodeOf(child);
        }
    }
}

} // namespace

ExitCode runInBackground(const std::function<ExitCode(const Progress&)>& serve, OwnSession session) {
    // A descriptor inherited from the caller (the pipe of a script, say) must not live as long as the mount.
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    auto status = foundation::openPipe();
    if (!status.reading.isOpen())
        throw CommandError(ExitCode::failure, "mount", "no pipe to the background: " + errnoText(errno));
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0)
        throw CommandError(ExitCode::failure, "mount", "cannot go to the background: " + errnoText(errno));
    if (child == 0) {
        status.reading.reset();
        serveInChild(serve, session, parent, std::move(status.writing));
    }
    status.writing.reset();
    return awaitReadiness(child, status.reading);
}

} // namespace cli
