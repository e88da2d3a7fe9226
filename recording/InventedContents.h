#pragma once

#include <set>
#include <string>

namespace recording {

/// Which files hold bytes that were made up, because those that were written to them are not in the recording: what is
/// read from them says nothing. Kept by path, as files are renamed and removed. Not thread-safe.
class InventedContents {
public:
    void written(const std::string& path) { paths_.insert(path); }

    void removed(const std::string& path) { paths_.erase(path); }

    /// Also of all that lies beneath.
    void renamed(const std::string& from, const std::string& to);

    bool has(const std::string& path) const { return paths_.contains(path); }

private:
    std::set<std::string> paths_;
};

} // namespace recording
