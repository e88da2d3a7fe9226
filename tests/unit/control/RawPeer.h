#pragma once

#include "foundation/Descriptor.h"

#include <cstring>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace controltests {

/// A program at the other end of a channel that does what no client does. Waits for at most ten seconds.
class RawPeer {
public:
    explicit RawPeer(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::connect(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            socket_.reset();
    }

    bool isConnected() const { return socket_.isOpen(); }

    int descriptor() const { return socket_.number(); }

    /// What was not sent is not there: a test that waits for its effect fails.
    void say(std::string_view text) const {
        while (!text.empty()) {
            const auto count = ::send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL);
            if (count < 0)
                return;
            text.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    void endInput() const { ::shutdown(socket_.number(), SHUT_WR); }

    void hangUp() { socket_.reset(); }

    /// The next line without its break; "(end)" at the end, "(nothing)" if none comes.
    std::string line() {
        for (;;) {
            if (const auto end = received_.find('\n'); end != std::string::npos) {
                std::string text = received_.substr(0, end);
                received_.erase(0, end + 1);
                return text;
            }
            constexpr int tenSeconds = 10'000;
            pollfd source{socket_.number(), POLLIN, 0};
            if (::poll(&source, 1, tenSeconds) != 1)
                return "(nothing)";
            char piece[4096];
            const auto count = ::recv(socket_.number(), piece, sizeof piece, 0);
            if (count <= 0)
                return "(end)";
            received_.append(piece, static_cast<std::size_t>(count));
        }
    }

private:
    foundation::Descriptor socket_;
    std::string received_;
};

} // namespace controltests
