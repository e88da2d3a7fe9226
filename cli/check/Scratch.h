#pragma once

#include "cli/check/Conversation.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace cli::check {

/// A new folder in the served tree, for what an examination makes, with a record of all that. Nothing but what is in
/// the record is ever removed: whatever the helper lists is looked at, and never followed. Not thread-safe.
class Scratch {
public:
    enum class Kind { file, folder };

    enum class Claim {
        ours,    // nothing is there yet, or it is in the record
        taken,   // something is there that is not ours
        unknown, // the helper did not say
    };

    /// `path` is the folder's, of a name that nobody has.
    Scratch(Conversation& talk, std::string path) : talk_(talk), path_(std::move(path)) {}

    const std::string& path() const { return path_; }

    /// Takes a path into the record, before it is made: should its making be cut short, it is removed all the same.
    Claim claim(const std::string& path, Kind kind);

    /// The path turned out to be somebody else's, or is gone.
    void forget(const std::string& path);

    /// Removes what is in the record, last made first, and no folder in which there is anything else. Returns why
    /// something stayed; nothing if all is gone.
    std::optional<std::string> remove();

private:
    struct Made {
        std::string path;
        Kind kind;
    };

    void removeOne(const Made& made);
    /// True if nothing is in a folder that an entry of a listing could stand for.
    bool isEmpty(const std::string& path);
    void stayed(std::string why);

    Conversation& talk_;
    const std::string path_;
    std::vector<Made> made_;        // in the order of making
    std::set<std::string> current_; // those that count
    std::optional<std::string> problem_;
};

} // namespace cli::check
