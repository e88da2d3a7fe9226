#include "cli/ServiceManager.h"

#include "foundation/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace cli {

namespace {

std::string taken(const char* name) {
    const char* value = std::getenv(name);
    std::string text = value != nullptr ? value : "";
    ::unsetenv(name);
    return text;
}

std::optional<std::int64_t> number(const std::string& text) {
    std::int64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return whole && value > 0 ? std::optional(value) : std::nullopt;
}

} // namespace

ServiceManager ServiceManager::takeFromEnvironment() {
    ServiceManager manager;
    const std::string address = taken("NOTIFY_SOCKET");
    const auto interval = number(taken("WATCHDOG_USEC"));
    const auto meant = taken("WATCHDOG_PID");
    if ((!address.starts_with('/') && !address.starts_with('@')) || address.size() >= sizeof(sockaddr_un::sun_path))
        return manager;
    manager.address_ = address;
    if (address.front() == '@')
        manager.address_.front() = '\0';
    if (interval && (meant.empty() || number(meant) == ::getpid()))
        manager.watchdog_ = std::chrono::microseconds(*interval);
    return manager;
}

bool ServiceManager::tell(std::string_view lines) const noexcept {
    if (!listens())
        return true;
    const foundation::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(address_.begin(), address_.end(), address.sun_path);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    const auto sent = ::sendto(socket.number(), lines.data(), lines.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                               reinterpret_cast<const sockaddr*>(&address), size);
    return sent >= 0 || (errno != EAGAIN && errno != ENOBUFS);
}

} // namespace cli
