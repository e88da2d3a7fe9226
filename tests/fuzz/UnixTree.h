#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace fuzz {

/// A file or directory of a Unix file system, as small as it can be said: what a mount is measured by.
struct Inode {
    bool isDirectory = false;
    bool isRemoved = false;
    std::string bytes;
    std::map<std::string, std::shared_ptr<Inode>> entries;

    std::shared_ptr<Inode> child(const std::string& name) const {
        const auto found = entries.find(name);
        return found == entries.end() ? nullptr : found->second;
    }
};

using InodePtr = std::shared_ptr<Inode>;

/// The errno values with which an operation may fail; none: it has to succeed.
using Errors = std::set<int>;

// What is wrong with an operation before it is carried out. Where several things are, any of them may be told.
Errors errorsOfLookup(const Inode& directory, const std::string& name);
Errors errorsOfMaking(const Inode& directory, const std::string& name);
Errors errorsOfRemovingFile(const Inode& directory, const std::string& name);
Errors errorsOfRemovingDirectory(const Inode& directory, const std::string& name);
Errors errorsOfRename(const Inode& from, const std::string& name, const Inode& to, const std::string& newName,
                      bool mayReplace);

// The operations, once nothing is wrong.
InodePtr make(Inode& directory, const std::string& name, bool isDirectory);
void remove(Inode& directory, const std::string& name);
void rename(Inode& from, const std::string& name, Inode& to, const std::string& newName);

/// Whether `inode` is `top` or lies beneath it.
bool isWithin(const Inode& inode, const Inode& top);

} // namespace fuzz
