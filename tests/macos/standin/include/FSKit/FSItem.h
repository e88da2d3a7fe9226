#pragma once

#import <FSKit/FSKitDefines.h>

#include <stdint.h>
#include <time.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@interface FSItem : NSObject
@end

typedef NS_ENUM(uint64_t, FSItemID) {
    FSItemIDInvalid = 0,
    FSItemIDParentOfRoot = 1,
    FSItemIDRootDirectory = 2,
};

typedef NS_ENUM(NSInteger, FSItemType) {
    FSItemTypeUnknown = 0,
    FSItemTypeFile = 1,
    FSItemTypeDirectory = 2,
    FSItemTypeSymlink = 3,
    FSItemTypeFIFO = 4,
    FSItemTypeCharDevice = 5,
    FSItemTypeBlockDevice = 6,
    FSItemTypeSocket = 7,
};

typedef NS_OPTIONS(NSInteger, FSItemAttribute) {
    FSItemAttributeType = 1 << 0,
    FSItemAttributeMode = 1 << 1,
    FSItemAttributeLinkCount = 1 << 2,
    FSItemAttributeUID = 1 << 3,
    FSItemAttributeGID = 1 << 4,
    FSItemAttributeFlags = 1 << 5,
    FSItemAttributeSize = 1 << 6,
    FSItemAttributeAllocSize = 1 << 7,
    FSItemAttributeFileID = 1 << 8,
    FSItemAttributeParentID = 1 << 9,
    FSItemAttributeAccessTime = 1 << 10,
    FSItemAttributeModifyTime = 1 << 11,
    FSItemAttributeChangeTime = 1 << 12,
    FSItemAttributeBirthTime = 1 << 13,
    FSItemAttributeBackupTime = 1 << 14,
    FSItemAttributeAddedTime = 1 << 15,
    FSItemAttributeSupportsLimitedXAttrs = 1 << 16,
    FSItemAttributeInhibitKernelOffloadedIO = 1 << 17,
};

FSKIT_API_AVAILABILITY_V1
@interface FSItemAttributes : NSObject
- (void)invalidateAllProperties;
- (BOOL)isValid:(FSItemAttribute)attribute;
@property(nonatomic) uint32_t uid;
@property(nonatomic) uint32_t gid;
@property(nonatomic) uint32_t mode;
@property(nonatomic) FSItemType type;
@property(nonatomic) uint32_t linkCount;
@property(nonatomic) uint32_t flags;
@property(nonatomic) uint64_t size;
@property(nonatomic) uint64_t allocSize;
@property(nonatomic) FSItemID fileID;
@property(nonatomic) FSItemID parentID;
@property(nonatomic) BOOL supportsLimitedXAttrs;
@property(nonatomic) BOOL inhibitKernelOffloadedIO;
@property(nonatomic) struct timespec accessTime;
@property(nonatomic) struct timespec modifyTime;
@property(nonatomic) struct timespec changeTime;
@property(nonatomic) struct timespec birthTime;
@property(nonatomic) struct timespec backupTime;
@property(nonatomic) struct timespec addedTime;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSItemSetAttributesRequest : FSItemAttributes
@property(nonatomic) FSItemAttribute consumedAttributes;
- (BOOL)wasAttributeConsumed:(FSItemAttribute)attribute;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSItemGetAttributesRequest : NSObject
@property(nonatomic) FSItemAttribute wantedAttributes;
- (BOOL)isAttributeWanted:(FSItemAttribute)attribute;
@end

NS_ASSUME_NONNULL_END
