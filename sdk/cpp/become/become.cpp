// Turns the process that loads this object into another program, which keeps its number and its standard streams. For
// programs that node starts, by a node that cannot do this itself: `process.dlopen` loads the object, and what follows
// happens before it returns. It returns only if there is no such program.
//
// The program and its arguments are KEMVI_BECOME_0, KEMVI_BECOME_1 and so on in the environment.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int mostArguments = 1000;

const char* argument(int number) {
    char name[32];
    std::snprintf(name, sizeof name, "KEMVI_BECOME_%d", number);
    return std::getenv(name);
}

// The program is not to see what was meant for us.
void forgetArguments(int count) {
    for (int number = 0; number < count; ++number) {
        char name[32];
        std::snprintf(name, sizeof name, "KEMVI_BECOME_%d", number);
        ::unsetenv(name);
    }
}

__attribute__((constructor)) void become() {
    static char* arguments[mostArguments + 1];
    int count = 0;
    for (const char* text; count < mostArguments && (text = argument(count)) != nullptr;)
        arguments[count++] = ::strdup(text);
    forgetArguments(count);
    if (count == 0)
        return;
    for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard)
        (void)::fcntl(standard, F_SETFD, 0);
    // Node ignores these, and a program would inherit that.
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
    ::execv(arguments[0], arguments);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace
