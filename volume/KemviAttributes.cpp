#include "volume/KemviAttributes.h"

#include "foundation/Log.h"
#include "volume/KemviItem.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <sys/stat.h>
#include <unistd.h>

namespace kemvi {
namespace {

constexpr std::uint64_t allocationUnit = 4096;

std::uint64_t allocatedSize(std::uint64_t size) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (size >= largest - (allocationUnit - 1))
        foundation::fatalError("allocated size of a file overflows 64 bits");
    return (size + allocationUnit - 1) / allocationUnit * allocationUnit;
}

fskit::FSItemID parentIDFor(std::string_view path) {
    if (path == "/")
        return fskit::FSItemID::parentOfRoot;
    return KemviItem::identifierFor(KemviItem::parentPath(path));
}

void setTimes(fskit::FSItemAttributes& record, timespec time) {
    record.setModifyTime(time);
    record.setChangeTime(time);
    record.setAccessTime(time);
    record.setBirthTime(time);
    record.setAddedTime(time);
}

} // namespace

std::string joinPath(std::string_view directory, std::string_view name) {
    std::string path;
    path.reserve(directory.size() + 1 + name.size());
    if (directory != "/")
        path.append(directory);
    return path.append("/").append(name);
}

timespec timespecFor(foundation::Date date) {
    const double since1970 = date.secondsSince1970;
    const double seconds = std::floor(since1970);
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (!std::isfinite(since1970) || seconds < -limit || seconds >= limit)
        foundation::fatalError("modification time does not fit 64 bits of seconds");
    // For a time just below a whole second the difference rounds up to 1.
    const double nanoseconds = std::min((since1970 - seconds) * 1'000'000'000.0, 999'999'999.0);
    return {static_cast<std::time_t>(seconds), static_cast<long>(nanoseconds)};
}

Owner Owner::current() {
    static const Owner owner{getuid(), getgid()};
    return owner;
}

fskit::FSItemAttributes attributes(std::string_view path, bool isDirectory, std::int64_t size,
                                   const std::optional<foundation::Date>& modifiedAt) {
    return attributes(path, isDirectory, size, modifiedAt, Owner::current());
}

Identifiers Identifiers::of(std::string_view path) {
    return {KemviItem::identifierFor(path), parentIDFor(path)};
}

fskit::FSItemAttributes attributes(std::string_view path, bool isDirectory, std::int64_t size,
                                   const std::optional<foundation::Date>& modifiedAt, Owner owner) {
    return attributes(Identifiers::of(path), isDirectory, size, modifiedAt, owner);
}

fskit::FSItemAttributes attributes(Identifiers identifiers, bool isDirectory, std::int64_t size,
                                   const std::optional<foundation::Date>& modifiedAt, Owner owner) {
    const auto bytes = static_cast<std::uint64_t>(std::max<std::int64_t>(size, 0));
    fskit::FSItemAttributes record;
    record.setType(isDirectory ? fskit::FSItemType::directory : fskit::FSItemType::file);
    record.setMode(isDirectory ? S_IFDIR | 0755 : S_IFREG | 0644);
    record.setLinkCount(isDirectory ? 2 : 1);
    record.setUid(owner.uid);
    record.setGid(owner.gid);
    record.setSize(bytes);
    record.setAllocSize(allocatedSize(bytes));
    record.setFileID(identifiers.item);
    record.setParentID(identifiers.parent);
    record.setSupportsLimitedXAttrs(false);
    setTimes(record, modifiedAt ? timespecFor(*modifiedAt) : timespec{0, 0});
    return record;
}

} // namespace kemvi
