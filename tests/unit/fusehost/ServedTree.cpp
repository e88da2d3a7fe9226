#include "ServedTree.h"

#include "foundation/Error.h"
#include "foundation/PosixErrno.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <utility>

namespace fusehosttests {

namespace posixErrno = foundation::posixErrno;

namespace {

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool hasWord(const std::string& words, const std::string& word) {
    return ("," + words + ",").find("," + word + ",") != std::string::npos;
}

std::string range(std::int64_t offset, std::size_t count) {
    return std::to_string(offset) + "+" + std::to_string(count);
}

} // namespace

ServedTree::ServedTree() : renameRefusal(posixErrno::EEXIST_), root_(std::make_shared<File>()) {
    root_->isDirectory = true;
}

void ServedTree::begin(const std::string& request) {
    {
        const Guard guard(lock_);
        requests_.push_back(request);
    }
    if (before)
        before(request);
}

std::string ServedTree::stored(const File& directory, const std::string& name) const {
    if (foldsCase)
        for (const auto& [known, file] : directory.entries)
            if (lowered(known) == lowered(name))
                return known;
    return name;
}

std::pair<std::shared_ptr<ServedTree::File>, std::string> ServedTree::locate(const std::string& path) const {
    std::shared_ptr<File> at = root_;
    std::size_t from = 1;
    while (true) {
        if (!at->isDirectory)
            foundation::throwPosix(posixErrno::ENOTDIR_);
        const std::size_t end = path.find('/', from);
        const std::string name = stored(*at, path.substr(from, end - from));
        if (end == std::string::npos)
            return {at, name};
        const auto next = at->entries.find(name);
        if (next == at->entries.end())
            foundation::throwPosix(posixErrno::ENOENT_);
        at = next->second;
        from = end + 1;
    }
}

std::shared_ptr<ServedTree::File> ServedTree::find(const std::string& path) const {
    if (path == "/")
        return root_;
    const auto [directory, name] = locate(path);
    const auto found = directory->entries.find(name);
    return found == directory->entries.end() ? nullptr : found->second;
}

std::shared_ptr<ServedTree::File> ServedTree::existing(const std::string& path) const {
    auto file = find(path);
    if (!file)
        foundation::throwPosix(posixErrno::ENOENT_);
    return file;
}

ServedTree::Facts ServedTree::factsOf(const File& file) {
    return {file.isDirectory, file.bytes.size(), file.modified};
}

ServedTree::Facts ServedTree::getattr(const std::string& path) {
    begin("getattr " + path);
    const Guard guard(lock_);
    return factsOf(*existing(path));
}

std::string ServedTree::storedName(const std::string& path) {
    const Guard guard(lock_);
    if (const auto odd = oddNames.find(path); odd != oddNames.end())
        return odd->second;
    return path == "/" ? path : locate(path).second;
}

std::string ServedTree::reportedPath(const std::string& path) const {
    const auto odd = oddPaths.find(path);
    return odd == oddPaths.end() ? path : odd->second;
}

std::vector<ServedTree::Entry> ServedTree::readdir(const std::string& path) {
    begin("readdir " + path);
    const Guard guard(lock_);
    std::vector<Entry> entries;
    for (const auto& [name, file] : existing(path)->entries) {
        const auto odd = oddNames.find(path == "/" ? "/" + name : path + "/" + name);
        const Facts facts = listsNamesAlone ? Facts{file->isDirectory, 0, 0} : factsOf(*file);
        entries.push_back({odd == oddNames.end() ? name : odd->second, facts});
    }
    return entries;
}

std::int64_t ServedTree::open(const std::string& path, const std::string& flags) {
    begin("open " + flags + " " + path);
    const Guard guard(lock_);
    const auto [directory, name] = locate(path);
    auto& file = directory->entries[name];
    if (!file) {
        if (!hasWord(flags, "create")) {
            directory->entries.erase(name);
            foundation::throwPosix(posixErrno::ENOENT_);
        }
        file = std::make_shared<File>();
        file->modified = ++clock_;
    }
    if (file->isDirectory)
        foundation::throwPosix(posixErrno::EISDIR_);
    if (hasWord(flags, "write") && (file->mode & 0200) == 0)
        foundation::throwPosix(posixErrno::EACCES_);
    if (hasWord(flags, "truncate")) {
        file->bytes.clear();
        file->modified = ++clock_;
    }
    handles_[nextHandle_] = {file, path, flags};
    return nextHandle_++;
}

ServedTree::Handle& ServedTree::handleAt(std::int64_t handle) {
    const auto found = handles_.find(handle);
    if (found == handles_.end())
        foundation::throwPosix(posixErrno::EBADF_);
    return found->second;
}

std::string ServedTree::pathOf(std::int64_t handle) const {
    const Guard guard(lock_);
    const auto found = handles_.find(handle);
    return found == handles_.end() ? "?" : found->second.path;
}

std::size_t ServedTree::read(std::int64_t handle, std::int64_t offset, std::span<std::byte> into) {
    begin("read " + pathOf(handle) + " " + range(offset, into.size()));
    const Guard guard(lock_);
    const std::string& bytes = handleAt(handle).file->bytes;
    if (static_cast<std::size_t>(offset) >= bytes.size())
        return 0;
    const std::string part = bytes.substr(static_cast<std::size_t>(offset), std::min(into.size(), mostPerRead));
    std::transform(part.begin(), part.end(), into.begin(), [](char c) { return static_cast<std::byte>(c); });
    return part.size();
}

void ServedTree::write(std::int64_t handle, std::int64_t offset, std::span<const std::byte> bytes) {
    begin("write " + pathOf(handle) + " " + range(offset, bytes.size()));
    const Guard guard(lock_);
    File& file = *handleAt(handle).file;
    const auto at = static_cast<std::size_t>(offset);
    file.bytes.resize(std::max(file.bytes.size(), at + bytes.size()), '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        file.bytes[at + i] = static_cast<char>(bytes[i]);
    file.modified = ++clock_;
}

void ServedTree::flush(std::int64_t handle) {
    begin("flush " + pathOf(handle));
    const Guard guard(lock_);
    handleAt(handle);
}

void ServedTree::release(std::int64_t handle) {
    const std::string path = pathOf(handle);
    {
        const Guard guard(lock_);
        handleAt(handle);
        handles_.erase(handle); // gone even where the answer is an error
    }
    begin("release " + path);
}

void ServedTree::mkdir(const std::string& path) {
    begin("mkdir " + path);
    const Guard guard(lock_);
    const auto [directory, name] = locate(path);
    auto& made = directory->entries[name];
    if (made)
        foundation::throwPosix(posixErrno::EEXIST_);
    made = std::make_shared<File>();
    made->isDirectory = true;
    made->modified = ++clock_;
}

void ServedTree::unlink(const std::string& path) {
    begin("unlink " + path);
    const Guard guard(lock_);
    if (!existing(path)->entries.empty() && !unlinkIsRecursive)
        foundation::throwPosix(posixErrno::ENOTEMPTY_);
    const auto [directory, name] = locate(path);
    directory->entries.erase(name);
}

void ServedTree::checkReplaceable(const File& source, const File& target) const {
    if (!renameReplaces)
        foundation::throwPosix(renameRefusal);
    if (renameReplacesAnything)
        return;
    if (target.isDirectory && !source.isDirectory)
        foundation::throwPosix(posixErrno::EISDIR_);
    if (!target.isDirectory && source.isDirectory)
        foundation::throwPosix(posixErrno::ENOTDIR_);
    if (!target.entries.empty())
        foundation::throwPosix(posixErrno::ENOTEMPTY_);
}

void ServedTree::rename(const std::string& oldPath, const std::string& newPath) {
    const std::string request = "rename " + oldPath + " " + newPath;
    begin(request);
    moveReplacing(oldPath, newPath);
    if (after)
        after(request);
}

void ServedTree::moveReplacing(const std::string& oldPath, const std::string& newPath) {
    const Guard guard(lock_);
    const auto source = existing(oldPath);
    const auto target = find(newPath);
    if (target == source && !foldsCase)
        return;
    if (target && target != source)
        checkReplaceable(*source, *target);
    const auto [from, oldName] = locate(oldPath);
    from->entries.erase(oldName);
    const auto [to, storedNewName] = locate(newPath);
    to->entries[target == source ? newPath.substr(newPath.rfind('/') + 1) : storedNewName] = source;
}

void ServedTree::chmod(const std::string& path, std::uint32_t mode) {
    char octal[8];
    std::snprintf(octal, sizeof octal, "%03o", mode & 07777);
    begin("chmod " + path + " " + octal);
    const Guard guard(lock_);
    existing(path)->mode = mode;
}

void ServedTree::utimes(const std::string& path, double time) {
    begin("utimes " + path + " " + std::to_string(time));
    const Guard guard(lock_);
    existing(path)->modified = static_cast<std::int64_t>(time);
}

void ServedTree::statfs() {
    begin("statfs");
}

void ServedTree::put(const std::string& path, std::string_view bytes) {
    const Guard guard(lock_);
    const auto [directory, name] = locate(path);
    auto& file = directory->entries[name];
    file = std::make_shared<File>();
    file->bytes = bytes;
    file->modified = ++clock_;
}

void ServedTree::append(const std::string& path, std::string_view bytes) {
    const Guard guard(lock_);
    const auto file = existing(path);
    file->bytes += bytes;
    file->modified = ++clock_;
}

void ServedTree::putDirectory(const std::string& path) {
    const Guard guard(lock_);
    const auto [directory, name] = locate(path);
    auto& file = directory->entries[name];
    file = std::make_shared<File>();
    file->isDirectory = true;
    file->modified = ++clock_;
}

void ServedTree::move(const std::string& oldPath, const std::string& newPath) {
    const Guard guard(lock_);
    const auto moved = existing(oldPath);
    const auto [from, oldName] = locate(oldPath);
    from->entries.erase(oldName);
    const auto [to, newName] = locate(newPath);
    to->entries[newName] = moved;
}

void ServedTree::erase(const std::string& path) {
    const Guard guard(lock_);
    const auto [directory, name] = locate(path);
    directory->entries.erase(name);
}

bool ServedTree::has(const std::string& path) const {
    const Guard guard(lock_);
    return find(path) != nullptr;
}

std::string ServedTree::bytes(const std::string& path) const {
    const Guard guard(lock_);
    return existing(path)->bytes;
}

std::uint32_t ServedTree::mode(const std::string& path) const {
    const Guard guard(lock_);
    return existing(path)->mode;
}

std::vector<std::string> ServedTree::names(const std::string& directory) const {
    const Guard guard(lock_);
    std::vector<std::string> names;
    for (const auto& [name, file] : existing(directory)->entries)
        names.push_back(name);
    return names;
}

void ServedTree::loseHandles() {
    const Guard guard(lock_);
    handles_.clear();
}

std::vector<std::string> ServedTree::takeRequests() {
    const Guard guard(lock_);
    return std::exchange(requests_, {});
}

std::size_t ServedTree::openHandles() const {
    const Guard guard(lock_);
    return handles_.size();
}

std::function<void(const std::string&)> refuseOnce(std::string request, std::int32_t error) {
    auto armed = std::make_shared<bool>(true);
    return [=, beginning = std::move(request)](const std::string& text) {
        if (text.starts_with(beginning) && std::exchange(*armed, false))
            foundation::throwPosix(error);
    };
}

std::function<void(const std::string&)> refuseAlways(std::string request, std::int32_t error) {
    return [=, beginning = std::move(request)](const std::string& text) {
        if (text.starts_with(beginning))
            foundation::throwPosix(error);
    };
}

} // namespace fusehosttests
