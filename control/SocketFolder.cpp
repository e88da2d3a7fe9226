#include "control/SocketFolder.h"

#include "control/ControlClient.h"
#include "control/SocketAddress.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace control {

namespace {

constexpr mode_t othersMay = 077;
constexpr mode_t ownerAlone = 0700;
constexpr int backlog = 64;
constexpr std::string_view ending = ".sock";
constexpr std::string_view unready = ".new"; // of a socket that does not listen yet

[[noreturn]] void refuse(const std::string& path, const std::string& problem) {
    throw ChannelError(ChannelError::Kind::unreachable, path + ": " + problem);
}

[[noreturn]] void refuseErrno(const std::string& path, const std::string& what) {
    refuse(path, what + ": " + std::generic_category().message(errno));
}

std::string nameOf(pid_t process, std::string_view end) {
    return std::to_string(process).append(end);
}

/// The process that a file name belongs to: "1234.sock".
std::optional<pid_t> processOf(std::string_view name, std::string_view end) {
    if (!name.ends_with(end))
        return std::nullopt;
    name.remove_suffix(end.size());
    pid_t process = 0;
    const auto result = std::from_chars(name.data(), name.data() + name.size(), process);
    const bool whole = result.ec == std::errc() && result.ptr == name.data() + name.size();
    return whole && process > 0 ? std::optional(process) : std::nullopt;
}

std::vector<std::string> placesOfThisUser() {
    std::vector<std::string> places;
    const uid_t user = ::geteuid();
    if (user == 0)
        places.emplace_back("/run/kemvi");
    else if (const char* session = std::getenv("XDG_RUNTIME_DIR"); session != nullptr && session[0] == '/')
        places.push_back(std::string(session) + "/kemvi");
    places.push_back("/tmp/kemvi-" + std::to_string(user));
    return places;
}

} // namespace

SocketFolder SocketFolder::ofThisUser() {
    std::string problems;
    for (auto& place : placesOfThisUser()) {
        try {
            return SocketFolder(std::move(place));
        } catch (const ChannelError& error) {
            problems += (problems.empty() ? "" : "; ") + std::string(error.what());
        }
    }
    throw ChannelError(ChannelError::Kind::unreachable, problems);
}

SocketFolder::SocketFolder(std::string path) : path_(std::move(path)) {
    if (pathFor(std::numeric_limits<pid_t>::max()).size() > longestAddress)
        refuse(path_, "is too long for the address of a socket");
    if (::mkdir(path_.c_str(), ownerAlone) != 0 && errno != EEXIST)
        refuseErrno(path_, "cannot be made");
    folder_ = foundation::Descriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder_.isOpen() && (errno == ELOOP || errno == ENOTDIR))
        refuse(path_, "is a link or a file; expected a folder");
    if (!folder_.isOpen())
        refuseErrno(path_, "cannot be used");

    struct stat about {};

    if (::fstat(folder_.number(), &about) != 0)
        refuseErrno(path_, "cannot be used");
    if (about.st_uid != ::geteuid())
        refuse(path_, "belongs to user " + std::to_string(about.st_uid));
    if ((about.st_mode & othersMay) != 0 && ::fchmod(folder_.number(), ownerAlone) != 0)
        refuseErrno(path_, "is open to others");
}

std::string SocketFolder::pathFor(pid_t process) const {
    return path_ + "/" + nameOf(process, ending);
}

foundation::Descriptor SocketFolder::listen() const {
    const std::string name = nameOf(::getpid(), ending);
    const std::string unreadyName = nameOf(::getpid(), unready);
    foundation::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const SocketAddress address(folder_, unreadyName);
    ::unlinkat(folder_.number(), unreadyName.c_str(), 0);
    if (!socket.isOpen() || ::bind(socket.number(), address.get(), address.size()) != 0 ||
        ::fchmodat(folder_.number(), unreadyName.c_str(), S_IRUSR | S_IWUSR, 0) != 0 ||
        ::listen(socket.number(), backlog) != 0 ||
        ::renameat(folder_.number(), unreadyName.c_str(), folder_.number(), name.c_str()) != 0)
        refuseErrno(path_ + "/" + name, "cannot be made");
    return socket;
}

void SocketFolder::remove() const noexcept {
    try {
        ::unlinkat(folder_.number(), nameOf(::getpid(), ending).c_str(), 0);
    } catch (const std::bad_alloc&) {
        // The next who meets it removes it.
    }
}

bool SocketFolder::isLeftBehind(const std::string& name) const {
    if (const auto process = processOf(name, unready))
        return ::kill(*process, 0) != 0 && errno == ESRCH;
    if (!processOf(name, ending))
        return false;
    const foundation::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const SocketAddress address(folder_, name);
    return socket.isOpen() && ::connect(socket.number(), address.get(), address.size()) != 0 && errno == ECONNREFUSED;
}

void SocketFolder::clear() const {
    // A descriptor of its own: the place in the listing would be shared.
    const int listing = ::openat(folder_.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(listing < 0 ? nullptr : ::fdopendir(listing), ::closedir);
    if (!entries)
        return;
    std::vector<std::string> left;
    while (const dirent* entry = ::readdir(entries.get()))
        if (isLeftBehind(entry->d_name))
            left.emplace_back(entry->d_name);
    for (const auto& name : left)
        ::unlinkat(folder_.number(), name.c_str(), 0);
}

} // namespace control
