#pragma once

#include "foundation/Log.h"
#include "fskit/FSVolume.h"
#include "helper/HelperClient.h"
#include "volume/HandleTable.h"
#include "volume/KemviItem.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kemvi {

/// The volume over one helper. It keeps no cache and no table of the tree: every lookup, attribute read and listing
/// asks the helper again, and items are nothing but paths. It keeps only the helper's open handles, at most one per
/// item and direction, shared by everyone who reads or writes that path.
///
/// Every operation may be called on any thread, several at once, runs on the calling thread, blocks for the helper's
/// answer without a time limit, and replies before it returns. Errors of the helper are replied unchanged; those the
/// volume makes itself are POSIX errors without user info. A volume without a client answers what its items know and
/// ENXIO otherwise. Destroying a volume neither gives handles back nor stops the helper: unmount and deactivate do.
class KemviVolume final : public fskit::FSVolume,
                          public fskit::FSVolumeOperations,
                          public fskit::FSVolumeOpenCloseOperations,
                          public fskit::FSVolumeReadWriteOperations {
public:
    /// `client` is a started helper, or null. `handles` is what is open already, which whoever keeps it can look at.
    KemviVolume(fskit::FSVolumeIdentifier volumeID, fskit::FSFileName volumeName, std::shared_ptr<HelperClient> client,
                std::shared_ptr<HandleTable> handles = std::make_shared<HandleTable>());
    /// A volume without a helper.
    KemviVolume(fskit::FSVolumeIdentifier volumeID, fskit::FSFileName volumeName);

    // Fixed limits, capabilities and figures; the helper is not asked.
    std::int64_t maximumLinkCount() const override { return 1; }

    std::int64_t maximumNameLength() const override { return 255; }

    bool restrictsOwnershipChanges() const override { return true; }

    bool truncatesLongNames() const override { return false; }

    fskit::FSVolumeSupportedCapabilities supportedVolumeCapabilities() const override;
    fskit::FSStatFSResult volumeStatistics() const override;

    // Lifecycle (KemviVolume.cpp). There is no state behind it: every operation is accepted at any time.
    void mount(const fskit::FSTaskOptions& options, fskit::ErrorReply reply) override;
    /// Gives every handle back and stops the helper, waiting for it to exit without a time limit.
    void unmount(fskit::Reply<> reply) override;
    /// Replies the root item, always the same object.
    void activate(const fskit::FSTaskOptions& options, fskit::ItemReply reply) override;
    /// Does what unmount does; both may run, in either order.
    void deactivate(fskit::FSDeactivateOptions options, fskit::ErrorReply reply) override;
    /// Flushes every write handle, then makes one exchange that shows whether the helper still answers.
    void synchronize(fskit::FSSyncFlags flags, fskit::ErrorReply reply) override;

    // Lookup, attributes and listing (KemviVolume+Lookup.cpp).
    /// Always a full record; the root's comes from the item, every other from the helper.
    void getAttributes(const fskit::FSItemGetAttributesRequest& desired, const fskit::FSItemPtr& item,
                       fskit::AttributesReply reply) override;
    /// "." gives the directory object itself; ".." an item of the parent's path with the root's identifier.
    void lookupItem(const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                    fskit::NamedItemReply reply) override;
    /// Nothing to do: items hold nothing of the helper's.
    void reclaimItem(const fskit::FSItemPtr& item, fskit::ErrorReply reply) override;
    /// EINVAL: there are no symbolic links.
    void readSymbolicLink(const fskit::FSItemPtr& item, fskit::NameReply reply) override;
    /// Cookies are positions: 0 is ".", 1 is "..", n is the helper's entry n - 2. The helper lists anew on every call
    /// and the verifier detects nothing. Fatal for a cookie beyond the range of a signed 64-bit position.
    void enumerateDirectory(const fskit::FSItemPtr& directory, fskit::FSDirectoryCookie cookie,
                            fskit::FSDirectoryVerifier verifier, const fskit::FSItemGetAttributesRequest* attributes,
                            fskit::FSDirectoryEntryPacker& packer, fskit::VerifierReply reply) override;

    // Open handles and file I/O (KemviVolume+Handles.cpp).
    void openItem(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes modes, fskit::ErrorReply reply) override;
    /// Gives back the handles of the modes that are not kept, however often they were opened. Does not flush.
    void closeItem(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes modes, fskit::ErrorReply reply) override;
    /// Opens a handle where none is open yet and keeps it. The helper's answer decides the count.
    void read(const fskit::FSItemPtr& item, std::int64_t offset, std::int64_t length,
              fskit::FSMutableFileDataBuffer& buffer, fskit::CountReply reply) override;
    void write(std::span<const std::byte> contents, const fskit::FSItemPtr& item, std::int64_t offset,
               fskit::CountReply reply) override;

    // Namespace changes (KemviVolume+Namespace.cpp). What was done before a failure stays done.
    /// Applies size, mode and modification time, in this order; others stay unconsumed. A size on a directory is
    /// skipped. Fatal for a size of 2^63 or more.
    void setAttributes(fskit::FSItemSetAttributesRequest& newAttributes, const fskit::FSItemPtr& item,
                       fskit::AttributesReply reply) override;
    /// Files and directories only. An existing file of that name is emptied. `attributes` are ignored.
    void createItem(const fskit::FSFileName& name, fskit::FSItemType type, const fskit::FSItemPtr& directory,
                    fskit::FSItemSetAttributesRequest& attributes, fskit::NamedItemReply reply) override;
    void createSymbolicLink(const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                            fskit::FSItemSetAttributesRequest& attributes, const fskit::FSFileName& linkContents,
                            fskit::NamedItemReply reply) override;
    void createLink(const fskit::FSItemPtr& item, const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                    fskit::NameReply reply) override;
    /// Removes the item's own path; name and directory are not looked at.
    void removeItem(const fskit::FSItemPtr& item, const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                    fskit::ErrorReply reply) override;
    /// Removes `overItem` first, so that it stays removed if the rename then fails. The item keeps its old path.
    void renameItem(const fskit::FSItemPtr& item, const fskit::FSItemPtr& sourceDirectory,
                    const fskit::FSFileName& sourceName, const fskit::FSFileName& destinationName,
                    const fskit::FSItemPtr& destinationDirectory, const fskit::FSItemPtr& overItem,
                    fskit::NameReply reply) override;

private:
    using NamedItem = std::pair<fskit::FSItemPtr, std::optional<fskit::FSFileName>>;

    static const foundation::Logger& logger();

    /// The client; throws ENXIO if there is none.
    HelperClient& requireClient() const;
    void shutDown();

    // One "getattr" exchange each.
    fskit::FSItemAttributes statAttributes(const std::string& path) const;
    NamedItem statItem(const std::string& path) const;
    NamedItem lookup(const fskit::FSFileName& name, const fskit::FSItemPtr& directory) const;

    using Direction = HandleTable::Direction;

    std::int64_t openReadHandle(const KemviItem& item);
    std::int64_t openWriteHandle(const KemviItem& item);
    std::int64_t openHandle(Direction direction, const std::vector<std::string>& flags, const KemviItem& item);
    void releaseReadHandle(const KemviItem& item);
    void releaseWriteHandle(const KemviItem& item);
    void releaseHandle(Direction direction, const KemviItem& item);
    void releaseHandles(const KemviItem& item);
    void flushAllWriteHandles();
    void releaseAllHandles();

    void resizeFile(const KemviItem& item, std::int64_t size);

    const std::shared_ptr<KemviItem> rootItem_;
    const std::shared_ptr<HelperClient> client_;
    const std::shared_ptr<HandleTable> handles_;
};

} // namespace kemvi
