#include "hosts/fuse/placement/LinuxTasks.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace fusehost {
namespace {

using foundation::Descriptor;

/// More files than those of two tasks are not kept open.
constexpr std::size_t mostOpen = 8;

std::string taskPath(const Task& task, const char* file) {
    return "/proc/" + std::to_string(task.process) + "/task/" + std::to_string(task.thread) + "/" + file;
}

std::string threadsPath(pid_t process) {
    return "/proc/" + std::to_string(process) + "/task";
}

template <typename Number>
std::optional<Number> takeNumber(std::string_view& text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc())
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

std::string wholeFile(const std::string& path, bool& isThere) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    isThere = file.isOpen();
    std::string text;
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    while (isThere && (count = ::read(file.number(), piece.data(), piece.size())) > 0)
        text.append(piece.data(), static_cast<std::size_t>(count));
    return text;
}

} // namespace

std::optional<ProcessorSet> LinuxTasks::affinity(pid_t thread) {
    cpu_set_t bits;
    CPU_ZERO(&bits);
    if (sched_getaffinity(thread, sizeof bits, &bits) != 0)
        return std::nullopt;
    return ProcessorSet(bits);
}

int LinuxTasks::setAffinity(pid_t thread, const ProcessorSet& processors) {
    return sched_setaffinity(thread, sizeof(cpu_set_t), &processors.bits()) == 0 ? 0 : errno;
}

// The calling thread asks for all, looks what it got, and takes back what it had.
ProcessorSet LinuxTasks::unrestricted() {
    const ProcessorSet before = affinity(0).value_or(ProcessorSet());
    if (setAffinity(0, ProcessorSet::all()) != 0)
        return before;
    const ProcessorSet got = affinity(0).value_or(before);
    if (!(got == before))
        setAffinity(0, before);
    return got;
}

int LinuxTasks::processorOf(const Task& task) {
    bool isThere = false;
    const std::string text = wholeFile(taskPath(task, "stat"), isThere);
    constexpr int fieldsBetween = 36; // of those behind the name, before the processor
    std::size_t at = text.rfind(')');
    for (int field = 0; field <= fieldsBetween && at != std::string::npos; ++field)
        at = text.find(' ', at + 1);
    if (at == std::string::npos)
        return -1;
    std::string_view rest = std::string_view(text).substr(at);
    return takeNumber<int>(rest).value_or(-1);
}

std::optional<TaskTimes> LinuxTasks::times(const Task& task) {
    std::string_view text = read(taskPath(task, "schedstat"));
    const auto run = takeNumber<std::int64_t>(text);
    const auto delayed = takeNumber<std::int64_t>(text);
    const auto turns = takeNumber<std::uint64_t>(text);
    if (!run || !delayed || !turns || *turns == 0)
        return std::nullopt;
    return TaskTimes{std::chrono::nanoseconds(*run), std::chrono::nanoseconds(*delayed), *turns};
}

std::vector<pid_t> LinuxTasks::threads(pid_t process) {
    std::vector<pid_t> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(threadsPath(process).c_str()), ::closedir);
    while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr) {
        std::string_view name = entry->d_name;
        if (const auto number = takeNumber<pid_t>(name))
            found.push_back(*number);
    }
    return found;
}

std::optional<std::vector<pid_t>> LinuxTasks::children(pid_t process) {
    std::vector<pid_t> found;
    for (const pid_t thread : threads(process)) {
        bool isThere = false;
        const std::string text = wholeFile(taskPath({process, thread}, "children"), isThere);
        if (!isThere && ::access(taskPath({process, thread}, "stat").c_str(), F_OK) == 0)
            return std::nullopt;
        std::string_view rest = text;
        while (const auto number = takeNumber<pid_t>(rest))
            found.push_back(*number);
    }
    return found;
}

std::uint64_t LinuxTasks::family(const Task& task) {
    struct stat folder {};

    ::stat(threadsPath(task.process).c_str(), &folder); // its links are counted from its threads
    return std::hash<std::string_view>()(read(taskPath(task, "children"))) * 31 + folder.st_nlink;
}

// "0.20 0.18 0.12 1/80 11206": those ready stand before the slash.
int LinuxTasks::runnable() {
    std::string_view text = read("/proc/loadavg");
    for (int average = 0; average < 3 && !text.empty(); ++average)
        text.remove_prefix(std::min(text.size(), text.find(' ') + 1));
    return takeNumber<int>(text).value_or(0);
}

int LinuxTasks::processors() {
    return static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN));
}

std::string_view LinuxTasks::read(const std::string& path) {
    auto known = open_.find(path);
    if (known == open_.end()) {
        if (open_.size() >= mostOpen)
            open_.clear();
        known = open_.emplace(path, Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC))).first;
    }
    const ssize_t count = ::pread(known->second.number(), text_.data(), text_.size(), 0);
    if (count < 0)
        open_.erase(known);
    return {text_.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

} // namespace fusehost
