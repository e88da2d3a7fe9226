#include "foundation/ChildProcess.h"

#include "foundation/Error.h"
#include "foundation/PosixErrno.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace foundation {
namespace {

constexpr std::int64_t noSuchFileCode = 4; // NSFileNoSuchFileError

[[noreturn]] void throwLaunchError(int error, const std::string& executable) {
    const bool isPath = executable.find('/') != std::string::npos;
    const bool missing = error == ENOENT && (!isPath || ::access(executable.c_str(), F_OK) != 0);
    NSError value = missing ? NSError{std::string(NSCocoaErrorDomain), noSuchFileCode, std::nullopt, {}}
                            : NSError::posix(darwinErrno(error));
    value.localizedDescription = missing ? "the program " + executable + " does not exist"
                                         : "the program " + executable + " could not be started (POSIX error " +
                                               std::to_string(value.code) + ")";
    throw NSErrorException(std::move(value));
}

// Children whose object went away while they ran. They are not ours to end, but their exit status must be collected
// some time, or each would stay in the process table for as long as this process lives.
class AbandonedChildren {
public:
    void add(pid_t pid) {
        std::lock_guard guard(lock_);
        pids_.push_back(pid);
    }

    void collectExited() {
        std::lock_guard guard(lock_);
        std::erase_if(pids_, [](pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) != 0; });
    }

private:
    std::mutex lock_;
    std::vector<pid_t> pids_;
};

AbandonedChildren& abandonedChildren() {
    static auto* const children = new AbandonedChildren; // children may outlive every static object
    return *children;
}

// RAII for the two records of posix_spawn.
class SpawnActions {
public:
    SpawnActions() { check(::posix_spawn_file_actions_init(&actions_)); }

    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }

    void giveAs(int descriptor, int number) {
        check(::posix_spawn_file_actions_adddup2(&actions_, descriptor, number));
    }

    void giveStandardError(int descriptor) {
        if (descriptor != STDERR_FILENO) {
            giveAs(descriptor, STDERR_FILENO);
            return;
        }
#ifdef __APPLE__
        check(::posix_spawn_file_actions_addinherit_np(&actions_, STDERR_FILENO));
#endif
    }

    void closeTheRest() {
#if defined(__GLIBC_PREREQ)
#if __GLIBC_PREREQ(2, 34)
        // Descriptors of the embedding program that were not opened close-on-exec.
        check(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
#endif
#endif
    }

    const posix_spawn_file_actions_t* get() const {
        return &actions_;
    }

private:
    static void check(int error) {
        if (error != 0)
            throwPosix(darwinErrno(error));
    }

    posix_spawn_file_actions_t actions_;
};

class SpawnAttributes {
public:
    SpawnAttributes() {
        if (const int error = ::posix_spawnattr_init(&attributes_); error != 0)
            throwPosix(darwinErrno(error));
        sigset_t none;
        sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        sigset_t defaults;
        sigemptyset(&defaults);
        for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})
            sigaddset(&defaults, signal);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP;
#ifdef __APPLE__
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
        ::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }

    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    ~SpawnAttributes() {
        ::posix_spawnattr_destroy(&attributes_);
    }

    const posix_spawnattr_t* get() const {
        return &attributes_;
    }

private:
    posix_spawnattr_t attributes_;
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

ChildProcess::~ChildProcess() {
    if (pid_ == 0 || exited_)
        return;
    // Those of before only: how this one ended may still be asked, by whoever finds out why it was abandoned.
    abandonedChildren().collectExited();
    abandonedChildren().add(pid_);
}

void ChildProcess::launch(const Options& options) {
    abandonedChildren().collectExited();
    std::vector<std::string> arguments{options.executable};
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    std::vector<std::string> environment;
    for (const auto& [name, value] : options.environment) {
        environment.push_back(name);
        environment.back().append("=").append(value);
    }
    SpawnActions actions;
    actions.giveAs(options.standardInput, STDIN_FILENO);
    actions.giveAs(options.standardOutput, STDOUT_FILENO);
    actions.giveStandardError(options.standardError);
    actions.closeTheRest();
    const SpawnAttributes attributes;
    pid_t pid = 0;
    const int error = ::posix_spawnp(&pid, options.executable.c_str(), actions.get(), attributes.get(),
                                     pointers(arguments).data(), pointers(environment).data());
    if (error != 0)
        throwLaunchError(error, options.executable);
    pid_ = pid;
}

void ChildProcess::waitUntilExit() {
    std::lock_guard guard(waitLock_);
    if (pid_ == 0 || exited_)
        return;
    int status = 0;
    pid_t ended = 0;
    do {
        ended = ::waitpid(pid_, &status, 0);
    } while (ended < 0 && errno == EINTR);
    noteExit(ended, status);
}

// Needs waitLock_. Any failure to wait means that there is no such child any more.
void ChildProcess::noteExit(pid_t ended, int status) {
    exited_ = true;
    if (ended == pid_)
        status_.emplace(status);
}

bool ChildProcess::isRunning() {
    if (pid_ == 0)
        return false;
    const std::unique_lock guard(waitLock_, std::try_to_lock);
    if (!guard.owns_lock())
        return true; // another thread is waiting for it
    if (exited_)
        return false;
    int status = 0;
    if (const pid_t ended = ::waitpid(pid_, &status, WNOHANG); ended != 0)
        noteExit(ended, status);
    return !exited_;
}

std::optional<ExitStatus> ChildProcess::exitStatus() {
    if (isRunning())
        return std::nullopt;
    const std::lock_guard guard(waitLock_);
    return status_;
}

} // namespace foundation
