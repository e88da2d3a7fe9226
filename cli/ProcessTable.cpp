#include "cli/ProcessTable.h"

#include "cli/DeathWatch.h"
#include "cli/Paths.h"
#include "foundation/Error.h"
#include "foundation/FileContents.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

std::string procPath(pid_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

/// The contents of a file of /proc; nothing if its process is gone.
std::string contents(const std::string& path) {
    try {
        return foundation::contentsOfFile(path);
    } catch (const foundation::Error&) {
        return {};
    }
}

/// The parent of a process; 0 if it is gone. In "pid (name) state ppid ..." the name may hold anything, so the fields
/// are counted from the last parenthesis.
pid_t parentOf(pid_t pid) {
    const std::string stat = contents(procPath(pid, "stat"));
    const auto nameEnd = stat.rfind(')');
    if (nameEnd == std::string::npos || nameEnd + 4 >= stat.size())
        return 0;
    pid_t parent = 0;
    std::from_chars(stat.data() + nameEnd + 4, stat.data() + stat.size(), parent);
    return parent;
}

/// True for the process that watches over a mount, told by the argument it was started with: its name comes later, and
/// its program file may have been replaced since.
bool isWatch(pid_t pid) {
    const std::string arguments = contents(procPath(pid, "cmdline"));
    const auto end = arguments.find('\0');
    return end != std::string::npos && std::string_view(arguments).substr(end + 1).starts_with(DeathWatch::argument);
}

/// What a link of /proc names. Reading it does not touch the file it leads to.
std::string linkTarget(const std::string& path) {
    std::error_code error;
    return filesystem::read_symlink(path, error).string();
}

bool hasOpenFileWithin(pid_t pid, const std::string& directory) {
    std::error_code error;
    for (filesystem::directory_iterator entry(procPath(pid, "fd"), error), end; !error && entry != end;
         entry.increment(error))
        if (isWithin(linkTarget(entry->path().string()), directory))
            return true;
    return false;
}

bool hasMappingWithin(pid_t pid, const std::string& directory) {
    std::ifstream maps(procPath(pid, "maps"));
    for (std::string line; std::getline(maps, line);) {
        const auto path = line.find('/');
        if (path != std::string::npos && isWithin(std::string_view(line).substr(path), directory))
            return true;
    }
    return false;
}

bool usesMount(pid_t pid, const std::string& mountPoint) {
    return isWithin(linkTarget(procPath(pid, "cwd")), mountPoint) ||
           isWithin(linkTarget(procPath(pid, "root")), mountPoint) || hasOpenFileWithin(pid, mountPoint) ||
           hasMappingWithin(pid, mountPoint);
}

} // namespace

std::vector<pid_t> allProcesses() {
    std::vector<pid_t> processes;
    std::error_code error;
    for (filesystem::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        pid_t pid = 0;
        const auto result = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (result.ec == std::errc() && result.ptr == name.data() + name.size())
            processes.push_back(pid);
    }
    return processes;
}

std::string processName(pid_t pid) {
    std::string name = contents(procPath(pid, "comm"));
    if (!name.empty() && name.back() == '\n')
        name.pop_back();
    return name;
}

std::optional<pid_t> processOfThread(pid_t thread) {
    constexpr std::string_view key = "\nTgid:\t";
    const std::string status = contents(procPath(thread, "status"));
    const auto at = status.find(key);
    pid_t process = 0;
    if (at == std::string::npos ||
        std::from_chars(status.data() + at + key.size(), status.data() + status.size(), process).ec != std::errc())
        return std::nullopt;
    return process;
}

Children childrenOf(pid_t parent) {
    Children children;
    for (const pid_t pid : allProcesses()) {
        if (parentOf(pid) == parent) {
            const bool watcher = isWatch(pid) || processName(pid).starts_with("fusermount");
            (watcher ? children.watchers : children.helpers).push_back(pid);
        }
    }
    return children;
}

std::vector<HeldProcess> heldChildren(const std::vector<pid_t>& pids, pid_t parent) {
    std::vector<HeldProcess> held;
    for (const pid_t pid : pids) {
        HeldProcess child(pid);
        if (parentOf(pid) == parent && !child.gone())
            held.push_back(std::move(child));
    }
    return held;
}

std::vector<ProcessName> usersOfMount(const std::string& mountPoint, pid_t except, std::size_t limit) {
    std::vector<ProcessName> users;
    for (const pid_t pid : allProcesses()) {
        if (users.size() == limit)
            break;
        if (pid != except && pid != ::getpid() && usesMount(pid, mountPoint))
            users.push_back({pid, processName(pid)});
    }
    return users;
}

} // namespace cli
