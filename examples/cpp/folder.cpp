// Serves the folder in KEMVI_REPO_ROOT: a helper in C++ in one file, for Linux. Symbolic links show as empty files and
// are not followed. How to build it: README.md beside this file.
#include <kemvi/helper.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

void check(bool succeeded, const std::string& path) {
    if (!succeeded)
        throw kemvi::PosixError::last(path);
}

struct Descriptor {
    Descriptor(int number, const std::string& path) : number_(number) { check(number >= 0, path); }

    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

    ~Descriptor() { ::close(number_); } // of -1 that is nothing

    operator int() const { return number_; }

    int number_;
};

kemvi::Stat statOf(const struct stat& facts) {
    return {.isDirectory = S_ISDIR(facts.st_mode),
            .size = S_ISREG(facts.st_mode) ? static_cast<std::uint64_t>(facts.st_size) : 0,
            .modifiedAt = kemvi::timeOf(facts.st_mtim)};
}

struct OpenFile : kemvi::File {
    explicit OpenFile(Descriptor file) : file_(std::move(file)) {}

    std::size_t read(std::uint64_t offset, std::span<std::byte> into) override {
        return countOf(::pread(file_, into.data(), into.size(), static_cast<off_t>(offset)));
    }

    void write(std::uint64_t offset, std::span<const std::byte> data) override {
        for (std::size_t done = 0; done < data.size();)
            done += countOf(::pwrite(file_, data.data() + done, data.size() - done, static_cast<off_t>(offset + done)));
    }

    void flush() override { check(::fdatasync(file_) == 0, "flush"); }

private:
    static std::size_t countOf(ssize_t count) {
        check(count >= 0, "an open file");
        return static_cast<std::size_t>(count);
    }

    Descriptor file_;
};

struct Folder : kemvi::WritableFileSystem {
    explicit Folder(const char* root) : root_(::open(root, O_PATH | O_DIRECTORY | O_CLOEXEC), root) {}

    kemvi::Stat getattr(const std::string& path) override {
        return statOf(facts(find(path, O_PATH | O_NOFOLLOW), path));
    }

    void readdir(const std::string& path, const Members& add) override {
        Descriptor folder = find(path, O_RDONLY | O_DIRECTORY);
        const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(::dup(folder)), ::closedir);
        check(stream != nullptr, path);
        while (const dirent* entry = ::readdir(stream.get())) {
            const std::string name = entry->d_name;
            struct stat known;
            if (name != "." && name != ".." && ::fstatat(folder, entry->d_name, &known, AT_SYMLINK_NOFOLLOW) == 0)
                add(name, statOf(known));
        }
    }

    std::unique_ptr<kemvi::File> open(const std::string& path, const kemvi::OpenFlags& flags) override {
        const int access = !flags.write ? O_RDONLY : flags.read ? O_RDWR : O_WRONLY;
        Descriptor file = find(path, access | (flags.create ? O_CREAT : 0) | O_NONBLOCK);
        if (!S_ISREG(facts(file, path).st_mode))
            throw kemvi::PosixError("EISDIR", path + " is no file");
        check(!flags.truncate || ::ftruncate(file, 0) == 0, path);
        return std::make_unique<OpenFile>(std::move(file));
    }

    void mkdir(const std::string& path) override { check(::mkdirat(above(path), name(path), 0777) == 0, path); }

    void unlink(const std::string& path) override {
        if (::unlinkat(above(path), name(path), 0) != 0)
            check(errno == EISDIR && ::unlinkat(above(path), name(path), AT_REMOVEDIR) == 0, path);
    }

    void rename(const std::string& oldPath, const std::string& newPath) override {
        check(::renameat(above(oldPath), name(oldPath), above(newPath), name(newPath)) == 0, oldPath);
    }

    void chmod(const std::string& path, unsigned mode) override {
        check(::fchmodat(above(path), name(path), mode & 0777, AT_SYMLINK_NOFOLLOW) == 0, path);
    }

    void utimes(const std::string& path, kemvi::Time mtime) override {
        const timespec times[] = {{0, UTIME_OMIT}, kemvi::timespecOf(mtime)};
        check(::utimensat(above(path), name(path), times, AT_SYMLINK_NOFOLLOW) == 0, path);
    }

private:
    /// Opens what is at a path; the system sees to it that neither ".." nor a link leads out of the folder.
    Descriptor find(const std::string& path, int flags) const {
        open_how how{};
        how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
        how.mode = flags & O_CREAT ? 0666 : 0;
        how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
        const std::string relative = path == "/" ? "." : path.substr(1);
        return {static_cast<int>(::syscall(SYS_openat2, int{root_}, relative.c_str(), &how, sizeof how)), path};
    }

    Descriptor above(const std::string& path) const {
        return find(path.substr(0, std::max<std::size_t>(path.rfind('/'), 1)), O_PATH | O_DIRECTORY);
    }

    static const char* name(const std::string& path) {
        if (path.ends_with("/.."))
            throw kemvi::PosixError("EACCES", path + " leads out of the folder");
        return path == "/" ? "." : path.c_str() + path.rfind('/') + 1;
    }

    static struct stat facts(int file, const std::string& path) {
        struct stat known;
        check(::fstat(file, &known) == 0, path);
        return known;
    }

    const Descriptor root_;
};

int main() try {
    const char* root = std::getenv("KEMVI_REPO_ROOT");
    Folder folder(root != nullptr ? root : "");
    return kemvi::serve(folder);

} catch (const kemvi::PosixError& error) {

    std::fprintf(stderr, "folder: KEMVI_REPO_ROOT must name the folder to serve: %s\n", error.what());
    return 1;
}
