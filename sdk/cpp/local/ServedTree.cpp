#include "ServedTree.h"

#include "kemvi/helper.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>

namespace local {
namespace {

using foundation::Descriptor;
using kemvi::PosixError;

PosixError leavesTree(const std::string& path) {
    return {"EACCES", path + " leads out of the served folder"};
}

std::optional<std::string> realPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

// A path without its first slash, "." for the root.
std::string relativeOf(const std::string& path) {
    if (path == "/")
        return ".";
    bool isPlain = !path.empty() && path.front() == '/' && path.find('\0') == std::string::npos;
    for (std::size_t slash = 0; isPlain && slash < path.size();) {
        const std::size_t next = std::min(path.find('/', slash + 1), path.size());
        const std::string_view name = std::string_view(path).substr(slash + 1, next - slash - 1);
        if (name == "..")
            throw leavesTree(path);
        isPlain = !name.empty() && name != ".";
        slash = next;
    }
    if (!isPlain) {
        if (path.find("/..") != std::string::npos)
            throw leavesTree(path);
        throw PosixError("EINVAL", path.substr(0, path.find('\0')) + " is not a plain path");
    }
    return path.substr(1);
}

std::string aboveOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

Descriptor openat2(int folder, const char* relative, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    return Descriptor(static_cast<int>(::syscall(SYS_openat2, folder, relative, &how, sizeof how)));
}

} // namespace

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev;
}

std::optional<struct stat> Place::look(const std::string& path) const {
    struct stat found;
    if (::fstatat(folder_, name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0)
        return found;
    if (errno == ENOENT)
        return std::nullopt;
    throw PosixError::last(path);
}

ServedTree::ServedTree(const std::string& root, Lookup preferred) : lookup_(preferred) {
    const auto real = realPath(root);
    if (real)
        folder_ = Descriptor(::open(real->c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder_.isOpen())
        throw PosixError::last(root);
    root_ = *real;
    if (!openat2(descriptor(), ".", O_PATH | O_DIRECTORY).isOpen())
        lookup_ = Lookup::byName;
}

// Opens what lies beneath the root by a path in which nothing may be a link; errno is ELOOP where something is.
Descriptor ServedTree::openBeneath(const std::string& relative, int flags) const {
    return lookup_ == Lookup::byOneCall ? openat2(descriptor(), relative.c_str(), flags) : walkBeneath(relative, flags);
}

// The same for a system that lacks the call or does not allow it.
Descriptor ServedTree::walkBeneath(const std::string& relative, int flags) const {
    Descriptor above;
    int folder = descriptor();
    for (std::size_t begin = 0;;) {
        const std::size_t end = relative.find('/', begin);
        const std::string name = relative.substr(begin, end - begin);
        const bool isLast = end == std::string::npos;
        Descriptor next(
            ::openat(folder, name.c_str(), O_NOFOLLOW | O_CLOEXEC | (isLast ? flags : O_PATH | O_DIRECTORY)));
        if (!next.isOpen() && errno == ENOTDIR) { // what a link is called that must be a folder
            struct stat found;
            const bool isLink =
                ::fstatat(folder, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(found.st_mode);
            errno = isLink ? ELOOP : ENOTDIR;
        }
        if (!next.isOpen() || isLast)
            return next;
        above = std::move(next);
        folder = above.number();
        begin = end + 1;
    }
}

// The real path, from the root on, of anything in the tree, all links followed; "." for the root.
std::string ServedTree::follow(const std::string& path) const {
    const auto real = realPath(root_ + path);
    if (!real) {
        const PosixError error = PosixError::last(path);
        if (path.rfind('/') > 0)
            follow(aboveOf(path)); // out of the tree even what is missing is refused
        throw error;
    }
    if (*real == root_)
        return ".";
    const std::string prefix = root_ == "/" ? root_ : root_ + "/";
    if (!real->starts_with(prefix))
        throw leavesTree(path);
    return real->substr(prefix.size());
}

Descriptor ServedTree::folder(const std::string& path, int flags) const {
    Descriptor opened = openBeneath(relativeOf(path), flags | O_DIRECTORY);
    if (!opened.isOpen() && errno == ELOOP)
        opened = openBeneath(follow(path), flags | O_DIRECTORY);
    if (!opened.isOpen())
        throw PosixError::last(path);
    return opened;
}

Place ServedTree::locate(const std::string& path) const {
    const std::string relative = relativeOf(path);
    const std::size_t slash = relative.rfind('/');
    if (slash == std::string::npos)
        return {descriptor(), relative};
    return {folder(aboveOf(path), O_PATH), relative.substr(slash + 1)};
}

Place ServedTree::placeOf(const std::string& relative, const std::string& path) const {
    const std::size_t slash = relative.rfind('/');
    if (slash == std::string::npos)
        return {descriptor(), relative};
    Descriptor folder = openBeneath(relative.substr(0, slash), O_PATH | O_DIRECTORY);
    if (!folder.isOpen())
        throw PosixError::last(path); // it has been moved meanwhile
    return {std::move(folder), relative.substr(slash + 1)};
}

Place ServedTree::followLink(const std::string& path) const {
    Place target = placeOf(follow(path), path);
    const auto found = target.look(path);
    if (!found || !S_ISDIR(found->st_mode))
        return target;
    for (std::string above = path; above != "/";) {
        above = aboveOf(above);
        struct stat passed;
        if (::fstat(folder(above, O_PATH).number(), &passed) == 0 && isSame(passed, *found))
            throw PosixError("ELOOP", path + " leads back to a folder that it lies in");
    }
    return target;
}

} // namespace local
