#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fusehosttests {

/// What a helper serves, held in memory, and the helper's requests on it. Every request is recorded as one text, such
/// as "open write,create /a" or "read /a 0+4096"; a request on a handle bears the path that was opened. A handle
/// belongs to the file that was opened, whatever becomes of its path. Failures are thrown as foundation's errors.
/// Thread-safe.
class ServedTree {
public:
    struct Facts {
        bool isDirectory = false;
        std::uint64_t size = 0;
        std::int64_t modified = 0; // seconds since 1970
    };

    struct Entry {
        std::string name;
        Facts facts;
    };

    // How this helper behaves; to be set while no request is under way.
    bool renameReplaces = true;          // a rename onto a name that is taken replaces it, else it fails
    std::int32_t renameRefusal;          // with this error, EEXIST unless set; a macOS number
    bool renameReplacesAnything = false; // it replaces full directories, and directories and files by one another
    bool unlinkIsRecursive = false;      // unlink removes a directory with all that is in it
    bool listsNamesAlone = false;        // a listing tells neither sizes nor times
    bool foldsCase = false;              // names that differ in case alone are one name, kept as first given
    std::size_t mostPerRead = std::numeric_limits<std::size_t>::max(); // longer reads are answered short
    std::map<std::string, std::string> oddNames;                       // path -> name under which it is reported
    std::map<std::string, std::string> oddPaths;                       // path -> path under which it is reported
    /// Called before a request is carried out, outside of the lock; throws to refuse it, or waits.
    std::function<void(const std::string& request)> before;
    /// The same after a rename was carried out; throws to fail nevertheless.
    std::function<void(const std::string& request)> after;

    ServedTree();

    // The requests
    Facts getattr(const std::string& path);
    /// The name of a path as it is stored.
    std::string storedName(const std::string& path);
    /// The path as it is reported.
    std::string reportedPath(const std::string& path) const;
    std::vector<Entry> readdir(const std::string& path);
    /// `flags` are words separated by commas: read, write, create, truncate.
    std::int64_t open(const std::string& path, const std::string& flags);
    std::size_t read(std::int64_t handle, std::int64_t offset, std::span<std::byte> into);
    void write(std::int64_t handle, std::int64_t offset, std::span<const std::byte> bytes);
    void flush(std::int64_t handle);
    void release(std::int64_t handle);
    void mkdir(const std::string& path);
    void unlink(const std::string& path);
    void rename(const std::string& oldPath, const std::string& newPath);
    void chmod(const std::string& path, std::uint32_t mode);
    void utimes(const std::string& path, double time);
    void statfs();

    // Behind the mount
    /// Another file takes the name, as when a program writes anew and renames.
    void put(const std::string& path, std::string_view bytes);
    void append(const std::string& path, std::string_view bytes);
    void putDirectory(const std::string& path);
    /// Renames, replacing what is there.
    void move(const std::string& oldPath, const std::string& newPath);
    void erase(const std::string& path);
    bool has(const std::string& path) const;
    std::string bytes(const std::string& path) const;
    std::uint32_t mode(const std::string& path) const;
    std::vector<std::string> names(const std::string& directory) const;

    /// The helper died: its handles are gone with it.
    void loseHandles();

    /// The requests since the last call.
    std::vector<std::string> takeRequests();
    /// Handles that were not given back.
    std::size_t openHandles() const;

private:
    struct File {
        bool isDirectory = false;
        std::string bytes;
        std::uint32_t mode = 0644;
        std::int64_t modified = 0;
        std::map<std::string, std::shared_ptr<File>> entries;
    };

    struct Handle {
        std::shared_ptr<File> file;
        std::string path;
        std::string flags;
    };

    using Guard = std::lock_guard<std::mutex>;

    void begin(const std::string& request);
    std::string pathOf(std::int64_t handle) const;
    void moveReplacing(const std::string& oldPath, const std::string& newPath);
    Handle& handleAt(std::int64_t handle);
    static Facts factsOf(const File& file);

    // With the lock held
    std::shared_ptr<File> find(const std::string& path) const;
    std::shared_ptr<File> existing(const std::string& path) const;
    /// The directory that a path lies in and the name there, as it is stored if it is.
    std::pair<std::shared_ptr<File>, std::string> locate(const std::string& path) const;
    std::string stored(const File& directory, const std::string& name) const;
    void checkReplaceable(const File& source, const File& target) const;

    mutable std::mutex lock_;
    std::shared_ptr<File> root_;
    std::map<std::int64_t, Handle> handles_;
    std::int64_t nextHandle_ = 1;
    std::int64_t clock_ = 1000; // every change is one second later than the one before
    std::vector<std::string> requests_;
};

/// A `before` that refuses, once, each request that begins with `request`; `error` is a macOS number.
std::function<void(const std::string&)> refuseOnce(std::string request, std::int32_t error);
/// The same for every such request.
std::function<void(const std::string&)> refuseAlways(std::string request, std::int32_t error);

} // namespace fusehosttests
