#include "cli/watch/FolderWatch.h"

#include "cli/CommandError.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace cli {

namespace {

/// What is written counts when it is closed: it is complete then.
constexpr std::uint32_t aboutFiles = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE;
constexpr std::uint32_t aboutFolder = IN_DELETE_SELF | IN_MOVE_SELF;

std::string problemOfBeginning(int number) {
    if (number == EMFILE)
        return "this user may watch files in no more processes (/proc/sys/fs/inotify/max_user_instances says in how "
               "many), or this process may open no more (ulimit -n)";
    return "files cannot be watched: " + errnoText(number);
}

std::string problemOfWatching(const std::string& folder, int number) {
    if (number == ENOSPC)
        return folder + ": this user may watch no more folders (/proc/sys/fs/inotify/max_user_watches says how many)";
    return folder + ": the folder cannot be watched: " + errnoText(number);
}

} // namespace

FolderWatch::FolderWatch() : inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!inotify_.isOpen())
        throw WatchError(problemOfBeginning(errno));
}

void FolderWatch::add(const std::string& path) {
    std::filesystem::path name(path);
    for (;;) {
        const std::filesystem::path folder = name.parent_path();
        const int watch = ::inotify_add_watch(inotify_.number(), folder.c_str(), aboutFiles | aboutFolder | IN_ONLYDIR);
        if (watch >= 0) {
            added_[watch].insert(name.filename());
            folders_[watch] = folder;
            return;
        }
        // Then it is the folder itself that is waited for.
        if ((errno != ENOENT && errno != ENOTDIR) || folder == name)
            throw WatchError(problemOfWatching(folder, errno));
        name = folder;
    }
}

void FolderWatch::forgetOthers() {
    for (const auto& [watch, names] : names_)
        if (!added_.contains(watch)) {
            ::inotify_rm_watch(inotify_.number(), watch);
            folders_.erase(watch);
        }
    names_ = std::move(added_);
    added_.clear();
}

void FolderWatch::keepOthers() {
    for (auto& [watch, names] : added_)
        names_[watch].merge(names);
    added_.clear();
}

FolderWatch::Seen FolderWatch::take() {
    constexpr std::size_t size = 16384;
    alignas(inotify_event) std::array<char, size> bytes{};
    Seen seen;
    for (;;) {
        const auto count = ::read(inotify_.number(), bytes.data(), bytes.size());
        if (count <= 0 && !(count < 0 && errno == EINTR))
            return seen;
        for (ssize_t at = 0; at < count;) {
            const auto* event = reinterpret_cast<const inotify_event*>(bytes.data() + at);
            see(*event, seen);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

void FolderWatch::see(const inotify_event& event, Seen& seen) const {
    if ((event.mask & (IN_Q_OVERFLOW | IN_UNMOUNT | aboutFolder)) != 0) {
        seen.touched = true;
        return;
    }
    const auto watched = names_.find(event.wd);
    if (watched == names_.end() || event.len == 0 || !watched->second.contains(event.name))
        return;
    if ((event.mask & IN_CREATE) != 0 && !isComplete(event.wd, event.name))
        return;
    seen.touched = true;
    if ((event.mask & (IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE)) != 0)
        seen.written = true;
}

// One that was just made to be written is told of again when it is closed.
bool FolderWatch::isComplete(int folder, const std::string& name) const {
    const auto known = folders_.find(folder);

    struct stat found {};

    if (known == folders_.end() || ::lstat((std::filesystem::path(known->second) / name).c_str(), &found) != 0)
        return true;
    return !S_ISREG(found.st_mode) || found.st_nlink > 1;
}

} // namespace cli
