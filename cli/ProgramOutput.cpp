#include "cli/ProgramOutput.h"

#include "foundation/Descriptor.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // which macOS's headers do not declare

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

pid_t started(const std::vector<std::string>& command, int output) {
    posix_spawn_file_actions_t streams{};
    ::posix_spawn_file_actions_init(&streams);
    ::posix_spawn_file_actions_addopen(&streams, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&streams, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    pid_t pid = -1;
    const int failure = ::posix_spawn(&pid, command.front().c_str(), &streams, nullptr, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&streams);
    return failure == 0 ? pid : -1;
}

/// All that comes until the other end is closed; nothing if that is not so in time.
std::optional<std::string> readUntilClosed(int input, Clock::time_point end) {
    std::string text;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting{input, POLLIN, 0};
        if (left <= 0 || ::poll(&waiting, 1, static_cast<int>(left)) == 0)
            return std::nullopt;
        char bytes[4096];
        const ssize_t count = ::read(input, bytes, sizeof bytes);
        if (count == 0)
            return text;
        if (count > 0)
            text.append(bytes, static_cast<std::size_t>(count));
    }
}

} // namespace

std::optional<std::string> programOutput(const std::vector<std::string>& command, std::chrono::milliseconds limit) {
    foundation::PipeEnds pipe = foundation::openPipe();
    const pid_t pid = pipe.writing.isOpen() ? started(command, pipe.writing.number()) : -1;
    pipe.writing.reset();
    if (pid < 0)
        return std::nullopt;
    auto text = readUntilClosed(pipe.reading.number(), Clock::now() + limit);
    if (!text)
        ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? text : std::nullopt;
}

} // namespace cli
