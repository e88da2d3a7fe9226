#pragma once

#include "foundation/Descriptor.h"

#include <cstddef>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace control {

/// The most characters in the path of a socket that any program can connect to.
inline constexpr std::size_t longestAddress = sizeof(sockaddr_un::sun_path) - 1;

/// The address of a socket in a folder that is held open: no link that is put in its place meanwhile leads elsewhere,
/// and the folder's own path may have any length. Valid while the folder is open.
class SocketAddress {
public:
    SocketAddress(const foundation::Descriptor& folder, const std::string& name) {
        const std::string path = "/proc/self/fd/" + std::to_string(folder.number()) + "/" + name;
        address_.sun_family = AF_UNIX;
        path.copy(address_.sun_path, longestAddress);
    }

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }

    socklen_t size() const { return sizeof address_; }

private:
    sockaddr_un address_{};
};

} // namespace control
