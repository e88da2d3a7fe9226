#pragma once

#include "foundation/ISO8601.h"
#include "fskit/FSItem.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

// Paths, times and attribute records: pure functions, safe on any thread.
namespace kemvi {

/// The path of `name` inside `directory`. The name is used as it stands: nothing is looked for in it, nothing
/// normalised.
std::string joinPath(std::string_view directory, std::string_view name);

/// Whole seconds since 1970, rounded down, and 0 to 999,999,999 nanoseconds, cut off. Fatal for a time that is not
/// finite or whose seconds do not fit 64 bits.
timespec timespecFor(foundation::Date date);

/// Who owns every file and directory of a volume.
struct Owner {
    std::uint32_t uid;
    std::uint32_t gid;

    /// The user and group this process runs under. Asked of the platform once: they do not change while it serves, and
    /// two system calls per record would cost a lookup more than all else in the record.
    static Owner current();
};

/// The full attribute record of a path from the facts about it. `size` is in bytes; a negative one counts as 0, and one
/// within 4095 of the largest 64-bit value is fatal. An absent `modifiedAt` gives the epoch for every time.
fskit::FSItemAttributes attributes(std::string_view path, bool isDirectory, std::int64_t size,
                                   const std::optional<foundation::Date>& modifiedAt);

/// The identifiers of a path and of the directory that holds it.
struct Identifiers {
    fskit::FSItemID item;
    fskit::FSItemID parent;

    static Identifiers of(std::string_view path);
};

/// The same for identifiers and an owner already known: a listing has a parent once and not for every entry.
fskit::FSItemAttributes attributes(Identifiers identifiers, bool isDirectory, std::int64_t size,
                                   const std::optional<foundation::Date>& modifiedAt, Owner owner);

/// The same for an owner already known.
fskit::FSItemAttributes attributes(std::string_view path, bool isDirectory, std::int64_t size,
                                   const std::optional<foundation::Date>& modifiedAt, Owner owner);

} // namespace kemvi
