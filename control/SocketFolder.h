#pragma once

#include "foundation/Descriptor.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace control {

/// The folder in which a user's sockets lie: kemvi/ in the runtime directory of the session ($XDG_RUNTIME_DIR; /run for
/// root), or, where there is none, /tmp/kemvi-UID. It belongs to the user, nobody else can enter it, and it is not
/// reached through a link. Not thread-safe.
class SocketFolder {
public:
    /// The first of the places that can be used; made if it is not there. Throws ChannelError, which names each place
    /// and what is wrong with it.
    static SocketFolder ofThisUser();

    /// The folder at this path, made if it is not there. Throws ChannelError.
    explicit SocketFolder(std::string path);

    const std::string& path() const { return path_; }

    /// The path of the socket of a process.
    std::string pathFor(pid_t process) const;

    /// A socket that listens under the number of this process, which takes over one of a process that had the number
    /// before. It is seen only once it listens. Throws ChannelError.
    foundation::Descriptor listen() const;

    /// Removes the socket of this process.
    void remove() const noexcept;

    /// Removes the sockets on which nobody listens any more, left behind by processes that were killed.
    void clear() const;

private:
    bool isLeftBehind(const std::string& name) const;

    std::string path_;
    foundation::Descriptor folder_;
};

} // namespace control
