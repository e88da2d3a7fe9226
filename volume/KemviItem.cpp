#include "volume/KemviItem.h"

#include "volume/KemviAttributes.h"

#include <algorithm>
#include <vector>

namespace kemvi {

KemviItem::KemviItem(std::string path, fskit::FSItemID itemID, bool isDirectory, std::int64_t size,
                     std::optional<foundation::Date> modifiedAt)
    : path_(std::move(path)), identifier_(itemID), isDirectory_(isDirectory), size_(size), modifiedAt_(modifiedAt) {}

KemviItem::KemviItem(const KemviFileStat& stat)
    : KemviItem(stat.path, identifierFor(stat.path), stat.isDirectory, stat.size, stat.modifiedAt) {}

std::optional<fskit::FSItemAttributes> KemviItem::knownAttributes() const {
    return attributes(path_, isDirectory_, size_, modifiedAt_);
}

bool KemviItem::isSame(const fskit::FSItem& other) const {
    const auto* known = dynamic_cast<const KemviItem*>(&other);
    return known != nullptr && known->path_ == path_;
}

bool KemviItem::hasMember(std::string_view name, fskit::FSItemID identifier) const {
    return identifierFor(joinPath(path_, name)) == identifier;
}

std::shared_ptr<fskit::FSItem> KemviItem::member(std::string_view name, fskit::FSItemType type,
                                                 std::uint64_t size) const {
    std::string path = joinPath(path_, name);
    const fskit::FSItemID identifier = identifierFor(path);
    return std::make_shared<KemviItem>(std::move(path), identifier, type == fskit::FSItemType::directory,
                                       static_cast<std::int64_t>(size), std::nullopt);
}

fskit::FSItemID KemviItem::identifierFor(std::string_view path) {
    if (path == "/")
        return fskit::FSItemID::rootDirectory;
    return static_cast<fskit::FSItemID>(stableRawID(path));
}

// FNV-1a, 64 bits.
std::uint64_t KemviItem::stableRawID(std::string_view path) {
    constexpr std::uint64_t offsetBasis = 0xcbf29ce484222325;
    constexpr std::uint64_t prime = 0x100000001b3;
    constexpr std::uint64_t firstFreeID = 3; // 0, 1 and 2 are reserved
    std::uint64_t hash = offsetBasis;
    for (const char byte : path)
        hash = (hash ^ static_cast<unsigned char>(byte)) * prime;
    return hash < firstFreeID ? hash + firstFreeID : hash;
}

std::string KemviItem::parentPath(std::string_view path) {
    std::string parent;
    std::string_view last; // the latest component, which joins the parent once another one follows it
    std::size_t at = 0;
    while (at < path.size()) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        if (end > at) {
            if (!last.empty())
                parent.append("/").append(last);
            last = path.substr(at, end - at);
        }
        at = end + 1;
    }
    return parent.empty() ? "/" : parent;
}

} // namespace kemvi
