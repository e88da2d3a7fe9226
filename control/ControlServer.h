#pragma once

#include "control/Reply.h"
#include "control/Request.h"
#include "control/SocketFolder.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace control {

/// Where a helper finds the path of its mount's socket; empty if the mount has none.
inline constexpr const char* environmentName = "KEMVI_CONTROL";

/// The control channel of one mount: a Unix socket on which its owner and root ask JSON lines and get JSON lines.
///
/// Everything is done by one thread, which waits for nothing but its sockets: a handler runs on it and must answer from
/// what is at hand, within a millisecond or so, taking no lock that is held during an exchange with the helper. What
/// has to wait keeps its Reply and answers it from elsewhere. Nothing that peers do reaches further than this thread.
class ControlServer {
public:
    /// Called on the channel's thread. A reply that is to be answered later is moved from. What is thrown becomes the
    /// answer: a Refusal as it is, anything else with the code "failed".
    using Handler = std::function<void(const Request&, Reply&)>;

    static constexpr std::size_t mostPeers = 16;
    static constexpr std::size_t longestRequest = std::size_t{1} << 20; // bytes
    /// How long a peer may leave what it was sent unread before it loses its connection.
    static constexpr std::chrono::milliseconds usualPatience{10'000};

    /// What the first line to every peer says.
    struct Greeting {
        std::string version;
        std::string mountPoint;
    };

    /// Makes the socket in this folder, under this process's number. Starts no thread. Throws ChannelError, which names
    /// the folder and what is wrong with it.
    explicit ControlServer(Greeting greeting, SocketFolder folder = SocketFolder::ofThisUser(),
                           std::chrono::milliseconds patience = usualPatience);

    /// Ends the thread, refuses what is not answered, cuts streams off and removes the socket.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// The path of the socket; short enough for the address of one.
    const std::string& path() const;

    /// What answers `operation`. A request with other members than "op" and these is refused by their name. Only before
    /// `start`.
    void handle(std::string operation, std::vector<std::string> members, Handler handler);

    /// From here on peers are served. Throws std::system_error if the process can have no more threads.
    void start();

    /// Ends what the destructor would end, but leaves the object: no handler runs after this has returned.
    void stop() noexcept;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace control
