#include "hosts/fuse/mounting/MountOptions.h"

#include "hosts/fuse/mounting/OptionList.h"

#include <array>
#include <charconv>
#include <cmath>
#include <functional>
#include <grp.h>
#include <limits>
#include <map>
#include <pwd.h>

namespace fusehost {
namespace {

constexpr std::uint32_t smallestRequest = 4096;
constexpr std::uint32_t largestRequest = 1024 * 1024;

[[noreturn]] void fail(std::string_view name, std::string_view expected) {
    throw MountOptionError("option \"" + std::string(name) + "\": expected " + std::string(expected));
}

Seconds seconds(std::string_view name, std::string_view value) {
    double number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (value.empty() || error != std::errc() || end != value.data() + value.size() || !std::isfinite(number) ||
        number < 0)
        fail(name, "a number of seconds, 0 or more");
    return Seconds(number);
}

std::uint32_t integer(std::string_view name, std::string_view value, int base, std::string_view expected) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number, base);
    if (value.empty() || error != std::errc() || end != value.data() + value.size())
        fail(name, expected);
    return number;
}

bool startsWithDigit(std::string_view value) {
    return !value.empty() && value.front() >= '0' && value.front() <= '9';
}

std::uint32_t ownerNumber(std::string_view name, std::string_view value, std::string_view expected) {
    const std::uint32_t number = integer(name, value, 10, expected);
    if (number == std::numeric_limits<std::uint32_t>::max()) // the kernel's "no one in particular"
        fail(name, expected);
    return number;
}

std::uint32_t user(std::string_view name, std::string_view value) {
    constexpr std::string_view expected = "a user id or the name of a user of this machine";
    if (startsWithDigit(value))
        return ownerNumber(name, value, expected);
    const passwd* known = getpwnam(std::string(value).c_str());
    if (known == nullptr)
        fail(name, expected);
    return known->pw_uid;
}

std::uint32_t group(std::string_view name, std::string_view value) {
    constexpr std::string_view expected = "a group id or the name of a group of this machine";
    if (startsWithDigit(value))
        return ownerNumber(name, value, expected);
    const ::group* known = getgrnam(std::string(value).c_str());
    if (known == nullptr)
        fail(name, expected);
    return known->gr_gid;
}

std::uint32_t mask(std::string_view name, std::string_view value) {
    const std::uint32_t bits = integer(name, value, 8, "permission bits in octal, such as 022");
    if (bits > 0777)
        fail(name, "permission bits in octal, at most 777");
    return bits;
}

std::uint32_t requestBytes(std::string_view name, std::string_view value) {
    const std::string expected = "a multiple of 4096 bytes from 4096 to 1048576";
    std::uint32_t unit = 1;
    if (value.ends_with('k') || value.ends_with('K'))
        unit = 1024;
    else if (value.ends_with('m') || value.ends_with('M'))
        unit = 1024 * 1024;
    if (unit > 1)
        value.remove_suffix(1);
    const std::uint32_t count = integer(name, value, 10, expected);
    if (count > largestRequest / unit)
        fail(name, expected);
    const std::uint32_t bytes = count * unit;
    if (bytes < smallestRequest || bytes > largestRequest || bytes % smallestRequest != 0)
        fail(name, expected);
    return bytes;
}

bool automaticOrOff(std::string_view name, std::string_view value) {
    if (value != "auto" && value != "off")
        fail(name, "auto or off");
    return value == "auto";
}

Seconds timeLimit(std::string_view name, std::string_view value) {
    const Seconds limit = seconds(name, value);
    if (limit < Seconds(0.1) || limit > std::chrono::hours(24))
        fail(name, "a number of seconds from 0.1 to 86400");
    return limit;
}

OnDeath onDeath(std::string_view name, std::string_view value) {
    if (value == "fail")
        return OnDeath::fail;
    if (value == "exit")
        return OnDeath::exit;
    if (value != "restart")
        fail(name, "fail, exit or restart");
    return OnDeath::restart;
}

std::string file(std::string_view name, std::string_view value) {
    if (value.empty())
        fail(name, "the path of a file");
    return std::string(value);
}

foundation::LogLevel logLevel(std::string_view name, std::string_view value) {
    const auto level = logLevelNamed(value);
    if (!level)
        fail(name, "debug, info, warning or error");
    return *level;
}

using WithValue = std::function<void(MountOptions&, std::string_view name, std::string_view value)>;

const std::map<std::string_view, WithValue>& optionsWithValue() {
    static const std::map<std::string_view, WithValue> table = {
        {"entry_timeout", [](MountOptions& o, auto name, auto value) { o.entryTimeout = seconds(name, value); }},
        {"attr_timeout", [](MountOptions& o, auto name, auto value) { o.attrTimeout = seconds(name, value); }},
        {"negative_timeout", [](MountOptions& o, auto name, auto value) { o.negativeTimeout = seconds(name, value); }},
        {"fmask", [](MountOptions& o, auto name, auto value) { o.fileMask = mask(name, value); }},
        {"dmask", [](MountOptions& o, auto name, auto value) { o.directoryMask = mask(name, value); }},
        {"umask", [](MountOptions& o, auto name, auto value) { o.fileMask = o.directoryMask = mask(name, value); }},
        {"uid", [](MountOptions& o, auto name, auto value) { o.uid = user(name, value); }},
        {"gid", [](MountOptions& o, auto name, auto value) { o.gid = group(name, value); }},
        {"request_size", [](MountOptions& o, auto name, auto value) { o.requestSize = requestBytes(name, value); }},
        {"placement", [](MountOptions& o, auto name, auto value) { o.placement = automaticOrOff(name, value); }},
        {"on_death", [](MountOptions& o, auto name, auto value) { o.onDeath = onDeath(name, value); }},
        {"op_timeout", [](MountOptions& o, auto name, auto value) { o.operationTimeout = timeLimit(name, value); }},
        {"fsname", [](MountOptions& o, auto, auto value) { o.fsname = std::string(value); }},
        {"log_file", [](MountOptions& o, auto name, auto value) { o.logFile = file(name, value); }},
        {"log_level", [](MountOptions& o, auto name, auto value) { o.logLevel = logLevel(name, value); }},
    };
    return table;
}

const std::map<std::string_view, void (*)(MountOptions&)>& flags() {
    static const std::map<std::string_view, void (*)(MountOptions&)> table = {
        {"ro", [](MountOptions& o) { o.readOnly = true; }},
        {"rw", [](MountOptions& o) { o.readOnly = false; }},
        {"allow_other", [](MountOptions& o) { o.allowOther = true; }},
        {"quiet", [](MountOptions& o) { o.quiet = true; }},
        {"writeback", [](MountOptions& o) { o.writeback = true; }},
        {"close_to_open", [](MountOptions& o) { o.closeToOpen = true; }},
        {"nonempty", [](MountOptions& o) { o.nonEmpty = true; }},
        {"show_private", [](MountOptions& o) { o.showPrivate = true; }},
        {"default_permissions", [](MountOptions& o) { o.defaultPermissions = true; }},
    };
    return table;
}

bool isKernelOption(std::string_view name) {
    constexpr std::array names = {"suid",  "nosuid",  "dev",  "nodev", "exec",   "noexec",
                                  "atime", "noatime", "sync", "async", "dirsync"};
    for (std::string_view known : names)
        if (name == known)
            return true;
    return false;
}

/// What only mount(8) and systemd read, and what other FUSE file systems need to be told and this one does by itself.
bool isForOthers(std::string_view name) {
    constexpr std::array names = {"defaults",   "auto",       "noauto",         "user",        "nouser",
                                  "users",      "owner",      "group",          "_netdev",     "nofail",
                                  "relatime",   "norelatime", "strictatime",    "diratime",    "nodiratime",
                                  "lazytime",   "nolazytime", "auto_unmount",   "big_writes",  "kernel_cache",
                                  "auto_cache", "async_read", "atomic_o_trunc", "splice_read", "splice_write"};
    for (std::string_view known : names)
        if (name == known)
            return true;
    for (std::string_view beginning : {"x-", "X-", "comment=", "user=", "max_read="})
        if (name.starts_with(beginning))
            return true;
    return false;
}

/// Options that users know from elsewhere and that cannot be had here, with what to do instead.
void explainUnavailable(std::string_view name) {
    if (name == "remount")
        throw MountOptionError(
            "option \"remount\": the options of a mount cannot be changed while it lives; unmount it "
            "and mount it again");
    if (name == "allow_root")
        throw MountOptionError("option \"allow_root\" is not offered; allow_other,fmask=177,dmask=077 lets root in and "
                               "keeps all others out");
}

void addOne(MountOptions& options, std::string_view option) {
    const std::size_t equals = option.find('=');
    const std::string_view name = option.substr(0, equals);
    if (isForOthers(option))
        return;
    explainUnavailable(name);
    if (const auto known = optionsWithValue().find(name); known != optionsWithValue().end()) {
        if (equals == std::string_view::npos)
            fail(name, "a value, as in " + std::string(name) + "=...");
        known->second(options, name, option.substr(equals + 1));
        return;
    }
    if (const auto known = flags().find(name); known != flags().end()) {
        if (equals != std::string_view::npos)
            fail(name, "no value");
        known->second(options);
        return;
    }
    if (isKernelOption(name) && equals != std::string_view::npos)
        fail(name, "no value");
    if (!isKernelOption(option))
        throw MountOptionError("option \"" + std::string(name) + "\" is not known; 'kemvi mount --help' lists them");
    options.kernelOptions.emplace_back(option);
}

} // namespace

std::optional<foundation::LogLevel> logLevelNamed(std::string_view name) {
    using foundation::LogLevel;
    const std::pair<std::string_view, LogLevel> levels[] = {{"debug", LogLevel::debug},
                                                            {"info", LogLevel::info},
                                                            {"warning", LogLevel::warning},
                                                            {"error", LogLevel::error}};
    for (const auto& [known, level] : levels)
        if (name == known)
            return level;
    return std::nullopt;
}

bool MountOptions::kernelChecksPermissions() const {
    return defaultPermissions || allowOther || uid || gid || fileMask || directoryMask;
}

void MountOptions::add(std::string_view commaSeparated) {
    for (const std::string_view option : optionsIn(commaSeparated))
        addOne(*this, unescapedOption(option));
}

} // namespace fusehost
