#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Write a file system that Kemvi mounts, in C++, without knowing the protocol: derive from FileSystem (or from
/// WritableFileSystem), and from File for what is open, and call `serve`. Everything is called by one thread, that
/// which called `serve`, one request after the other.
///
/// Paths are absolute within the served tree, in UTF-8: "/" is the root, the others are "/name/name".
///
/// To refuse a request, throw: a PosixError or a std::system_error with an errno value reaches the program that uses
/// the mount as that error. Anything else that is thrown is taken for a fault: it is printed on standard error, the
/// program sees EIO, and the helper goes on.
namespace kemvi {

/// UTC, to the millisecond, which is what the protocol tells. Years 1 to 9999; other times are moved to the nearest.
using Time = std::chrono::sys_time<std::chrono::milliseconds>;

/// When this process began to serve: the time of what has none of its own.
Time startOfHelper();

/// A time as the platform keeps it, and back. One that is stored half a microsecond short of a millisecond or less, as
/// programs that calculate with fractions of seconds do, counts as that millisecond; others are cut off to the one
/// below.
Time timeOf(const timespec& stored);
timespec timespecOf(Time time);

/// What is known of one file or folder.
struct Stat {
    bool isDirectory = false;
    /// Bytes; 0 for a folder. Nothing if it is not known before the file is read: it shows as empty and is read to its
    /// end.
    std::optional<std::uint64_t> size = 0;
    Time modifiedAt = startOfHelper();
};

/// How a file is to be opened. `read`, `write` or both are true; the last two only with `write`.
struct OpenFlags {
    bool read = false;
    bool write = false;
    bool create = false;   ///< make the file when it does not exist; keep its contents when it does
    bool truncate = false; ///< empty it
};

/// What `statfs` tells.
struct Figures {
    std::uint64_t files = 0;
    std::uint64_t directories = 0;
    std::uint64_t bytes = 0;
};

/// An error that the program using the mount sees as a POSIX error: ENOENT, EEXIST, EINVAL, EISDIR, ENOTDIR, ENOTEMPTY,
/// EACCES, EPERM and EROFS as they are, every other as EIO.
class PosixError : public std::runtime_error {
public:
    /// `code` is the error's name, such as "ENOENT"; `message` one line for people.
    PosixError(std::string_view code, const std::string& message) : std::runtime_error(message), code_(code) {}

    /// The same by its number, such as ENOENT.
    PosixError(int number, const std::string& message);

    /// What errno says of a call of the platform that has just failed, told with `what` (a path, mostly).
    static PosixError last(const std::string& what);

    const std::string& code() const { return code_; }

private:
    std::string code_;
};

/// An open file. It is destroyed when it is no longer used, after `release`; it keeps working when its name is changed
/// or removed.
class File {
public:
    File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    virtual ~File();

    /// Puts bytes from `offset` on at the front of `into` and returns their count: as many as fit, fewer only at the
    /// end of the file, none past it.
    virtual std::size_t read(std::uint64_t offset, std::span<std::byte> into) = 0;

    /// Writes all of `data`, which belongs to the kit, at `offset`; a gap before it is filled with zeros. EPERM unless
    /// overridden.
    virtual void write(std::uint64_t offset, std::span<const std::byte> data);

    /// What was written is to be durable. Nothing unless overridden.
    virtual void flush();

    /// The file is no longer used; called once, whatever it throws. Nothing unless overridden.
    virtual void release();
};

/// A file system that is only read: whatever would change something is answered with EROFS, and `open` is called for
/// reading alone.
class FileSystem {
public:
    /// Takes one member of a folder: its name, without slashes, and what getattr would say of it.
    using Members = std::function<void(std::string_view name, const Stat& stat)>;

    FileSystem() = default;
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;
    virtual ~FileSystem();

    /// What is known of a path. Must throw ENOENT when there is nothing.
    virtual Stat getattr(const std::string& path) = 0;

    /// Calls `add` for each member of a folder, without "." and "..". A member may be sent before the next is added.
    virtual void readdir(const std::string& path, const Members& add) = 0;

    /// Opens a file.
    virtual std::unique_ptr<File> open(const std::string& path, const OpenFlags& flags) = 0;

    /// Zeros unless overridden.
    virtual Figures statfs();

    /// The helper is about to end; everything open has been released. Nothing unless overridden.
    virtual void end();
};

/// A file system that can be changed. What is not overridden is answered with EPERM.
class WritableFileSystem : public FileSystem {
public:
    virtual void mkdir(const std::string& path);
    /// Removes a file or an empty folder.
    virtual void unlink(const std::string& path);
    /// Replaces what is at `newPath`.
    virtual void rename(const std::string& oldPath, const std::string& newPath);
    /// Permission bits, 0 to 07777.
    virtual void chmod(const std::string& path, unsigned mode);
    virtual void utimes(const std::string& path, Time mtime);
};

/// Serves a file system over standard input and output until the input ends or nobody reads the answers any more; then
/// releases what is open and calls `end`. Returns what `main` should return: 0.
///
/// Standard output is the mount's: what is printed there goes to standard error instead, from before `main` where a
/// mount has started the process, from this call on elsewhere. Standard input is empty for everybody else. SIGPIPE is
/// ignored from here on.
///
/// Call it once in a process.
int serve(FileSystem& fileSystem);

/// Tells the mount that something was made, removed, replaced or written at these paths, or beneath them, otherwise
/// than through the mount: what it and the kernel remember of them is dropped, within some milliseconds. With that a
/// mount may remember for long (`-o entry_timeout=3600,attr_timeout=3600`). The paths are those of the served tree, as
/// `getattr` is given them; they need not exist any more. Returns at once; what it cannot do it says on standard error,
/// once. Any thread, at any time, also in the functions of the file system; after `serve` it does nothing.
void changed(std::string_view path) noexcept;
void changed(std::initializer_list<std::string_view> paths) noexcept;
void changed(const std::vector<std::string>& paths) noexcept;

} // namespace kemvi
