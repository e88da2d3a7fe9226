#include "LocalFolder.h"

#include "foundation/Utf8.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace local {
namespace {

using foundation::Descriptor;
using kemvi::PosixError;

constexpr mode_t permissionBits = 0777;
constexpr mode_t allBits = 07777;
constexpr mode_t asAnotherUser = 06000; // a program runs with the rights of the file's owner or group

void check(bool succeeded, const std::string& path) {
    if (!succeeded)
        throw PosixError::last(path);
}

PosixError missing(const std::string& path) {
    return {"ENOENT", "no such file or folder: " + path};
}

PosixError isRoot(const std::string& path) {
    return {"EPERM", path + " is the root of the served folder"};
}

void checkOpenable(const struct stat& facts, const std::string& path) {
    if (S_ISDIR(facts.st_mode))
        throw PosixError("EISDIR", path + " is a folder");
    if (!S_ISREG(facts.st_mode))
        throw PosixError("EACCES", path + " is a special file and is not opened");
}

// What another user's program becomes must not run with that user's rights. Where the file is not ours to change, the
// system does this itself when it is written to.
void dropOtherUsersRights(int file, mode_t mode, const std::string& path) {
    if ((mode & asAnotherUser) != 0)
        check(::fchmod(file, mode & allBits & ~asAnotherUser) == 0 || errno == EPERM, path);
}

class LocalFile final : public kemvi::File {
public:
    LocalFile(Descriptor file, std::string path) : file_(std::move(file)), path_(std::move(path)) {}

    std::size_t read(std::uint64_t offset, std::span<std::byte> into) override {
        return counted(::pread(file_.number(), into.data(), into.size(), static_cast<off_t>(offset)));
    }

    void write(std::uint64_t offset, std::span<const std::byte> data) override {
        while (!data.empty()) {
            const std::size_t count =
                counted(::pwrite(file_.number(), data.data(), data.size(), static_cast<off_t>(offset)));
            data = data.subspan(count);
            offset += count;
        }
    }

    void flush() override { check(::fdatasync(file_.number()) == 0, path_); }

    void release() override { check(file_.close(), path_); }

private:
    std::size_t counted(ssize_t count) const {
        check(count >= 0, path_);
        return static_cast<std::size_t>(count);
    }

    Descriptor file_;
    const std::string path_;
};

} // namespace

LocalFolder::LocalFolder(const std::string& root, const std::string& source)
    : tree_(root), guard_(tree_.root(), source) {}

kemvi::Stat LocalFolder::getattr(const std::string& path) {
    const auto facts = tree_.locate(path).look(path);
    if (!facts)
        throw missing(path);
    return shown(*facts, path);
}

// A link shows what it leads to; itself, as an empty file, where that is not to be reached.
kemvi::Stat LocalFolder::shown(const struct stat& facts, const std::string& path) const {
    if (S_ISLNK(facts.st_mode)) {
        try {
            if (const auto followed = tree_.followLink(path).look(path); followed && !S_ISLNK(followed->st_mode))
                return shown(*followed, path);
        } catch (const PosixError&) {
            return {.modifiedAt = kemvi::timeOf(facts.st_mtim)};
        }
    }
    return {.isDirectory = S_ISDIR(facts.st_mode),
            .size = S_ISREG(facts.st_mode) ? static_cast<std::uint64_t>(facts.st_size) : 0,
            .modifiedAt = kemvi::timeOf(facts.st_mtim)};
}

void LocalFolder::readdir(const std::string& path, const Members& add) {
    Descriptor folder = tree_.folder(path, O_RDONLY);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(folder.number()), ::closedir);
    check(stream != nullptr, path);
    const int number = folder.release(); // the stream's now
    const std::string prefix = path == "/" ? path : path + "/";
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(stream.get());
        if (entry == nullptr) {
            check(errno == 0, path);
            return;
        }
        const std::string_view name = entry->d_name;
        struct stat facts;
        if (name == "." || name == ".." || !isTellable(name, path) ||
            ::fstatat(number, entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) // removed meanwhile
            continue;
        add(name, S_ISLNK(facts.st_mode) ? shown(facts, prefix + std::string(name)) : shown(facts, path));
    }
}

bool LocalFolder::isTellable(std::string_view name, const std::string& folder) {
    if (foundation::isValidUtf8(name))
        return true;
    if (!warned_) {
        std::fprintf(stderr, "kemvi-helper: names that are not UTF-8 are left out of listings, first in %s\n",
                     folder.c_str());
    }
    warned_ = true;
    return false;
}

// What is at a path, or what the link there leads to.
LocalFolder::Target LocalFolder::target(const std::string& path) const {
    Place place = tree_.locate(path);
    auto facts = place.look(path);
    if (!facts || !S_ISLNK(facts->st_mode))
        return {std::move(place), facts};
    Place followed = tree_.followLink(path);
    facts = followed.look(path);
    return {std::move(followed), facts};
}

std::unique_ptr<kemvi::File> LocalFolder::open(const std::string& path, const kemvi::OpenFlags& flags) {
    const Target found = target(path);
    if (!found.facts && !flags.create)
        throw missing(path);
    if (found.facts)
        checkOpenable(*found.facts, path);
    return std::make_unique<LocalFile>(openChecked(found.place, path, flags), path);
}

// Something else may have taken the file's place since it was looked at: the open never waits, follows no link, and
// what was opened is looked at once more before it is emptied.
Descriptor LocalFolder::openChecked(const Place& place, const std::string& path, const kemvi::OpenFlags& flags) {
    if (flags.write)
        guard_.checkName(place, path);
    const int access = !flags.write ? O_RDONLY : flags.read ? O_RDWR : O_WRONLY;
    Descriptor file(::openat(place.folder(), place.name(),
                             access | (flags.create ? O_CREAT : 0) | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
    struct stat facts;
    check(file.isOpen() && ::fstat(file.number(), &facts) == 0, path);
    checkOpenable(facts, path);
    if (flags.write) {
        guard_.checkFile(facts, path);
        dropOtherUsersRights(file.number(), facts.st_mode, path);
    }
    check(!flags.truncate || ::ftruncate(file.number(), 0) == 0, path);
    return file;
}

// The place of a name that is to be changed itself, and not what a link there leads to.
Place LocalFolder::changedName(const std::string& path) {
    if (path == "/")
        throw isRoot(path);
    Place place = tree_.locate(path);
    guard_.checkName(place, path);
    return place;
}

void LocalFolder::mkdir(const std::string& path) {
    const Place place = changedName(path);
    check(::mkdirat(place.folder(), place.name(), 0777) == 0, path);
}

void LocalFolder::unlink(const std::string& path) {
    const Place place = changedName(path);
    if (::unlinkat(place.folder(), place.name(), 0) != 0)
        check(errno == EISDIR && ::unlinkat(place.folder(), place.name(), AT_REMOVEDIR) == 0, path);
}

void LocalFolder::rename(const std::string& oldPath, const std::string& newPath) {
    const Place to = changedName(newPath);
    const Place from = changedName(oldPath);
    check(::renameat(from.folder(), from.name(), to.folder(), to.name()) == 0, oldPath);
}

// What is at a path, links followed, if its mode and times may be changed.
LocalFolder::Target LocalFolder::changeable(const std::string& path) {
    Target found = target(path);
    if (!found.facts)
        throw missing(path);
    if (!S_ISDIR(found.facts->st_mode)) {
        guard_.checkName(found.place, path);
        guard_.checkFile(*found.facts, path);
    }
    return found;
}

void LocalFolder::chmod(const std::string& path, unsigned mode) {
    const Target found = changeable(path);
    mode_t asked = mode & permissionBits;
    if (S_ISDIR(found.facts->st_mode)) {
        guard_.checkFolderMode(*found.facts, asked, path);
        asked |= found.facts->st_mode & allBits & ~permissionBits;
    }
    check(::fchmodat(found.place.folder(), found.place.name(), asked, AT_SYMLINK_NOFOLLOW) == 0, path);
}

void LocalFolder::utimes(const std::string& path, kemvi::Time mtime) {
    const Target found = changeable(path);
    const timespec times[] = {{0, UTIME_OMIT}, kemvi::timespecOf(mtime)};
    check(::utimensat(found.place.folder(), found.place.name(), times, AT_SYMLINK_NOFOLLOW) == 0, path);
}

kemvi::Figures LocalFolder::statfs() {
    struct statvfs facts;
    check(::fstatvfs(tree_.descriptor(), &facts) == 0, "/");
    return {.files = facts.f_files - facts.f_ffree, .bytes = (facts.f_blocks - facts.f_bfree) * facts.f_frsize};
}

} // namespace local
