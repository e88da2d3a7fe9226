#include "ConfigurationGuard.h"

#include "Names.h"
#include "kemvi/helper.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <memory>
#include <system_error>

namespace local {
namespace {

constexpr const char* fileName = "mount-config.json";
constexpr int mostLinks = 40; // as many as the kernel follows
constexpr std::chrono::seconds believed{1};
constexpr mode_t othersMayWrite = 022;

std::optional<struct stat> lookAt(const std::string& real) {
    struct stat found;
    return ::lstat(real.c_str(), &found) == 0 ? std::optional(found) : std::nullopt;
}

std::string joined(const std::string& folder, const std::string& name) {
    return folder == "/" ? folder + name : folder + "/" + name;
}

bool isExact(const std::string& folder, const std::string& name) {
    const std::string other = inOtherCase(name);
    return other == name || !lookAt(joined(folder, other));
}

bool isSameFolder(int one, const std::string& other) {
    struct stat facts;
    const auto known = lookAt(other);
    return known && ::fstat(one, &facts) == 0 && isSame(facts, *known);
}

// The names of a path, in front of those that are there.
void putInFront(std::deque<std::string>& names, std::string_view path) {
    std::deque<std::string> front;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        front.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    names.insert(names.begin(), front.begin(), front.end());
}

kemvi::PosixError isGuarded(const std::string& path) {
    return {"EPERM", path + " is the configuration of this mount or leads to it; change it behind the mount"};
}

} // namespace

ConfigurationGuard::ConfigurationGuard(std::string root, const std::string& source)
    : root_(std::move(root)), source_(source.empty() ? root_ : source) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(source_.c_str(), nullptr), &std::free);
    if (real)
        source_ = real.get(); // otherwise it is gone, and to be kept from coming back through the mount
    way_ = walk();
}

void ConfigurationGuard::checkName(const Place& place, const std::string& path) {
    const Way& way = current();
    const std::string name = place.name();
    for (const Entry& entry : way.entries) {
        if (name == entry.name || (!way.isExact && folded(name) == folded(entry.name))) {
            if (isSameFolder(place.folder(), entry.folder))
                throw isGuarded(path);
        } else if (!way.isExact && entry.facts) {
            // A short name, or a spelling that only the store knows to be the same.
            const auto changed = place.look(path);
            const auto still = lookAt(joined(entry.folder, entry.name));
            if (changed && still && isSame(*changed, *entry.facts) && isSame(*changed, *still))
                throw isGuarded(path);
        }
    }
}

void ConfigurationGuard::checkFile(const struct stat& file, const std::string& path) {
    const auto& known = current().file;
    if (!known || !isSame(*known, file))
        return;
    way_ = walk(); // the number of a file that is gone may have been given to a new one
    if (way_.file && isSame(*way_.file, file))
        throw isGuarded(path);
}

void ConfigurationGuard::checkFolderMode(const struct stat& folder, mode_t after, const std::string& path) {
    if ((after & ~folder.st_mode & othersMayWrite) == 0)
        return;
    for (const Entry& entry : current().entries) {
        const auto known = lookAt(entry.folder);
        if (known && isSame(*known, folder))
            throw kemvi::PosixError("EPERM",
                                    path + " leads to the configuration of this mount; others may not write there");
    }
}

const ConfigurationGuard::Way& ConfigurationGuard::current() {
    if (std::chrono::steady_clock::now() - way_.since >= believed)
        way_ = walk();
    return way_;
}

bool ConfigurationGuard::isServed(const std::string& real) const {
    return real == root_ || real.starts_with(root_ == "/" ? root_ : root_ + "/");
}

// Goes from the served folder, or else from the source directory, to the configuration as the kernel would.
ConfigurationGuard::Way ConfigurationGuard::walk() const {
    Way way;
    std::deque<std::string> names{fileName};
    std::string folder = source_;
    if (isServed(source_)) {
        folder = root_;
        putInFront(names, std::string_view(source_).substr(root_.size()));
    }
    for (int links = 0; !names.empty();) {
        const std::string name = names.front();
        names.pop_front();
        if (name.empty() || name == ".")
            continue;
        if (name == "..") {
            folder.erase(std::max<std::size_t>(folder.rfind('/'), 1));
            continue;
        }
        const std::string real = joined(folder, name);
        const auto facts = lookAt(real);
        if (isServed(folder)) {
            way.entries.push_back({folder, name, facts});
            way.isExact = way.isExact && facts && isExact(folder, name);
        }
        std::error_code failed;
        if (facts && S_ISLNK(facts->st_mode) && links++ < mostLinks) {
            const std::string target = std::filesystem::read_symlink(real, failed).string();
            if (target.starts_with('/'))
                folder = "/";
            putInFront(names, target);
        } else if (facts && S_ISDIR(facts->st_mode)) {
            folder = real;
        } else {
            if (facts && S_ISREG(facts->st_mode) && names.empty())
                way.file = facts;
            break;
        }
    }
    return way;
}

} // namespace local
