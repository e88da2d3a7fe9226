#pragma once

#include "fskit/FSFileName.h"
#include "fskit/FSIdentifiers.h"
#include "fskit/FSItem.h"
#include "fskit/FSResource.h"
#include "fskit/FSVolumeTypes.h"
#include "fskit/Reply.h"

#include <cstddef>
#include <memory>
#include <span>

namespace fskit {

using FSItemPtr = std::shared_ptr<FSItem>;

// The reply handlers of the operations below; results are empty when there is an error.
using ItemReply = Reply<FSItemPtr, std::optional<foundation::NSError>>;
/// An item and its name as the volume stores it.
using NamedItemReply = Reply<FSItemPtr, std::optional<FSFileName>, std::optional<foundation::NSError>>;
using NameReply = Reply<std::optional<FSFileName>, std::optional<foundation::NSError>>;
using AttributesReply = Reply<std::optional<FSItemAttributes>, std::optional<foundation::NSError>>;
using VerifierReply = Reply<FSDirectoryVerifier, std::optional<foundation::NSError>>;
/// A count of bytes.
using CountReply = Reply<std::size_t, std::optional<foundation::NSError>>;

/// A mounted or mountable volume: identity and name. The operations are the families below, which a volume class
/// implements beside this base; a host finds them with dynamic_cast. Every operation may be called on any thread,
/// several at once, and answers through its reply handler exactly once, on any thread. Errors are POSIX-domain values
/// (macOS errno numbers) where the volume makes them, otherwise whatever arose, unchanged.
class FSVolume {
public:
    FSVolume(FSVolumeIdentifier volumeID, FSFileName volumeName) : volumeID_(volumeID), name_(std::move(volumeName)) {}

    virtual ~FSVolume();
    FSVolume(const FSVolume&) = delete;
    FSVolume& operator=(const FSVolume&) = delete;

    const FSVolumeIdentifier& volumeID() const { return volumeID_; }

    const FSFileName& name() const { return name_; }

private:
    FSVolumeIdentifier volumeID_;
    FSFileName name_;
};

/// Fixed limits; -1 means no limit.
class FSVolumePathConfOperations {
public:
    virtual ~FSVolumePathConfOperations();
    virtual std::int64_t maximumLinkCount() const = 0;
    /// Bytes.
    virtual std::int64_t maximumNameLength() const = 0;
    virtual bool restrictsOwnershipChanges() const = 0;
    virtual bool truncatesLongNames() const = 0;
};

/// Lifecycle and namespace.
class FSVolumeOperations : public FSVolumePathConfOperations {
public:
    virtual FSVolumeSupportedCapabilities supportedVolumeCapabilities() const = 0;
    virtual FSStatFSResult volumeStatistics() const = 0;

    virtual void mount(const FSTaskOptions& options, ErrorReply reply) = 0;
    virtual void unmount(Reply<> reply) = 0;
    virtual void activate(const FSTaskOptions& options, ItemReply reply) = 0;
    virtual void deactivate(FSDeactivateOptions options, ErrorReply reply) = 0;
    virtual void synchronize(FSSyncFlags flags, ErrorReply reply) = 0;

    virtual void getAttributes(const FSItemGetAttributesRequest& desired, const FSItemPtr& item,
                               AttributesReply reply) = 0;
    /// Adds each attribute that was applied to the consumed set of `newAttributes`, also when it then fails.
    virtual void setAttributes(FSItemSetAttributesRequest& newAttributes, const FSItemPtr& item,
                               AttributesReply reply) = 0;
    /// Replies with the item and its name as the volume stores it.
    virtual void lookupItem(const FSFileName& name, const FSItemPtr& directory, NamedItemReply reply) = 0;
    virtual void reclaimItem(const FSItemPtr& item, ErrorReply reply) = 0;
    virtual void readSymbolicLink(const FSItemPtr& item, NameReply reply) = 0;
    virtual void createItem(const FSFileName& name, FSItemType type, const FSItemPtr& directory,
                            FSItemSetAttributesRequest& attributes, NamedItemReply reply) = 0;
    virtual void createSymbolicLink(const FSFileName& name, const FSItemPtr& directory,
                                    FSItemSetAttributesRequest& attributes, const FSFileName& linkContents,
                                    NamedItemReply reply) = 0;
    virtual void createLink(const FSItemPtr& item, const FSFileName& name, const FSItemPtr& directory,
                            NameReply reply) = 0;
    virtual void removeItem(const FSItemPtr& item, const FSFileName& name, const FSItemPtr& directory,
                            ErrorReply reply) = 0;
    /// `overItem` is the item that the rename replaces, or null.
    virtual void renameItem(const FSItemPtr& item, const FSItemPtr& sourceDirectory, const FSFileName& sourceName,
                            const FSFileName& destinationName, const FSItemPtr& destinationDirectory,
                            const FSItemPtr& overItem, NameReply reply) = 0;
    /// Packs entries from `cookie` on until the packer refuses or the directory ends. `attributes` null: entries are
    /// packed without attributes. Replies with the verifier also when it fails.
    virtual void enumerateDirectory(const FSItemPtr& directory, FSDirectoryCookie cookie, FSDirectoryVerifier verifier,
                                    const FSItemGetAttributesRequest* attributes, FSDirectoryEntryPacker& packer,
                                    VerifierReply reply) = 0;
};

class FSVolumeOpenCloseOperations {
public:
    virtual ~FSVolumeOpenCloseOperations();
    virtual void openItem(const FSItemPtr& item, FSVolumeOpenModes modes, ErrorReply reply) = 0;
    /// `modes` are the modes that remain open; none closes the item altogether.
    virtual void closeItem(const FSItemPtr& item, FSVolumeOpenModes modes, ErrorReply reply) = 0;
};

class FSVolumeReadWriteOperations {
public:
    virtual ~FSVolumeReadWriteOperations();
    /// Replies with the count of bytes placed at the start of the buffer. The buffer must live until the reply.
    virtual void read(const FSItemPtr& item, std::int64_t offset, std::int64_t length, FSMutableFileDataBuffer& buffer,
                      CountReply reply) = 0;
    /// Replies with the count of bytes written. The contents must live until the reply.
    virtual void write(std::span<const std::byte> contents, const FSItemPtr& item, std::int64_t offset,
                       CountReply reply) = 0;
};

} // namespace fskit
