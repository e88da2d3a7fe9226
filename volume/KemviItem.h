#pragma once

#include "foundation/ISO8601.h"
#include "fskit/FSItem.h"
#include "helper/HelperRecords.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kemvi {

/// One path of the served tree, with the facts that were known when the item was made. Immutable: a changed file is
/// represented by a new item. Safe to read from any thread.
class KemviItem final : public fskit::FSItem {
public:
    KemviItem() = delete; // an item without a path has no meaning

    /// Stores the values as they are. `size` is in bytes, as the helper reported it.
    KemviItem(std::string path, fskit::FSItemID itemID, bool isDirectory, std::int64_t size,
              std::optional<foundation::Date> modifiedAt);

    /// The item of a helper's answer; the identifier is that of the path in it.
    explicit KemviItem(const KemviFileStat& stat);

    /// Absolute path within the tree, "/" for the root; never normalised.
    const std::string& path() const { return path_; }

    fskit::FSItemID identifier() const override { return identifier_; }

    /// Whether the paths are equal.
    bool isSame(const fskit::FSItem& other) const override;

    bool isDirectory() const { return isDirectory_; }

    /// Bytes; may be negative if the helper said so.
    std::int64_t size() const { return size_; }

    /// A negative size is how a helper says that it does not know it.
    bool isSizeKnown() const override { return size_ >= 0; }

    const std::optional<foundation::Date>& modifiedAt() const { return modifiedAt_; }

    /// The full attribute record, made from the item's own facts. Fatal where `attributes` is.
    std::optional<fskit::FSItemAttributes> knownAttributes() const override;

    /// Whether the identifier is that of the path beneath this one.
    bool hasMember(std::string_view name, fskit::FSItemID identifier) const override;

    /// The item of the path beneath this one; without a modification time.
    std::shared_ptr<fskit::FSItem> member(std::string_view name, fskit::FSItemType type,
                                          std::uint64_t size) const override;

    /// The identifier of a path: the root directory's for "/", otherwise a hash of the path's bytes, 3 or more. A pure
    /// function of the path, so that identifiers outlive lookups, remounts and helpers without any table. Paths with
    /// the same hash share an identifier.
    static fskit::FSItemID identifierFor(std::string_view path);

    /// The path of the directory that holds `path`; "/" for the root and for a path of one component.
    static std::string parentPath(std::string_view path);

private:
    static std::uint64_t stableRawID(std::string_view path);

    std::string path_;
    fskit::FSItemID identifier_;
    bool isDirectory_;
    std::int64_t size_;
    std::optional<foundation::Date> modifiedAt_;
};

} // namespace kemvi
