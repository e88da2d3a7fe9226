#include "UnixTree.h"

#include <algorithm>
#include <cerrno>

namespace fuzz {
namespace {

constexpr std::size_t longestName = 255;

// What holds for every operation on a name.
Errors errorsOfName(const Inode& directory, const std::string& name) {
    Errors errors;
    if (!directory.isDirectory)
        errors.insert(ENOTDIR);
    if (directory.isRemoved)
        errors.insert(ESTALE);
    if (name.size() > longestName)
        errors.insert(ENAMETOOLONG);
    return errors;
}

} // namespace

Errors errorsOfLookup(const Inode& directory, const std::string& name) {
    Errors errors = errorsOfName(directory, name);
    if (!directory.child(name))
        errors.insert(ENOENT);
    return errors;
}

Errors errorsOfMaking(const Inode& directory, const std::string& name) {
    Errors errors = errorsOfName(directory, name);
    if (directory.child(name))
        errors.insert(EEXIST);
    return errors;
}

Errors errorsOfRemovingFile(const Inode& directory, const std::string& name) {
    Errors errors = errorsOfLookup(directory, name);
    if (const InodePtr target = directory.child(name); target && target->isDirectory)
        errors.insert(EISDIR);
    return errors;
}

Errors errorsOfRemovingDirectory(const Inode& directory, const std::string& name) {
    Errors errors = errorsOfLookup(directory, name);
    const InodePtr target = directory.child(name);
    if (target && !target->isDirectory)
        errors.insert(ENOTDIR);
    if (target && !target->entries.empty())
        errors.insert(ENOTEMPTY);
    return errors;
}

Errors errorsOfRename(const Inode& from, const std::string& name, const Inode& to, const std::string& newName,
                      bool mayReplace) {
    Errors errors = errorsOfLookup(from, name);
    errors.merge(errorsOfName(to, newName));
    const InodePtr source = from.child(name);
    const InodePtr target = to.child(newName);
    if (!source || !target)
        return errors;
    if (!mayReplace)
        errors.insert(EEXIST);
    else if (source == target)
        return errors;
    if (target->isDirectory && !source->isDirectory)
        errors.insert(EISDIR);
    if (!target->isDirectory && source->isDirectory)
        errors.insert(ENOTDIR);
    if (source->isDirectory && !target->entries.empty())
        errors.insert(ENOTEMPTY);
    return errors;
}

InodePtr make(Inode& directory, const std::string& name, bool isDirectory) {
    const InodePtr made = std::make_shared<Inode>();
    made->isDirectory = isDirectory;
    directory.entries[name] = made;
    return made;
}

void remove(Inode& directory, const std::string& name) {
    const auto found = directory.entries.find(name);
    found->second->isRemoved = true;
    directory.entries.erase(found);
}

void rename(Inode& from, const std::string& name, Inode& to, const std::string& newName) {
    const InodePtr source = from.child(name);
    const InodePtr target = to.child(newName);
    if (source == target)
        return;
    if (target)
        target->isRemoved = true;
    from.entries.erase(name);
    to.entries[newName] = source;
}

bool isWithin(const Inode& inode, const Inode& top) {
    return &inode == &top || std::any_of(top.entries.begin(), top.entries.end(),
                                         [&](const auto& entry) { return isWithin(inode, *entry.second); });
}

} // namespace fuzz
