#include "cli/ProcessStart.h"

#include "cli/ExitCode.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace cli {

namespace {

// A descriptor by which nothing can be read or written, of what everybody may reach.
#ifdef __APPLE__
constexpr int toNothing = O_RDONLY | O_DIRECTORY; // a read fails with another error
#else
constexpr int toNothing = O_PATH;
#endif

void openStandardDescriptor(int descriptor) {
    if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF)
        return;
    // The kernel gives the lowest free number, and those below are open.
    int opened = ::open("/dev/null", descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY);
    if (opened < 0)
        opened = ::open("/", toNothing); // reading and writing fail there as on a closed one
    if (opened != descriptor)
        ::_exit(static_cast<int>(ExitCode::failure));
}

} // namespace

void settleInheritedState() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        openStandardDescriptor(descriptor);
    for (const int number : {SIGCHLD, SIGTERM})
        std::signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

} // namespace cli
