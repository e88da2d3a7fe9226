#include "cli/HostRecord.h"

#include "cli/CommandError.h"
#include "cli/ProcessTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits.h>
#include <sstream>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

constexpr const char* recordName = "kemvi-mount";
constexpr const char* recordLink = "/memfd:kemvi-mount (deleted)";

// The first bytes are the device number, or "-", filled up with spaces; the path follows, and, behind a NUL, that
// of the control channel.
constexpr std::size_t numberLength = 12;

std::string numberField(std::optional<unsigned> deviceMinor) {
    std::string field = deviceMinor ? std::to_string(*deviceMinor) : "-";
    field.resize(numberLength, ' ');
    return field;
}

/// The user of a process, where it has one user alone; one that changed its user is nobody's to end.
std::optional<uid_t> onlyUserOf(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (!line.starts_with("Uid:"))
            continue;
        std::istringstream numbers(line.substr(4));
        std::array<uid_t, 4> users{};
        for (uid_t& user : users)
            numbers >> user;
        const bool alike = users[0] == users[1] && users[0] == users[2] && users[0] == users[3];
        return numbers && alike ? std::optional(users[0]) : std::nullopt;
    }
    return std::nullopt;
}

struct FoundRecord {
    std::string path; // by which /proc shows it
    timespec written{};
};

/// The record that a process holds; nothing if it holds none that belongs to its own user.
std::optional<FoundRecord> recordOf(pid_t pid, uid_t user) {
    std::error_code error;
    for (filesystem::directory_iterator entry("/proc/" + std::to_string(pid) + "/fd", error), end;
         !error && entry != end; entry.increment(error)) {
        std::error_code ignored;

        struct stat about {};

        if (filesystem::read_symlink(entry->path(), ignored) == recordLink &&
            ::stat(entry->path().c_str(), &about) == 0 && S_ISREG(about.st_mode) && about.st_uid == user)
            return FoundRecord{entry->path().string(), about.st_mtim};
    }
    return std::nullopt;
}

/// False if the file has not the form of a record.
bool readRecord(const std::string& path, ServingProcess& into) {
    std::ifstream file(path, std::ios::binary);
    std::string text(numberLength + 2 * std::size_t{PATH_MAX}, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() <= numberLength)
        return false;
    unsigned number = 0;
    const auto result = std::from_chars(text.data(), text.data() + numberLength, number);
    into.deviceMinor = result.ec == std::errc() ? std::optional(number) : std::nullopt;
    const auto end = std::min(text.find('\0', numberLength), text.size());
    into.mountPoint = text.substr(numberLength, end - numberLength);
    into.controlPath = end < text.size() ? text.substr(end + 1) : std::string();
    return true;
}

std::optional<ServingProcess> servingProcess(pid_t pid) {
    ServingProcess found{HeldProcess(pid), 0, {}, std::nullopt, {}, {}};
    const auto user = onlyUserOf(pid);
    const auto record = user ? recordOf(pid, *user) : std::nullopt;
    // Looked at last: while the process held lives, the number was its own all along.
    if (!record || !readRecord(record->path, found) || found.process.gone())
        return std::nullopt;
    found.owner = *user;
    found.noted = record->written;
    return found;
}

bool isEarlier(const timespec& one, const timespec& other) {
    return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

/// Leaves each device number to the process that noted it last; the mounts of the others are gone.
void forgetReusedDevices(std::vector<ServingProcess>& all) {
    for (auto& serving : all) {
        const bool isReused = std::any_of(all.begin(), all.end(), [&](const ServingProcess& other) {
            return serving.deviceMinor && other.deviceMinor == serving.deviceMinor && other.owner == serving.owner &&
                   isEarlier(serving.noted, other.noted);
        });
        if (isReused)
            serving.deviceMinor.reset();
    }
}

} // namespace

HostRecord::HostRecord(const std::string& mountPoint, const std::string& controlPath)
    : descriptor_(::memfd_create(recordName, MFD_CLOEXEC)) {
    std::string text = numberField(std::nullopt) + mountPoint;
    if (!controlPath.empty())
        text.append(1, '\0').append(controlPath);
    if (!descriptor_.isOpen() || ::pwrite(descriptor_.number(), text.data(), text.size(), 0) < 0)
        throw CommandError(ExitCode::failure, mountPoint, "cannot be noted as mounted: " + errnoText(errno));
}

void HostRecord::setDevice(std::optional<unsigned> deviceMinor) {
    const std::string field = numberField(deviceMinor);
    [[maybe_unused]] const auto written = ::pwrite(descriptor_.number(), field.data(), field.size(), 0);
}

std::vector<ServingProcess> servingProcesses() {
    std::vector<ServingProcess> found;
    for (const pid_t pid : allProcesses()) {
        // The name alone proves nothing; it spares a look at the descriptors of every process there is.
        if (pid == ::getpid() || !processName(pid).starts_with("kemvi-"))
            continue;
        if (auto serving = servingProcess(pid))
            found.push_back(std::move(*serving));
    }
    forgetReusedDevices(found);
    return found;
}

} // namespace cli
