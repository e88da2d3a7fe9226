#include "hosts/fuse/mounting/MountTable.h"

#include "foundation/FileContents.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <future>
#include <memory>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <thread>

namespace fusehost {

namespace {

constexpr std::chrono::seconds staleProbeLimit{2};

std::vector<std::string_view> splitAt(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        const auto end = std::min(text.find(separator), text.size());
        pieces.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pieces;
}

/// The kernel writes space, tab, line break and backslash as a backslash and three octal digits.
std::string withoutOctalEscapes(std::string_view text) {
    const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
            isOctal(text[i + 3])) {
            plain += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::optional<unsigned> decimal(std::string_view text) {
    unsigned value = 0;
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return value;
}

/// What FUSE lists as the user who mounted, among the options of a file system.
std::optional<unsigned> ownerAmong(std::string_view options) {
    constexpr std::string_view key = "user_id=";
    for (const auto option : splitAt(options, ','))
        if (option.starts_with(key))
            return decimal(option.substr(key.size()));
    return std::nullopt;
}

/// "id parent major:minor root mountpoint options [tags...] - type source superoptions"
std::optional<MountEntry> parseLine(std::string_view line) {
    const auto fields = splitAt(line, ' ');
    const auto dash = std::find(fields.begin(), fields.end(), "-");
    if (dash - fields.begin() < 6 || fields.end() - dash < 3)
        return std::nullopt;
    const auto device = splitAt(fields[2], ':');
    if (device.size() != 2)
        return std::nullopt;
    const auto major = decimal(device[0]);
    const auto minor = decimal(device[1]);
    if (!major || !minor)
        return std::nullopt;
    return MountEntry{*major,
                      *minor,
                      withoutOctalEscapes(fields[4]),
                      withoutOctalEscapes(dash[1]),
                      withoutOctalEscapes(dash[2]),
                      ownerAmong(fields.end() - dash > 3 ? dash[3] : std::string_view())};
}

} // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text) {
    std::vector<MountEntry> table;
    for (const auto line : splitAt(text, '\n'))
        if (auto entry = parseLine(line))
            table.push_back(std::move(*entry));
    return table;
}

std::vector<MountEntry> readMountTable() {
    return parseMountInfo(foundation::contentsOfFile("/proc/self/mountinfo"));
}

std::optional<MountEntry> findMount(const std::vector<MountEntry>& table, std::string_view mountPoint) {
    const auto found = std::find_if(table.rbegin(), table.rend(),
                                    [&](const MountEntry& entry) { return entry.mountPoint == mountPoint; });
    return found == table.rend() ? std::nullopt : std::optional(*found);
}

bool leadsToDevice(const std::string& path, unsigned deviceMinor) {
    struct statx found {};

    // Asks the kernel alone: the file system there may be one whose process hangs, or has gone.
    constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    return ::statx(AT_FDCWD, path.c_str(), flags, 0, &found) == 0 && found.stx_dev_major == 0 &&
           found.stx_dev_minor == deviceMinor;
}

bool isStale(const std::string& mountPoint) {
    auto answer = std::make_shared<std::promise<int>>();
    auto result = answer->get_future();
    std::thread([answer, mountPoint] {
        struct statfs ignored {}; // what the kernel has in no cache
        answer->set_value(::statfs(mountPoint.c_str(), &ignored) == 0 ? 0 : errno);
    }).detach();
    if (result.wait_for(staleProbeLimit) != std::future_status::ready)
        return false;
    const int error = result.get();
    return error == ENOTCONN || error == ECONNABORTED; // ended before, or while it was asked
}

std::optional<std::string> reachablePath(const std::vector<MountEntry>& table, unsigned deviceMinor,
                                         const std::string& expected) {
    std::vector<std::string> paths;
    for (const auto& entry : table)
        if (entry.isOurs() && entry.deviceMajor == 0 && entry.deviceMinor == deviceMinor)
            paths.push_back(entry.mountPoint);
    const bool asExpected = std::find(paths.begin(), paths.end(), expected) != paths.end();
    if (!asExpected && paths.size() != 1)
        return std::nullopt;
    const auto& path = asExpected ? expected : paths.front();
    return leadsToDevice(path, deviceMinor) ? std::optional(path) : std::nullopt;
}

} // namespace fusehost
