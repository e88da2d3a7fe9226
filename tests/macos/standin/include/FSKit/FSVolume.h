#pragma once

#import <FSKit/FSEntityIdentifier.h>
#import <FSKit/FSFileName.h>
#import <FSKit/FSItem.h>
#import <FSKit/FSKitDefines.h>
#import <FSKit/FSTaskOptions.h>
#import <FSKit/FSVolumeTypes.h>

#include <sys/types.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@interface FSVolume : NSObject
FSKIT_NO_INIT
- (instancetype)initWithVolumeID:(FSVolumeIdentifier*)volumeID
                      volumeName:(FSFileName*)volumeName NS_DESIGNATED_INITIALIZER;
@property(strong, readonly) FSVolumeIdentifier* volumeID;
@property(copy) FSFileName* name;
@end

FSKIT_API_AVAILABILITY_V1
@protocol FSVolumePathConfOperations <NSObject>
@property(readonly) NSInteger maximumLinkCount;
@property(readonly) NSInteger maximumNameLength;
@property(readonly) BOOL restrictsOwnershipChanges;
@property(readonly) BOOL truncatesLongNames;
@end

FSKIT_API_AVAILABILITY_V1
@protocol FSVolumeOperations <NSObject, FSVolumePathConfOperations>
@property(readonly, nonatomic) FSVolumeSupportedCapabilities* supportedVolumeCapabilities;
@property(readonly, nonatomic) FSStatFSResult* volumeStatistics;
- (void)activateWithOptions:(FSTaskOptions*)options
               replyHandler:(void (^)(FSItem* _Nullable rootItem, NSError* _Nullable err))reply;
- (void)deactivateWithOptions:(FSDeactivateOptions)options replyHandler:(void (^)(NSError* _Nullable err))reply;
- (void)mountWithOptions:(FSTaskOptions*)options replyHandler:(void (^)(NSError* _Nullable error))reply;
- (void)unmountWithReplyHandler:(void (^)(void))reply;
- (void)synchronizeWithFlags:(FSSyncFlags)flags replyHandler:(void (^)(NSError* _Nullable error))reply;
- (void)getAttributes:(FSItemGetAttributesRequest*)desiredAttributes
               ofItem:(FSItem*)item
         replyHandler:(void (^)(FSItemAttributes* _Nullable attributes, NSError* _Nullable error))reply;
- (void)setAttributes:(FSItemSetAttributesRequest*)newAttributes
               onItem:(FSItem*)item
         replyHandler:(void (^)(FSItemAttributes* _Nullable attributes, NSError* _Nullable error))reply;
- (void)lookupItemNamed:(FSFileName*)name
            inDirectory:(FSItem*)directory
           replyHandler:
               (void (^)(FSItem* _Nullable theItem, FSFileName* _Nullable itemName, NSError* _Nullable error))reply;
- (void)reclaimItem:(FSItem*)item replyHandler:(void (^)(NSError* _Nullable error))reply;
- (void)readSymbolicLink:(FSItem*)item
            replyHandler:(void (^)(FSFileName* _Nullable contents, NSError* _Nullable error))reply;
- (void)createItemNamed:(FSFileName*)name
                   type:(FSItemType)type
            inDirectory:(FSItem*)directory
             attributes:(FSItemSetAttributesRequest*)newAttributes
           replyHandler:
               (void (^)(FSItem* _Nullable newItem, FSFileName* _Nullable newItemName, NSError* _Nullable error))reply;
- (void)createSymbolicLinkNamed:(FSFileName*)name
                    inDirectory:(FSItem*)directory
                     attributes:(FSItemSetAttributesRequest*)newAttributes
                   linkContents:(FSFileName*)contents
                   replyHandler:(void (^)(FSItem* _Nullable newItem, FSFileName* _Nullable newItemName,
                                          NSError* _Nullable error))reply;
- (void)createLinkToItem:(FSItem*)item
                   named:(FSFileName*)name
             inDirectory:(FSItem*)directory
            replyHandler:(void (^)(FSFileName* _Nullable linkName, NSError* _Nullable error))reply;
- (void)removeItem:(FSItem*)item
             named:(FSFileName*)name
     fromDirectory:(FSItem*)directory
      replyHandler:(void (^)(NSError* _Nullable error))reply;
- (void)renameItem:(FSItem*)item
       inDirectory:(FSItem*)sourceDirectory
             named:(FSFileName*)sourceName
         toNewName:(FSFileName*)destinationName
       inDirectory:(FSItem*)destinationDirectory
          overItem:(FSItem* _Nullable)overItem
      replyHandler:(void (^)(FSFileName* _Nullable newName, NSError* _Nullable error))reply;
- (void)enumerateDirectory:(FSItem*)directory
          startingAtCookie:(FSDirectoryCookie)cookie
                  verifier:(FSDirectoryVerifier)verifier
       providingAttributes:(FSItemGetAttributesRequest* _Nullable)attributes
               usingPacker:(FSDirectoryEntryPacker*)packer
              replyHandler:(void (^)(FSDirectoryVerifier currentVerifier, NSError* _Nullable error))reply;
@end

FSKIT_API_AVAILABILITY_V1
@protocol FSVolumeOpenCloseOperations <NSObject>
- (void)openItem:(FSItem*)item
       withModes:(FSVolumeOpenModes)modes
    replyHandler:(void (^)(NSError* _Nullable error))reply;
- (void)closeItem:(FSItem*)item
     keepingModes:(FSVolumeOpenModes)modes
     replyHandler:(void (^)(NSError* _Nullable error))reply;
@end

FSKIT_API_AVAILABILITY_V1
@protocol FSVolumeReadWriteOperations <NSObject>
- (void)readFromFile:(FSItem*)item
              offset:(off_t)offset
              length:(size_t)length
          intoBuffer:(FSMutableFileDataBuffer*)buffer
        replyHandler:(void (^)(size_t actuallyRead, NSError* _Nullable error))reply;
- (void)writeContents:(NSData*)contents
               toFile:(FSItem*)item
             atOffset:(off_t)offset
         replyHandler:(void (^)(size_t actuallyWritten, NSError* _Nullable error))reply;
@end

NS_ASSUME_NONNULL_END
