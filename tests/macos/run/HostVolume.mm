// The volume suite against the core through the extension's own Objective-C++ classes, called as FSKit calls them.

#import "macos/run/AttributeTable.h"

#import "hosts/macos/KemviVolume.h"

#import <FSKit/FSKitStandin.h>

#include "suites/volume/VolumeUnderTest.h"
#include "volume/KemviVolume.h"

#include <cstring>
#include <gtest/gtest.h>

namespace volumesuite {
namespace {

// Fails the test unless `operation`, given a chance to count its replies, replies once before it returns.
template <typename Operation>
void expectOneReply(Operation&& operation) {
    @autoreleasepool {
        int replies = 0;
        operation(replies);
        EXPECT_EQ(replies, 1);
    }
}

Error coreError(NSError* error) {
    if (!error)
        return std::nullopt;
    foundation::NSError core{error.domain.UTF8String, error.code, std::nullopt, {}};
    if (NSString* description = error.userInfo[NSLocalizedDescriptionKey])
        core.localizedDescription = description.UTF8String;
    EXPECT_EQ(error.userInfo.count, core.localizedDescription ? 1U : 0U);
    return core;
}

std::string bytesOf(NSData* data) {
    return std::string(static_cast<const char*>(data.bytes), data.length);
}

std::optional<std::string> bytesOf(FSFileName* name) {
    return name ? std::optional(bytesOf(name.data)) : std::nullopt;
}

FSFileName* fileName(std::string_view bytes) {
    return [FSFileName nameWithBytes:bytes.data() length:bytes.size()];
}

// An item that holds its object alive and is the object's address.
Item held(FSItem* item) {
    if (!item)
        return nullptr;
    return Item((__bridge_retained void*)item, [](void* object) { (void)(__bridge_transfer id)object; });
}

FSItem* fsItem(const Item& item) {
    return (__bridge FSItem*)item.get();
}

NSError* _Nullable unanswered() {
    return [NSError errorWithDomain:@"the reply block was not called" code:0 userInfo:nil];
}

template <typename Operation>
Error errorOf(Operation&& operation) {
    Error answer = coreError(unanswered());
    expectOneReply([&](int& replies) {
        int* count = &replies;
        Error* result = &answer;
        operation(^(NSError* error) {
          ++*count;
          *result = coreError(error);
        });
    });
    return answer;
}

template <typename Operation>
NameAnswer nameOf(Operation&& operation) {
    NameAnswer answer;
    expectOneReply([&](int& replies) {
        int* count = &replies;
        NameAnswer* result = &answer;
        operation(^(FSFileName* name, NSError* error) {
          ++*count;
          *result = {bytesOf(name), coreError(error)};
        });
    });
    return answer;
}

template <typename Operation>
AttributesAnswer attributesOf(Operation&& operation) {
    AttributesAnswer answer;
    expectOneReply([&](int& replies) {
        int* count = &replies;
        AttributesAnswer* result = &answer;
        operation(^(FSItemAttributes* attributes, NSError* error) {
          ++*count;
          result->error = coreError(error);
          if (attributes)
              result->attributes = macostests::coreAttributes(attributes);
        });
    });
    return answer;
}

template <typename Operation>
ItemAnswer itemOf(Operation&& operation) {
    ItemAnswer answer;
    expectOneReply([&](int& replies) {
        int* count = &replies;
        ItemAnswer* result = &answer;
        operation(^(FSItem* item, FSFileName* name, NSError* error) {
          ++*count;
          *result = {held(item), bytesOf(name), coreError(error)};
        });
    });
    return answer;
}

template <typename Operation>
CountAnswer countOf(Operation&& operation) {
    CountAnswer answer;
    expectOneReply([&](int& replies) {
        int* count = &replies;
        CountAnswer* result = &answer;
        operation(^(size_t bytes, NSError* error) {
          ++*count;
          *result = {bytes, coreError(error), {}};
        });
    });
    return answer;
}

FSItemSetAttributesRequest* platformRequest(const fskit::FSItemSetAttributesRequest& core) {
    FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
    macostests::fill(request, core);
    request.consumedAttributes = static_cast<FSItemAttribute>(core.consumedAttributes());
    return request;
}

void takeConsumed(FSItemSetAttributesRequest* request, fskit::FSItemSetAttributesRequest& core) {
    core.setConsumedAttributes(static_cast<fskit::FSItemAttribute>(request.consumedAttributes));
}

class HostVolume final : public VolumeUnderTest {
public:
    explicit HostVolume(KemviVolume* volume) : volume_(volume) {}

    std::string name() override { return *bytesOf(volume_.name); }

    std::int64_t maximumLinkCount() override { return volume_.maximumLinkCount; }

    std::int64_t maximumNameLength() override { return volume_.maximumNameLength; }

    bool restrictsOwnershipChanges() override { return volume_.restrictsOwnershipChanges; }

    bool truncatesLongNames() override { return volume_.truncatesLongNames; }

    fskit::FSVolumeSupportedCapabilities supportedVolumeCapabilities() override {
        FSVolumeSupportedCapabilities* from = volume_.supportedVolumeCapabilities;
        fskit::FSVolumeSupportedCapabilities to;
        to.supportsPersistentObjectIDs = from.supportsPersistentObjectIDs;
        to.supportsSymbolicLinks = from.supportsSymbolicLinks;
        to.supportsHardLinks = from.supportsHardLinks;
        to.supportsJournal = from.supportsJournal;
        to.supportsActiveJournal = from.supportsActiveJournal;
        to.doesNotSupportRootTimes = from.doesNotSupportRootTimes;
        to.supportsSparseFiles = from.supportsSparseFiles;
        to.supportsZeroRuns = from.supportsZeroRuns;
        to.supportsFastStatFS = from.supportsFastStatFS;
        to.supports2TBFiles = from.supports2TBFiles;
        to.supportsOpenDenyModes = from.supportsOpenDenyModes;
        to.supportsHiddenFiles = from.supportsHiddenFiles;
        to.doesNotSupportVolumeSizes = from.doesNotSupportVolumeSizes;
        to.supports64BitObjectIDs = from.supports64BitObjectIDs;
        to.supportsDocumentID = from.supportsDocumentID;
        to.doesNotSupportImmutableFiles = from.doesNotSupportImmutableFiles;
        to.doesNotSupportSettingFilePermissions = from.doesNotSupportSettingFilePermissions;
        to.supportsSharedSpace = from.supportsSharedSpace;
        to.supportsVolumeGroups = from.supportsVolumeGroups;
        to.caseFormat = static_cast<fskit::FSVolumeCaseFormat>(from.caseFormat);
        return to;
    }

    fskit::FSStatFSResult volumeStatistics() override {
        FSStatFSResult* from = volume_.volumeStatistics;
        return {.fileSystemTypeName = from.fileSystemTypeName.UTF8String,
                .blockSize = from.blockSize,
                .ioSize = from.ioSize,
                .totalBlocks = from.totalBlocks,
                .availableBlocks = from.availableBlocks,
                .freeBlocks = from.freeBlocks,
                .usedBlocks = from.usedBlocks,
                .totalBytes = from.totalBytes,
                .availableBytes = from.availableBytes,
                .freeBytes = from.freeBytes,
                .usedBytes = from.usedBytes,
                .totalFiles = from.totalFiles,
                .freeFiles = from.freeFiles,
                .fileSystemSubType = from.fileSystemSubType};
    }

    Error mount() override {
        return errorOf([&](auto reply) { [volume_ mountWithOptions:noOptions() replyHandler:reply]; });
    }

    ItemAnswer activate() override {
        ItemAnswer answer;
        expectOneReply([&](int& replies) {
            int* count = &replies;
            ItemAnswer* result = &answer;
            [volume_ activateWithOptions:noOptions()
                            replyHandler:^(FSItem* item, NSError* error) {
                              ++*count;
                              *result = {held(item), std::nullopt, coreError(error)};
                            }];
        });
        return answer;
    }

    Error synchronize() override {
        return errorOf([&](auto reply) { [volume_ synchronizeWithFlags:FSSyncFlagsWait replyHandler:reply]; });
    }

    Error deactivate() override {
        return errorOf([&](auto reply) { [volume_ deactivateWithOptions:0 replyHandler:reply]; });
    }

    void unmount() override {
        expectOneReply([&](int& replies) {
            int* count = &replies;
            [volume_ unmountWithReplyHandler:^{
              ++*count;
            }];
        });
    }

    AttributesAnswer getAttributes(const Item& item) override {
        return attributesOf([&](auto reply) {
            [volume_ getAttributes:[[FSItemGetAttributesRequest alloc] init] ofItem:fsItem(item) replyHandler:reply];
        });
    }

    AttributesAnswer setAttributes(fskit::FSItemSetAttributesRequest& core, const Item& item) override {
        return attributesOf([&](auto reply) {
            FSItemSetAttributesRequest* request = platformRequest(core);
            [volume_ setAttributes:request onItem:fsItem(item) replyHandler:reply];
            takeConsumed(request, core);
        });
    }

    ItemAnswer lookupItem(std::string_view name, const Item& directory) override {
        return itemOf([&](auto reply) {
            [volume_ lookupItemNamed:fileName(name) inDirectory:fsItem(directory) replyHandler:reply];
        });
    }

    Listing enumerateDirectory(const Item& directory, const ListingRequest& request) override {
        Listing listing;
        FSDirectoryEntryPacker* packer = [FSDirectoryEntryPacker packerWithCapacity:request.capacity];
        expectOneReply([&](int& replies) {
            int* count = &replies;
            Listing* result = &listing;
            [volume_ enumerateDirectory:fsItem(directory)
                       startingAtCookie:request.cookie
                               verifier:request.verifier
                    providingAttributes:request.withAttributes ? [[FSItemGetAttributesRequest alloc] init] : nil
                            usingPacker:packer
                           replyHandler:^(FSDirectoryVerifier verifier, NSError* error) {
                             ++*count;
                             result->verifier = verifier;
                             result->error = coreError(error);
                           }];
        });
        for (FSPackedEntry* entry in packer.packedEntries)
            listing.entries.push_back(
                {*bytesOf(entry.name), static_cast<fskit::FSItemType>(entry.itemType), entry.itemID, entry.nextCookie,
                 entry.attributes ? std::optional(macostests::coreAttributes(entry.attributes)) : std::nullopt});
        return listing;
    }

    NameAnswer readSymbolicLink(const Item& item) override {
        return nameOf([&](auto reply) { [volume_ readSymbolicLink:fsItem(item) replyHandler:reply]; });
    }

    Error reclaimItem(const Item& item) override {
        return errorOf([&](auto reply) { [volume_ reclaimItem:fsItem(item) replyHandler:reply]; });
    }

    Error openItem(const Item& item, fskit::FSVolumeOpenModes modes) override {
        return errorOf([&](auto reply) {
            [volume_ openItem:fsItem(item) withModes:static_cast<FSVolumeOpenModes>(modes) replyHandler:reply];
        });
    }

    Error closeItem(const Item& item, fskit::FSVolumeOpenModes keptModes) override {
        return errorOf([&](auto reply) {
            [volume_ closeItem:fsItem(item) keepingModes:static_cast<FSVolumeOpenModes>(keptModes) replyHandler:reply];
        });
    }

    CountAnswer read(const Item& item, std::int64_t offset, std::int64_t length, std::size_t bufferSize) override {
        FSMutableFileDataBuffer* buffer = [FSMutableFileDataBuffer bufferWithLength:bufferSize];
        std::memset(buffer.mutableBytes, '.', bufferSize);
        CountAnswer answer = countOf([&](auto reply) {
            [volume_ readFromFile:fsItem(item)
                           offset:offset
                           length:static_cast<size_t>(length)
                       intoBuffer:buffer
                     replyHandler:reply];
        });
        answer.bytes.assign(static_cast<const char*>(buffer.mutableBytes), bufferSize);
        return answer;
    }

    CountAnswer write(std::string_view contents, const Item& item, std::int64_t offset) override {
        return countOf([&](auto reply) {
            NSData* data = [NSData dataWithBytes:contents.data() length:contents.size()];
            [volume_ writeContents:data toFile:fsItem(item) atOffset:offset replyHandler:reply];
        });
    }

    ItemAnswer createItem(std::string_view name, fskit::FSItemType type, const Item& directory,
                          fskit::FSItemSetAttributesRequest& attributes) override {
        return itemOf([&](auto reply) {
            FSItemSetAttributesRequest* request = platformRequest(attributes);
            [volume_ createItemNamed:fileName(name)
                                type:static_cast<FSItemType>(type)
                         inDirectory:fsItem(directory)
                          attributes:request
                        replyHandler:reply];
            takeConsumed(request, attributes);
        });
    }

    ItemAnswer createSymbolicLink(std::string_view name, const Item& directory, std::string_view contents) override {
        return itemOf([&](auto reply) {
            [volume_ createSymbolicLinkNamed:fileName(name)
                                 inDirectory:fsItem(directory)
                                  attributes:[[FSItemSetAttributesRequest alloc] init]
                                linkContents:fileName(contents)
                                replyHandler:reply];
        });
    }

    NameAnswer createLink(const Item& item, std::string_view name, const Item& directory) override {
        return nameOf([&](auto reply) {
            [volume_ createLinkToItem:fsItem(item)
                                named:fileName(name)
                          inDirectory:fsItem(directory)
                         replyHandler:reply];
        });
    }

    Error removeItem(const Item& item, std::string_view name, const Item& directory) override {
        return errorOf([&](auto reply) {
            [volume_ removeItem:fsItem(item) named:fileName(name) fromDirectory:fsItem(directory) replyHandler:reply];
        });
    }

    NameAnswer renameItem(const Item& item, const Item& sourceDirectory, std::string_view sourceName,
                          std::string_view newName, const Item& destinationDirectory, const Item& overItem) override {
        return nameOf([&](auto reply) {
            [volume_ renameItem:fsItem(item)
                    inDirectory:fsItem(sourceDirectory)
                          named:fileName(sourceName)
                      toNewName:fileName(newName)
                    inDirectory:fsItem(destinationDirectory)
                       overItem:fsItem(overItem)
                   replyHandler:reply];
        });
    }

    Item makeItem(const std::string& path, bool isDirectory, std::int64_t size,
                  std::optional<foundation::Date> modifiedAt) override {
        @autoreleasepool {
            return held(volume_.items->platformItem(std::make_shared<kemvi::KemviItem>(
                path, kemvi::KemviItem::identifierFor(path), isDirectory, size, modifiedAt)));
        }
    }

    Item makeForeignItem() override { return held([[FSItem alloc] init]); }

    const kemvi::KemviItem& facts(const Item& item) override {
        // The object holds the core's item at least as long as `item` lives.
        return dynamic_cast<const kemvi::KemviItem&>(*static_cast<KemviItem*>(fsItem(item)).core);
    }

private:
    static FSTaskOptions* noOptions() { return [FSTaskOptions optionsWithArguments:@[]]; }

    KemviVolume* volume_;
};

} // namespace

std::unique_ptr<VolumeUnderTest> makeVolumeUnderTest(std::shared_ptr<kemvi::HelperClient> client) {
    @autoreleasepool {
        FSFileName* name = [FSFileName nameWithString:@"Kemvi"];
        if (!client) // as the platform's own way of making a volume leaves it
            return std::make_unique<HostVolume>([[KemviVolume alloc] initWithVolumeID:[[FSVolumeIdentifier alloc] init]
                                                                           volumeName:name]);
        auto core = std::make_shared<kemvi::KemviVolume>(fskit::FSVolumeIdentifier(foundation::UUID::random()),
                                                         fskit::FSFileName("Kemvi"), std::move(client));
        return std::make_unique<HostVolume>([[KemviVolume alloc] initWithVolume:std::move(core)]);
    }
}

} // namespace volumesuite
