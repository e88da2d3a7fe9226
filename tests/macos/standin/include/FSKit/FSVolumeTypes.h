#pragma once

#import <FSKit/FSFileName.h>
#import <FSKit/FSItem.h>
#import <FSKit/FSKitDefines.h>

NS_ASSUME_NONNULL_BEGIN

typedef uint64_t FSDirectoryCookie;
FOUNDATION_EXPORT FSDirectoryCookie const FSDirectoryCookieInitial;
typedef uint64_t FSDirectoryVerifier;
FOUNDATION_EXPORT FSDirectoryVerifier const FSDirectoryVerifierInitial;

typedef NS_OPTIONS(NSInteger, FSDeactivateOptions) {
    FSDeactivateOptionsForce = 1 << 0,
};

typedef NS_ENUM(NSInteger, FSSyncFlags) {
    FSSyncFlagsWait = 1,
    FSSyncFlagsNoWait = 2,
    FSSyncFlagsDWait = 4,
};

typedef NS_ENUM(NSInteger, FSVolumeCaseFormat) {
    FSVolumeCaseFormatSensitive = 0,
    FSVolumeCaseFormatInsensitive = 1,
    FSVolumeCaseFormatInsensitiveCasePreserving = 2,
};

typedef NS_OPTIONS(NSUInteger, FSVolumeOpenModes) {
    FSVolumeOpenModesRead = 1,
    FSVolumeOpenModesWrite = 2,
};

FSKIT_API_AVAILABILITY_V1
@interface FSDirectoryEntryPacker : NSObject
FSKIT_NO_INIT
- (BOOL)packEntryWithName:(FSFileName*)name
                 itemType:(FSItemType)itemType
                   itemID:(FSItemID)itemID
               nextCookie:(FSDirectoryCookie)nextCookie
               attributes:(FSItemAttributes* _Nullable)attributes;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSMutableFileDataBuffer : NSObject
FSKIT_NO_INIT
@property(readonly) NSUInteger length;
- (void*)mutableBytes NS_RETURNS_INNER_POINTER;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSStatFSResult : NSObject
FSKIT_NO_INIT
- (instancetype)initWithFileSystemTypeName:(NSString*)fileSystemTypeName;
@property NSInteger blockSize;
@property NSInteger ioSize;
@property uint64_t totalBlocks;
@property uint64_t availableBlocks;
@property uint64_t freeBlocks;
@property uint64_t usedBlocks;
@property uint64_t totalBytes;
@property uint64_t availableBytes;
@property uint64_t freeBytes;
@property uint64_t usedBytes;
@property uint64_t totalFiles;
@property uint64_t freeFiles;
@property NSInteger fileSystemSubType;
@property(readonly, copy) NSString* fileSystemTypeName;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSVolumeSupportedCapabilities : NSObject
@property(nonatomic) BOOL supportsPersistentObjectIDs;
@property(nonatomic) BOOL supportsSymbolicLinks;
@property(nonatomic) BOOL supportsHardLinks;
@property(nonatomic) BOOL supportsJournal;
@property(nonatomic) BOOL supportsActiveJournal;
@property(nonatomic) BOOL doesNotSupportRootTimes;
@property(nonatomic) BOOL supportsSparseFiles;
@property(nonatomic) BOOL supportsZeroRuns;
@property(nonatomic) BOOL supportsFastStatFS;
@property(nonatomic) BOOL supports2TBFiles;
@property(nonatomic) BOOL supportsOpenDenyModes;
@property(nonatomic) BOOL supportsHiddenFiles;
@property(nonatomic) BOOL doesNotSupportVolumeSizes;
@property(nonatomic) BOOL supports64BitObjectIDs;
@property(nonatomic) BOOL supportsDocumentID;
@property(nonatomic) BOOL doesNotSupportImmutableFiles;
@property(nonatomic) BOOL doesNotSupportSettingFilePermissions;
@property(nonatomic) BOOL supportsSharedSpace;
@property(nonatomic) BOOL supportsVolumeGroups;
@property(nonatomic) FSVolumeCaseFormat caseFormat;
@end

NS_ASSUME_NONNULL_END
