#include "ServedFolder.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace bench {
namespace {

void check(bool succeeded, const std::string& what) {
    if (!succeeded)
        throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

void ServedFolder::answer(const RequestFields& request, AnswerLine& line) {
    if (request.op == "getattr")
        getattr(request, line);
    else if (request.op == "read")
        read(request, line);
    else if (request.op == "write")
        write(request);
    else if (request.op == "open")
        open(request, line);
    else if (request.op == "release")
        release(request);
    else if (request.op == "readdir")
        readdir(request, line);
    else if (request.op == "unlink")
        unlink(request);
    else if (request.op == "utimes")
        utimes(request);
    else if (request.op == "statfs")
        line.raw(R"(,"result":{})");
    else if (request.op != "ping")
        change(request);
}

void ServedFolder::addStat(AnswerLine& line, std::string_view path, std::string_view name, const struct stat& facts) {
    const double seconds =
        static_cast<double>(facts.st_mtim.tv_sec) + static_cast<double>(facts.st_mtim.tv_nsec / 1000000) / 1000;
    line.raw("{\"path\":").quoted(path).raw(",\"name\":").quoted(name);
    line.raw(S_ISDIR(facts.st_mode) ? ",\"isDirectory\":true" : ",\"isDirectory\":false");
    line.raw(",\"size\":").number(S_ISDIR(facts.st_mode) ? 0 : facts.st_size);
    line.raw(",\"modifiedAt\":\"").raw(times_.string({seconds})).raw("\"}");
}

void ServedFolder::getattr(const RequestFields& request, AnswerLine& line) {
    struct stat facts {};

    check(::lstat(real(request.path).c_str(), &facts) == 0, request.path);
    line.raw(",\"result\":");
    addStat(line, request.path, request.path.substr(request.path.rfind('/') + 1), facts);
}

void ServedFolder::readdir(const RequestFields& request, AnswerLine& line) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(real(request.path).c_str()), ::closedir);
    check(directory != nullptr, request.path);
    const std::string prefix = request.path == "/" ? request.path : request.path + "/";
    bool first = true;
    line.raw(",\"result\":[");
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string name = entry->d_name;

        struct stat facts {};

        if (name == "." || name == ".." ||
            ::fstatat(::dirfd(directory.get()), entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        line.raw(first ? "" : ",");
        addStat(line, prefix + name, name, facts);
        first = false;
    }
    line.raw("]");
}

void ServedFolder::open(const RequestFields& request, AnswerLine& line) {
    const int flags = (request.writes ? O_WRONLY : O_RDONLY) | (request.creates ? O_CREAT : 0) |
                      (request.truncates ? O_TRUNC : 0) | O_CLOEXEC;
    const int opened = ::open(real(request.path).c_str(), flags, 0666);
    check(opened >= 0, request.path);
    open_[++lastHandle_] = opened;
    line.raw(",\"result\":{\"handle\":").number(lastHandle_).raw("}");
}

int ServedFolder::descriptor(const RequestFields& request) const {
    const auto found = open_.find(request.handle);
    if (found == open_.end())
        throw std::system_error(EBADF, std::generic_category(), "handle");
    return found->second;
}

void ServedFolder::read(const RequestFields& request, AnswerLine& line) {
    const auto length = static_cast<std::size_t>(request.length);
    if (scratch_.size() < length)
        scratch_.resize(length);
    const ssize_t count = ::pread(descriptor(request), scratch_.data(), length, request.offset);
    check(count >= 0, "read");
    line.raw(",\"dataBase64\":\"").base64({scratch_.data(), static_cast<std::size_t>(count)}).raw("\"");
}

void ServedFolder::write(const RequestFields& request) {
    const int file = descriptor(request);
    for (std::size_t done = 0; done < request.data.size();) {
        const ssize_t count = ::pwrite(file, request.data.data() + done, request.data.size() - done,
                                       request.offset + static_cast<off_t>(done));
        check(count >= 0, "write");
        done += static_cast<std::size_t>(count);
    }
}

void ServedFolder::release(const RequestFields& request) {
    ::close(descriptor(request));
    open_.erase(request.handle);
}

void ServedFolder::unlink(const RequestFields& request) {
    const std::string path = real(request.path);
    check(::unlink(path.c_str()) == 0 || (errno == EISDIR && ::rmdir(path.c_str()) == 0), request.path);
}

void ServedFolder::utimes(const RequestFields& request) {
    const auto date = times_.date(request.mtime);
    if (!date)
        throw std::system_error(EINVAL, std::generic_category(), request.mtime);
    const auto microseconds = static_cast<std::int64_t>(date->secondsSince1970 * 1e6 + 0.5);
    const timespec stamps[] = {{0, UTIME_OMIT}, {microseconds / 1000000, microseconds % 1000000 * 1000}};
    check(::utimensat(AT_FDCWD, real(request.path).c_str(), stamps, 0) == 0, request.path);
}

void ServedFolder::change(const RequestFields& request) {
    if (request.op == "flush")
        check(::fdatasync(descriptor(request)) == 0, "flush");
    else if (request.op == "mkdir")
        check(::mkdir(real(request.path).c_str(), 0777) == 0, request.path);
    else if (request.op == "rename")
        check(::rename(real(request.oldPath).c_str(), real(request.newPath).c_str()) == 0, request.oldPath);
    else if (request.op == "chmod")
        check(::chmod(real(request.path).c_str(), static_cast<mode_t>(request.mode)) == 0, request.path);
    else
        throw std::runtime_error("unknown operation " + request.op);
}

} // namespace bench
