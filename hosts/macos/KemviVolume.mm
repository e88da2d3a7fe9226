#import "hosts/macos/KemviVolume.h"

#import "hosts/macos/Answer.h"
#import "hosts/macos/KemviFSExtension.h"
#import "hosts/macos/Replies.h"
#import "hosts/macos/ToCore.h"
#import "hosts/macos/ToFSKit.h"

#include "foundation/Log.h"

using macoshost::answering;
using macoshost::callCore;
using macoshost::coreItem;
using macoshost::MaybeError;
using macoshost::toCore;
using macoshost::toFSKit;

@implementation KemviVolume {
    std::shared_ptr<fskit::FSVolume> _volume;
    // The volume again, as each of its families.
    fskit::FSVolumeOperations* _operations;
    fskit::FSVolumeOpenCloseOperations* _openClose;
    fskit::FSVolumeReadWriteOperations* _readWrite;
    std::shared_ptr<macoshost::ItemTable> _items;
}

- (instancetype)initWithVolume:(std::shared_ptr<fskit::FSVolume>)volume {
    if ((self = [super initWithVolumeID:toFSKit(volume->volumeID()) volumeName:toFSKit(volume->name())])) {
        _volume = std::move(volume);
        _operations = dynamic_cast<fskit::FSVolumeOperations*>(_volume.get());
        _openClose = dynamic_cast<fskit::FSVolumeOpenCloseOperations*>(_volume.get());
        _readWrite = dynamic_cast<fskit::FSVolumeReadWriteOperations*>(_volume.get());
        if (!_operations || !_openClose || !_readWrite)
            foundation::fatalError("the volume lacks a family of operations");
        _items = std::make_shared<macoshost::ItemTable>();
    }
    return self;
}

- (instancetype)initWithVolumeID:(FSVolumeIdentifier*)volumeID volumeName:(FSFileName*)volumeName {
    return [self initWithVolume:[[[KemviFSExtension alloc] init] volumeWithID:toCore(volumeID)
                                                                   volumeName:toCore(volumeName)]];
}

- (std::shared_ptr<macoshost::ItemTable>)items {
    return _items;
}

#pragma mark - Limits, capabilities, figures

- (NSInteger)maximumLinkCount {
    return static_cast<NSInteger>(_operations->maximumLinkCount());
}

- (NSInteger)maximumNameLength {
    return static_cast<NSInteger>(_operations->maximumNameLength());
}

- (BOOL)restrictsOwnershipChanges {
    return _operations->restrictsOwnershipChanges();
}

- (BOOL)truncatesLongNames {
    return _operations->truncatesLongNames();
}

- (FSVolumeSupportedCapabilities*)supportedVolumeCapabilities {
    @autoreleasepool {
        return toFSKit(_operations->supportedVolumeCapabilities());
    }
}

- (FSStatFSResult*)volumeStatistics {
    @autoreleasepool {
        return toFSKit(_operations->volumeStatistics());
    }
}

#pragma mark - Lifecycle

- (void)mountWithOptions:(FSTaskOptions*)options replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(
        answering(reply), [&](fskit::ErrorReply answer) { _operations->mount(toCore(options), std::move(answer)); });
}

- (void)unmountWithReplyHandler:(void (^)(void))reply {
    callCore<fskit::Reply<>>([reply] { reply(); },
                             [&](fskit::Reply<> answer) { _operations->unmount(std::move(answer)); });
}

- (void)activateWithOptions:(FSTaskOptions*)options replyHandler:(void (^)(FSItem*, NSError*))reply {
    callCore<fskit::ItemReply>(answering(reply, _items), [&](fskit::ItemReply answer) {
        _operations->activate(toCore(options), std::move(answer));
    });
}

- (void)deactivateWithOptions:(FSDeactivateOptions)options replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _operations->deactivate(toCore(options), std::move(answer));
    });
}

- (void)synchronizeWithFlags:(FSSyncFlags)flags replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _operations->synchronize(toCore(flags), std::move(answer));
    });
}

#pragma mark - Attributes, lookup, listing

- (void)getAttributes:(FSItemGetAttributesRequest*)desiredAttributes
               ofItem:(FSItem*)item
         replyHandler:(void (^)(FSItemAttributes*, NSError*))reply {
    callCore<fskit::AttributesReply>(answering(reply), [&](fskit::AttributesReply answer) {
        _operations->getAttributes(toCore(desiredAttributes), coreItem(item), std::move(answer));
    });
}

- (void)setAttributes:(FSItemSetAttributesRequest*)newAttributes
               onItem:(FSItem*)item
         replyHandler:(void (^)(FSItemAttributes*, NSError*))reply {
    const macoshost::SetAttributesCall request(newAttributes);
    callCore<fskit::AttributesReply>(request.beforeAnswer(answering(reply)), [&](fskit::AttributesReply answer) {
        _operations->setAttributes(request.core(), coreItem(item), std::move(answer));
    });
}

- (void)lookupItemNamed:(FSFileName*)name
            inDirectory:(FSItem*)directory
           replyHandler:(void (^)(FSItem*, FSFileName*, NSError*))reply {
    callCore<fskit::NamedItemReply>(answering(reply, _items), [&](fskit::NamedItemReply answer) {
        _operations->lookupItem(toCore(name), coreItem(directory), std::move(answer));
    });
}

- (void)reclaimItem:(FSItem*)item replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _operations->reclaimItem(coreItem(item), std::move(answer));
    });
}

- (void)readSymbolicLink:(FSItem*)item replyHandler:(void (^)(FSFileName*, NSError*))reply {
    callCore<fskit::NameReply>(answering(reply), [&](fskit::NameReply answer) {
        _operations->readSymbolicLink(coreItem(item), std::move(answer));
    });
}

- (void)enumerateDirectory:(FSItem*)directory
          startingAtCookie:(FSDirectoryCookie)cookie
                  verifier:(FSDirectoryVerifier)verifier
       providingAttributes:(FSItemGetAttributesRequest*)attributes
               usingPacker:(FSDirectoryEntryPacker*)packer
              replyHandler:(void (^)(FSDirectoryVerifier, NSError*))reply {
    const auto corePacker = std::make_shared<macoshost::PlatformPacker>(packer);
    const auto request = attributes ? std::make_shared<fskit::FSItemGetAttributesRequest>(toCore(attributes)) : nullptr;
    const auto start = cookie == FSDirectoryCookieInitial ? fskit::FSDirectoryCookieInitial : cookie;
    callCore<fskit::VerifierReply>(
        [reply, corePacker, request](fskit::FSDirectoryVerifier current, const MaybeError& error) {
            reply(current, toFSKit(error));
        },
        [&](fskit::VerifierReply answer) {
            _operations->enumerateDirectory(coreItem(directory), start, verifier, request.get(), *corePacker,
                                            std::move(answer));
        });
}

#pragma mark - Open files

- (void)openItem:(FSItem*)item withModes:(FSVolumeOpenModes)modes replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _openClose->openItem(coreItem(item), toCore(modes), std::move(answer));
    });
}

- (void)closeItem:(FSItem*)item keepingModes:(FSVolumeOpenModes)modes replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _openClose->closeItem(coreItem(item), toCore(modes), std::move(answer));
    });
}

- (void)readFromFile:(FSItem*)item
              offset:(off_t)offset
              length:(size_t)length
          intoBuffer:(FSMutableFileDataBuffer*)buffer
        replyHandler:(void (^)(size_t, NSError*))reply {
    const auto memory = std::make_shared<fskit::FSMutableFileDataBuffer>(toCore(buffer));
    callCore<fskit::CountReply>(
        [reply, memory](size_t actuallyRead, const MaybeError& error) { reply(actuallyRead, toFSKit(error)); },
        [&](fskit::CountReply answer) {
            _readWrite->read(coreItem(item), offset, static_cast<std::int64_t>(length), *memory, std::move(answer));
        },
        buffer);
}

- (void)writeContents:(NSData*)contents
               toFile:(FSItem*)item
             atOffset:(off_t)offset
         replyHandler:(void (^)(size_t, NSError*))reply {
    callCore<fskit::CountReply>(
        [reply](size_t actuallyWritten, const MaybeError& error) { reply(actuallyWritten, toFSKit(error)); },
        [&](fskit::CountReply answer) {
            _readWrite->write(toCore(contents), coreItem(item), offset, std::move(answer));
        },
        contents);
}

#pragma mark - Names

- (void)createItemNamed:(FSFileName*)name
                   type:(FSItemType)type
            inDirectory:(FSItem*)directory
             attributes:(FSItemSetAttributesRequest*)newAttributes
           replyHandler:(void (^)(FSItem*, FSFileName*, NSError*))reply {
    const macoshost::SetAttributesCall request(newAttributes);
    callCore<fskit::NamedItemReply>(request.beforeAnswer(answering(reply, _items)), [&](fskit::NamedItemReply answer) {
        _operations->createItem(toCore(name), toCore(type), coreItem(directory), request.core(), std::move(answer));
    });
}

- (void)createSymbolicLinkNamed:(FSFileName*)name
                    inDirectory:(FSItem*)directory
                     attributes:(FSItemSetAttributesRequest*)newAttributes
                   linkContents:(FSFileName*)contents
                   replyHandler:(void (^)(FSItem*, FSFileName*, NSError*))reply {
    const macoshost::SetAttributesCall request(newAttributes);
    callCore<fskit::NamedItemReply>(request.beforeAnswer(answering(reply, _items)), [&](fskit::NamedItemReply answer) {
        _operations->createSymbolicLink(toCore(name), coreItem(directory), request.core(), toCore(contents),
                                        std::move(answer));
    });
}

- (void)createLinkToItem:(FSItem*)item
                   named:(FSFileName*)name
             inDirectory:(FSItem*)directory
            replyHandler:(void (^)(FSFileName*, NSError*))reply {
    callCore<fskit::NameReply>(answering(reply), [&](fskit::NameReply answer) {
        _operations->createLink(coreItem(item), toCore(name), coreItem(directory), std::move(answer));
    });
}

- (void)removeItem:(FSItem*)item
             named:(FSFileName*)name
     fromDirectory:(FSItem*)directory
      replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _operations->removeItem(coreItem(item), toCore(name), coreItem(directory), std::move(answer));
    });
}

- (void)renameItem:(FSItem*)item
       inDirectory:(FSItem*)sourceDirectory
             named:(FSFileName*)sourceName
         toNewName:(FSFileName*)destinationName
       inDirectory:(FSItem*)destinationDirectory
          overItem:(FSItem*)overItem
      replyHandler:(void (^)(FSFileName*, NSError*))reply {
    callCore<fskit::NameReply>(answering(reply), [&](fskit::NameReply answer) {
        _operations->renameItem(coreItem(item), coreItem(sourceDirectory), toCore(sourceName), toCore(destinationName),
                                coreItem(destinationDirectory), coreItem(overItem), std::move(answer));
    });
}

@end
