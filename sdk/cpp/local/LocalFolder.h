#pragma once

#include "ConfigurationGuard.h"
#include "ServedTree.h"
#include "kemvi/helper.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace local {

/// A folder of this machine as a file system. Nothing outside of the folder is reached: links that stay inside are
/// followed; one that leads out, nowhere or in a circle shows as an empty file that cannot be opened. Special files are
/// shown, not opened. Names that are not UTF-8 cannot be told in the protocol and are left out of listings.
///
/// The configuration of the mount is shown, and never changed, moved or removed. No file gets a set-user-id or
/// set-group-id bit, and one that is opened for writing loses them.
class LocalFolder final : public kemvi::WritableFileSystem {
public:
    /// `source` is the folder with the configuration of the mount; the served one where it is empty.
    LocalFolder(const std::string& root, const std::string& source);

    kemvi::Stat getattr(const std::string& path) override;
    void readdir(const std::string& path, const Members& add) override;
    std::unique_ptr<kemvi::File> open(const std::string& path, const kemvi::OpenFlags& flags) override;
    void mkdir(const std::string& path) override;
    /// Removes a file, a link or an empty folder.
    void unlink(const std::string& path) override;
    void rename(const std::string& oldPath, const std::string& newPath) override;
    /// Sets the permission bits and no others. A folder keeps the bits that decide who removes from it and what group
    /// new files get.
    void chmod(const std::string& path, unsigned mode) override;
    /// Sets the time of the last change; that of the last access stays.
    void utimes(const std::string& path, kemvi::Time mtime) override;
    /// The figures of the file system that the folder lies on.
    kemvi::Figures statfs() override;

private:
    struct Target {
        Place place;
        std::optional<struct stat> facts;
    };

    kemvi::Stat shown(const struct stat& facts, const std::string& path) const;
    Target target(const std::string& path) const;
    Target changeable(const std::string& path);
    Place changedName(const std::string& path);
    bool isTellable(std::string_view name, const std::string& folder);
    foundation::Descriptor openChecked(const Place& place, const std::string& path, const kemvi::OpenFlags& flags);

    const ServedTree tree_;
    ConfigurationGuard guard_;
    bool warned_ = false; // of names that are not UTF-8
};

} // namespace local
