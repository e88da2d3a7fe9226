#pragma once

#include "cli/watch/FolderWatch.h"
#include "cli/watch/HelperFiles.h"

#include <mutex>
#include <string>
#include <vector>

namespace cli {

/// The files that a mount's helper is made of, compared with what they were when it was started. But for `names` the
/// object belongs to one thread.
class WatchedHelper {
public:
    /// To be made before the helper is started. `excluded` is a path of which nothing is looked at: the mount's own.
    /// Throws WatchError.
    WatchedHelper(std::vector<std::string> roots, std::string excluded);

    /// Readable when there is something to `take`.
    int descriptor() const { return folders_.descriptor(); }

    /// True if something has happened to one of the files since the last call. Does not wait.
    bool take();

    /// What is to be done about all that was taken.
    struct News {
        std::string change;  // the helper is to be started anew, since: "tree.mjs changed"; or empty
        std::string missing; // "tree.mjs is gone", for which it is not; or empty. Told once
        std::string problem; // of files that cannot be watched; or empty
    };

    /// Looks at the files. Where the helper is to be started anew they are from now on compared with what they are now.
    /// `isHelperGone`: then saving one is enough, whether it changes or not.
    News look(bool isHelperGone);

    /// The paths of the files, the helper's script first. Any thread.
    std::vector<std::string> paths() const;

private:
    struct Difference {
        std::vector<std::string> changed;
        std::vector<std::string> gone;
    };

    Difference differenceTo(const HelperFiles& now) const;
    bool isRootMissing(const HelperFiles& now) const;
    /// "a.mjs and 2 other files"
    std::string listed(const std::vector<std::string>& paths) const;
    std::string nameOf(const std::string& path) const;

    const std::vector<std::string> roots_;
    const std::string excluded_;
    FolderWatch folders_;
    bool wasWritten_ = false;          // since the last look
    std::vector<std::string> missing_; // of which it was told

    mutable std::mutex lock_; // guards the next, which this object's thread alone changes
    HelperFiles files_;
};

} // namespace cli
