#pragma once

#include "foundation/Descriptor.h"

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/inotify.h>

namespace cli {

/// Files cannot be watched; the text names what is at fault and what to do.
class WatchError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Hears from the kernel when files of certain names are written, replaced, made or removed. It watches their folders,
/// since editors put another file in the place of one. Of what happens on another machine (a network's file system) the
/// kernel does not hear. Not thread-safe.
class FolderWatch {
public:
    /// Throws WatchError if the user may watch nothing more.
    FolderWatch();

    /// Readable when there is something to `take`.
    int descriptor() const { return inotify_.number(); }

    /// Watches this path, absolute, from now on; it need not exist, nor need its folder. Again for one that is watched
    /// already finds its folder anew. Throws WatchError.
    void add(const std::string& path);

    /// What was not added since the last call is watched no more.
    void forgetOthers();
    /// It is watched further on.
    void keepOthers();

    /// What has happened to files that are watched.
    struct Seen {
        bool touched = false; // anything
        bool written = false; // there is one that was written, made or put there
    };

    /// All since the last call. Does not wait.
    Seen take();

private:
    using Names = std::map<int, std::set<std::string>>; // by watched folder

    void see(const inotify_event& event, Seen& seen) const;
    bool isComplete(int folder, const std::string& name) const;

    foundation::Descriptor inotify_;
    Names names_;
    Names added_;
    std::map<int, std::string> folders_; // as they were last found
};

} // namespace cli
