#import "macos/run/AttributeTable.h"

#include <type_traits>

namespace macostests {
namespace {

bool same(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

template <typename A, typename B>
bool same(A a, B b) {
    return static_cast<std::uint64_t>(a) == static_cast<std::uint64_t>(b);
}

template <typename T>
T made(unsigned seed) {
    if constexpr (std::is_same_v<T, BOOL> || std::is_same_v<T, bool>)
        return seed > 0;
    else if constexpr (std::is_same_v<T, timespec>)
        return {static_cast<time_t>(seed) * 1000, static_cast<long>(seed)};
    else
        return static_cast<T>(seed);
}

} // namespace

#define ROW(bit, name, Name)                                                                                           \
    AttributeRow {                                                                                                     \
        bit, #name,                                                                                                    \
            [](FSItemAttributes* platform, fskit::FSItemAttributes& core, unsigned seed) {                             \
                platform.name = made<decltype(platform.name)>(seed);                                                   \
                core.set##Name(made<decltype(core.name())>(seed));                                                     \
            },                                                                                                         \
            [](const fskit::FSItemAttributes& core, FSItemAttributes* platform) {                                      \
                platform.name = static_cast<decltype(platform.name)>(core.name());                                     \
            },                                                                                                         \
            [](FSItemAttributes* platform, fskit::FSItemAttributes& core) {                                            \
                core.set##Name(static_cast<decltype(core.name())>(platform.name));                                     \
            },                                                                                                         \
            [](FSItemAttributes* platform, const fskit::FSItemAttributes& core) {                                      \
                return same(platform.name, core.name());                                                               \
            }                                                                                                          \
    }

std::span<const AttributeRow> attributeRows() {
    static const AttributeRow rows[] = {
        ROW(0, type, Type),
        ROW(1, mode, Mode),
        ROW(2, linkCount, LinkCount),
        ROW(3, uid, Uid),
        ROW(4, gid, Gid),
        ROW(5, flags, Flags),
        ROW(6, size, Size),
        ROW(7, allocSize, AllocSize),
        ROW(8, fileID, FileID),
        ROW(9, parentID, ParentID),
        ROW(10, accessTime, AccessTime),
        ROW(11, modifyTime, ModifyTime),
        ROW(12, changeTime, ChangeTime),
        ROW(13, birthTime, BirthTime),
        ROW(14, backupTime, BackupTime),
        ROW(15, addedTime, AddedTime),
        ROW(16, supportsLimitedXAttrs, SupportsLimitedXAttrs),
        ROW(17, inhibitKernelOffloadedIO, InhibitKernelOffloadedIO),
    };
    return rows;
}

void fill(FSItemAttributes* platform, const fskit::FSItemAttributes& core) {
    for (const AttributeRow& row : attributeRows())
        if (core.isValid(static_cast<fskit::FSItemAttribute>(1 << row.bit)))
            row.toPlatform(core, platform);
}

fskit::FSItemAttributes coreAttributes(FSItemAttributes* platform) {
    fskit::FSItemAttributes core;
    for (const AttributeRow& row : attributeRows())
        if ([platform isValid:static_cast<FSItemAttribute>(1 << row.bit)])
            row.toCore(platform, core);
    return core;
}

} // namespace macostests
