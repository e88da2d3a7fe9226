#pragma once

#include "foundation/ISO8601.h"
#include "helper/JSONValue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kemvi {

/// The one formatter for times in requests and results. Any thread.
const foundation::ISO8601DateFormatter& kemviFs();

/// What is known of one path, from "getattr" and from each element of "readdir".
struct KemviFileStat {
    std::string path; // as the helper reported it
    std::string name; // last component of the path
    bool isDirectory = false;
    std::int64_t size = 0; // bytes
    std::optional<foundation::Date> modifiedAt;

    KemviFileStat() = default;
    /// Reads a stat value. Missing or mistyped members take their defaults; throws AdapterError only if the value is no
    /// object. A size outside the range of a 64-bit integer stops the process.
    explicit KemviFileStat(const JSONValue& json);

    /// "dir" or "file", a space, the path.
    std::string description() const;

    friend bool operator==(const KemviFileStat&, const KemviFileStat&) = default;
};

/// One entry of a directory.
struct KemviDirEntry {
    std::string path;
    std::string name;
    bool isDirectory = false;
    std::optional<std::int64_t> size; // bytes
    std::optional<foundation::Date> modifiedAt;

    KemviDirEntry() = default;
    explicit KemviDirEntry(KemviFileStat stat);

    /// "dir " or "file", a space, the path: paths line up.
    std::string description() const;

    friend bool operator==(const KemviDirEntry&, const KemviDirEntry&) = default;
};

/// Figures of the served tree.
struct KemviStatFS {
    std::int64_t files = 0;
    std::int64_t directories = 0;
    std::int64_t bytes = 0;

    KemviStatFS() = default;
    /// Reads a "statfs" result; throws AdapterError if it is absent or no object. Missing or mistyped members are 0; a
    /// number outside the range of a 64-bit integer stops the process.
    explicit KemviStatFS(const std::optional<JSONValue>& json);

    friend bool operator==(const KemviStatFS&, const KemviStatFS&) = default;
};

/// True if `number`, cut off toward zero, is a 64-bit integer.
bool fitsInteger(double number);

/// `number` cut off toward zero. Stops the process if it is not finite or does not fit: the helper is trusted to send
/// counts that do.
std::int64_t integerFromNumber(double number);

} // namespace kemvi
