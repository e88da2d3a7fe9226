#include "kemvi/helper.h"

namespace kemvi {
namespace {

[[noreturn]] void hasNo(const char* function) {
    throw PosixError("EPERM", std::string("this file system has no ") + function);
}

} // namespace

Time startOfHelper() {
    static const Time start = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    return start;
}

Time timeOf(const timespec& stored) {
    constexpr std::chrono::nanoseconds halfAMicrosecond{500};
    return Time(std::chrono::milliseconds(std::int64_t{stored.tv_sec} * 1000)) +
           std::chrono::floor<std::chrono::milliseconds>(std::chrono::nanoseconds(stored.tv_nsec) + halfAMicrosecond);
}

timespec timespecOf(Time time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    timespec stored{};
    stored.tv_sec = static_cast<std::time_t>(seconds.time_since_epoch().count());
    stored.tv_nsec = static_cast<long>(std::chrono::nanoseconds(time - seconds).count());
    return stored;
}

File::~File() = default;

void File::write(std::uint64_t, std::span<const std::byte>) {
    hasNo("write");
}

void File::flush() {}

void File::release() {}

FileSystem::~FileSystem() = default;

Figures FileSystem::statfs() {
    return {};
}

void FileSystem::end() {}

void WritableFileSystem::mkdir(const std::string&) {
    hasNo("mkdir");
}

void WritableFileSystem::unlink(const std::string&) {
    hasNo("unlink");
}

void WritableFileSystem::rename(const std::string&, const std::string&) {
    hasNo("rename");
}

void WritableFileSystem::chmod(const std::string&, unsigned) {
    hasNo("chmod");
}

void WritableFileSystem::utimes(const std::string&, Time) {
    hasNo("utimes");
}

} // namespace kemvi
