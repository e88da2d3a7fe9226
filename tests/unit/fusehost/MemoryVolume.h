#pragma once

#include "ServedTree.h"

#include "fskit/FSVolume.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace fusehosttests {

/// A volume over a ServedTree with the limits that a host must live with: items are paths, handles are kept per
/// identifier and direction and shared, a resize keeps no more than the size that the item was made with, a create
/// empties, a removal or rename first gives back what is open at the item's path. It waits for nothing and replies
/// before it returns. tests/unit/standin holds it against the volume that users get.
class MemoryVolume final : public fskit::FSVolume,
                           public fskit::FSVolumeOperations,
                           public fskit::FSVolumeOpenCloseOperations,
                           public fskit::FSVolumeReadWriteOperations {
public:
    explicit MemoryVolume(ServedTree& tree);

    // Called when these are asked for; may throw what no volume throws.
    std::function<void()> onRead;
    std::function<void()> onReclaim;
    std::function<void()> onStatistics;
    std::function<void()> onAny; // of all but these, before anything is done

    std::map<std::string, std::uint64_t> identifiers; // of these paths; of others, a hash

    int reclaimed() const { return reclaimed_; }

    bool isEnded() const { return ended_; }

    std::int64_t maximumLinkCount() const override { return 1; }

    std::int64_t maximumNameLength() const override { return 255; }

    bool restrictsOwnershipChanges() const override { return true; }

    bool truncatesLongNames() const override { return false; }

    fskit::FSVolumeSupportedCapabilities supportedVolumeCapabilities() const override { return {}; }

    fskit::FSStatFSResult volumeStatistics() const override;

    void mount(const fskit::FSTaskOptions& options, fskit::ErrorReply reply) override;
    void unmount(fskit::Reply<> reply) override;
    void activate(const fskit::FSTaskOptions& options, fskit::ItemReply reply) override;
    void deactivate(fskit::FSDeactivateOptions options, fskit::ErrorReply reply) override;
    void synchronize(fskit::FSSyncFlags flags, fskit::ErrorReply reply) override;
    void getAttributes(const fskit::FSItemGetAttributesRequest& desired, const fskit::FSItemPtr& item,
                       fskit::AttributesReply reply) override;
    void setAttributes(fskit::FSItemSetAttributesRequest& newAttributes, const fskit::FSItemPtr& item,
                       fskit::AttributesReply reply) override;
    void lookupItem(const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                    fskit::NamedItemReply reply) override;
    void reclaimItem(const fskit::FSItemPtr& item, fskit::ErrorReply reply) override;
    void readSymbolicLink(const fskit::FSItemPtr& item, fskit::NameReply reply) override;
    void createItem(const fskit::FSFileName& name, fskit::FSItemType type, const fskit::FSItemPtr& directory,
                    fskit::FSItemSetAttributesRequest& attributes, fskit::NamedItemReply reply) override;
    void createSymbolicLink(const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                            fskit::FSItemSetAttributesRequest& attributes, const fskit::FSFileName& linkContents,
                            fskit::NamedItemReply reply) override;
    void createLink(const fskit::FSItemPtr& item, const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                    fskit::NameReply reply) override;
    void removeItem(const fskit::FSItemPtr& item, const fskit::FSFileName& name, const fskit::FSItemPtr& directory,
                    fskit::ErrorReply reply) override;
    void renameItem(const fskit::FSItemPtr& item, const fskit::FSItemPtr& sourceDirectory,
                    const fskit::FSFileName& sourceName, const fskit::FSFileName& destinationName,
                    const fskit::FSItemPtr& destinationDirectory, const fskit::FSItemPtr& overItem,
                    fskit::NameReply reply) override;
    void enumerateDirectory(const fskit::FSItemPtr& directory, fskit::FSDirectoryCookie cookie,
                            fskit::FSDirectoryVerifier verifier, const fskit::FSItemGetAttributesRequest* attributes,
                            fskit::FSDirectoryEntryPacker& packer, fskit::VerifierReply reply) override;
    void openItem(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes modes, fskit::ErrorReply reply) override;
    void closeItem(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes modes, fskit::ErrorReply reply) override;
    void read(const fskit::FSItemPtr& item, std::int64_t offset, std::int64_t length,
              fskit::FSMutableFileDataBuffer& buffer, fskit::CountReply reply) override;
    void write(std::span<const std::byte> contents, const fskit::FSItemPtr& item, std::int64_t offset,
               fskit::CountReply reply) override;

private:
    void called() const {
        if (onAny)
            onAny();
    }

    struct Item;
    using Handles = std::map<fskit::FSItemID, std::int64_t>;

    static Item& itemOf(const fskit::FSItemPtr& item);
    static void refuseDirectory(const fskit::FSItemPtr& item);
    std::pair<fskit::FSItemPtr, std::optional<fskit::FSFileName>> found(const std::string& path);
    fskit::FSItemID identifier(const std::string& path) const;
    fskit::FSItemAttributes record(const std::string& path, const ServedTree::Facts& facts) const;
    std::int64_t handle(Handles& handles, const std::string& path, const std::string& flags);
    void giveBack(Handles& handles, fskit::FSItemID identifier);
    void giveBackBoth(const std::string& path);
    void resize(const Item& item, std::uint64_t size);

    ServedTree& tree_;
    fskit::FSItemPtr root_;
    Handles reading_;
    Handles writing_;
    int reclaimed_ = 0;
    bool ended_ = false;
};

} // namespace fusehosttests
