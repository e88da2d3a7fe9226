#include "cli/check/HelperGuard.h"

#include "cli/CommandError.h"
#include "foundation/Descriptor.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <thread>

namespace cli::check {

// A thread waits for the helper, which it leaves to be waited for by others, and then closes one end of a pipe.
struct HelperGuard::Parts {
    explicit Parts(pid_t pid) : helper(pid), ends(foundation::openPipe()) {
        if (!ends.reading.isOpen())
            throw CommandError(ExitCode::failure, "the helper", "cannot be watched over: " + errnoText(errno));
        waiter = std::thread([this] { wait(); });
    }

    ~Parts() { waiter.join(); }

    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;

    void wait() {
        siginfo_t ended{};
        while (::waitid(P_PID, static_cast<id_t>(helper), &ended, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
        }
        ends.writing.reset();
    }

    const pid_t helper;
    foundation::PipeEnds ends;
    std::thread waiter;
};

HelperGuard::HelperGuard(pid_t helper) : parts_(std::make_unique<Parts>(helper)) {}

HelperGuard::~HelperGuard() = default;

int HelperGuard::descriptor() const {
    return parts_->ends.reading.number();
}

void HelperGuard::kill() {
    ::kill(-parts_->helper, SIGKILL);
}

} // namespace cli::check
