#pragma once

#include "foundation/Descriptor.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace local {

/// A name in a real folder of the served tree. The folder is held by a descriptor, so that nothing that happens to the
/// names above it leads elsewhere; only the name itself may be a link.
class Place {
public:
    /// In a folder that outlives this.
    Place(int folder, std::string name) : folder_(folder), name_(std::move(name)) {}

    Place(foundation::Descriptor folder, std::string name)
        : held_(std::move(folder)), folder_(held_.number()), name_(std::move(name)) {}

    int folder() const { return folder_; }

    /// "." for the root of the tree.
    const char* name() const { return name_.c_str(); }

    /// What has the name now, links not followed; nothing if nothing has it. Throws as the platform's call fails, told
    /// with `path`.
    std::optional<struct stat> look(const std::string& path) const;

private:
    foundation::Descriptor held_;
    int folder_;
    std::string name_;
};

/// The served folder. Paths of the tree are turned into places beneath it and into nothing else: the platform is asked
/// for each without links, and where one is in the way, for the real path that it leads to. All functions throw
/// kemvi::PosixError: EACCES where a path would lead out of the tree, EINVAL for one that is not plain, and what the
/// platform says, always with the path of the tree and never with a real one.
class ServedTree {
public:
    /// How places are looked up: by one call of the platform where it allows that, or name by name, for those that do
    /// not.
    enum class Lookup { byOneCall, byName };

    explicit ServedTree(const std::string& root, Lookup preferred = Lookup::byOneCall);

    /// Real and absolute.
    const std::string& root() const { return root_; }

    int descriptor() const { return folder_.number(); }

    /// Where a path lies: links are followed up to its last component.
    Place locate(const std::string& path) const;

    /// Where the link at a path leads to, all links followed. ELOOP if that is a folder that the path comes through: a
    /// tree without end.
    Place followLink(const std::string& path) const;

    /// A folder of the tree, links followed, opened with these flags.
    foundation::Descriptor folder(const std::string& path, int flags) const;

private:
    std::string follow(const std::string& path) const;
    Place placeOf(const std::string& relative, const std::string& path) const;
    foundation::Descriptor openBeneath(const std::string& relative, int flags) const;
    foundation::Descriptor walkBeneath(const std::string& relative, int flags) const;

    std::string root_;
    foundation::Descriptor folder_;
    Lookup lookup_;
};

bool isSame(const struct stat& one, const struct stat& other);

} // namespace local
