#include "volume/KemviVolume.h"

#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"
#include "volume/ItemChecks.h"
#include "volume/KemviAttributes.h"

#include <limits>

namespace kemvi {
namespace {

constexpr fskit::FSDirectoryVerifier listedVerifier = 1;
constexpr std::uint64_t dotEntries = 2; // "." and ".." come before the helper's entries

// Packs the entries of one listing by their position.
class EntryPacking {
public:
    EntryPacking(const KemviItem& directory, const std::vector<KemviDirEntry>& entries, bool withAttributes,
                 fskit::FSDirectoryEntryPacker& packer)
        : directory_(directory), entries_(entries), withAttributes_(withAttributes), packer_(packer),
          owner_(Owner::current()) {}

    /// Packs from `start` on until the packer takes no more or the entries end.
    void packFrom(std::uint64_t start) {
        const std::uint64_t total = entries_.size() + dotEntries;
        for (std::uint64_t position = start; position < total; ++position)
            if (!pack(position))
                return;
    }

private:
    bool pack(std::uint64_t position) {
        const std::uint64_t next = position + 1;
        if (position == 0)
            return pack(".", true, directory_.identifier(), identifiersOf(directory_.path()), directory_.size(),
                        directory_.modifiedAt(), next);
        if (position == 1) {
            const Identifiers parent = identifiersOf(KemviItem::parentPath(directory_.path()));
            return pack("..", true, parent.item, parent, 0, std::nullopt, next);
        }
        const KemviDirEntry& entry = entries_[position - dotEntries];
        const Identifiers identifiers = identifiersOf(entry.path);
        return pack(entry.name, entry.isDirectory, identifiers.item, identifiers, entry.size.value_or(0),
                    entry.modifiedAt, next);
    }

    bool pack(std::string_view name, bool isDirectory, fskit::FSItemID itemID, Identifiers identifiers,
              std::int64_t size, const std::optional<foundation::Date>& modifiedAt,
              fskit::FSDirectoryCookie nextCookie) {
        const auto type = isDirectory ? fskit::FSItemType::directory : fskit::FSItemType::file;
        const fskit::FSFileName fileName(name);
        if (!withAttributes_)
            return packer_.packEntry(fileName, type, itemID, nextCookie, nullptr);
        const fskit::FSItemAttributes record = attributes(identifiers, isDirectory, size, modifiedAt, owner_);
        return packer_.packEntry(fileName, type, itemID, nextCookie, &record);
    }

    // As Identifiers::of; what stands before the last component, and so the parent, is that of the entry before.
    Identifiers identifiersOf(std::string_view path) {
        const std::size_t nameStart = path.rfind('/') + 1; // npos + 1 is 0
        const std::string_view beforeName = path.substr(0, nameStart);
        if (nameStart == 0 || nameStart == path.size())
            return Identifiers::of(path);
        if (beforeName != knownBeforeName_) {
            knownBeforeName_ = beforeName;
            knownParent_ = Identifiers::of(path).parent;
        }
        return {KemviItem::identifierFor(path), knownParent_};
    }

    const KemviItem& directory_;
    const std::vector<KemviDirEntry>& entries_;
    const bool withAttributes_;
    fskit::FSDirectoryEntryPacker& packer_;
    const Owner owner_;
    std::string knownBeforeName_; // what identifiersOf last saw, and the identifier of the parent there
    fskit::FSItemID knownParent_ = fskit::FSItemID::invalid;
};

} // namespace

fskit::FSItemAttributes KemviVolume::statAttributes(const std::string& path) const {
    const KemviFileStat stat = requireClient().getattr(path);
    return attributes(stat.path, stat.isDirectory, stat.size, stat.modifiedAt);
}

KemviVolume::NamedItem KemviVolume::statItem(const std::string& path) const {
    const KemviFileStat stat = requireClient().getattr(path);
    return {std::make_shared<KemviItem>(stat), fskit::FSFileName(stat.name)};
}

void KemviVolume::getAttributes(const fskit::FSItemGetAttributesRequest&, const fskit::FSItemPtr& item,
                                fskit::AttributesReply reply) {
    fskit::answer(reply, [&]() -> std::optional<fskit::FSItemAttributes> {
        const KemviItem& known = checkedItem(item, foundation::posixErrno::EINVAL_);
        if (client_ && known.path() != "/")
            return statAttributes(known.path());
        return known.knownAttributes();
    });
}

void KemviVolume::lookupItem(const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                             fskit::NamedItemReply reply) {
    fskit::answer(reply, [&] { return lookup(name, directory); });
}

KemviVolume::NamedItem KemviVolume::lookup(const fskit::FSFileName& name, const fskit::FSItemPtr& directory) const {
    const KemviItem& parent = checkedDirectory(directory, foundation::posixErrno::ENOTDIR_);
    const std::string_view text = checkedName(name);
    if (text == ".")
        return {directory, fskit::FSFileName(text)};
    if (text == "..") {
        // A short cut: the identifier is the root's whatever the parent is.
        auto item = std::make_shared<KemviItem>(KemviItem::parentPath(parent.path()), fskit::FSItemID::rootDirectory,
                                                true, 0, std::nullopt);
        return {std::move(item), fskit::FSFileName("..")};
    }
    if (!client_)
        foundation::throwPosix(foundation::posixErrno::ENOENT_);
    return statItem(joinPath(parent.path(), text));
}

void KemviVolume::reclaimItem(const fskit::FSItemPtr&, fskit::ErrorReply reply) {
    reply(std::nullopt);
}

void KemviVolume::readSymbolicLink(const fskit::FSItemPtr&, fskit::NameReply reply) {
    reply(std::nullopt, foundation::NSError::posix(foundation::posixErrno::EINVAL_));
}

void KemviVolume::enumerateDirectory(const fskit::FSItemPtr& directory, fskit::FSDirectoryCookie cookie,
                                     fskit::FSDirectoryVerifier verifier,
                                     const fskit::FSItemGetAttributesRequest* attributes,
                                     fskit::FSDirectoryEntryPacker& packer, fskit::VerifierReply reply) {
    const auto list = [&] {
        const KemviItem& parent = checkedDirectory(directory, foundation::posixErrno::ENOTDIR_);
        const auto entries = client_ ? client_->readdir(parent.path()) : std::vector<KemviDirEntry>();
        if (cookie > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            foundation::fatalError("directory cookie is not a position");
        EntryPacking(parent, entries, attributes != nullptr, packer).packFrom(cookie);
        return listedVerifier;
    };
    fskit::answer(reply, list, verifier);
}

} // namespace kemvi
