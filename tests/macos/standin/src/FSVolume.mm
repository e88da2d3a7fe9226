// Stand-in: the volume base and the values that pass through its operations.
#import <FSKit/FSKitStandin.h>

FSDirectoryCookie const FSDirectoryCookieInitial = 0;
FSDirectoryVerifier const FSDirectoryVerifierInitial = 0;

@implementation FSVolume
@synthesize volumeID = _volumeID, name = _name;
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wobjc-designated-initializers"

- (instancetype)init {
    [self doesNotRecognizeSelector:_cmd];
    return nil;
}

#pragma clang diagnostic pop

- (instancetype)initWithVolumeID:(FSVolumeIdentifier*)volumeID volumeName:(FSFileName*)volumeName {
    if ((self = [super init])) {
        _volumeID = volumeID;
        _name = [volumeName copy];
    }
    return self;
}

@end

@implementation FSPackedEntry
@synthesize name = _name, itemType = _itemType, itemID = _itemID, nextCookie = _nextCookie, attributes = _attributes;

- (instancetype)initWithName:(FSFileName*)name
                    itemType:(FSItemType)itemType
                      itemID:(FSItemID)itemID
                  nextCookie:(FSDirectoryCookie)nextCookie
                  attributes:(FSItemAttributes*)attributes {
    if ((self = [super init])) {
        _name = name;
        _itemType = itemType;
        _itemID = itemID;
        _nextCookie = nextCookie;
        _attributes = attributes;
    }
    return self;
}

@end

@implementation FSDirectoryEntryPacker {
    NSMutableArray* _entries;
    NSUInteger _capacity;
    BOOL _raises;
}

+ (instancetype)packerWithCapacity:(NSUInteger)entries {
    FSDirectoryEntryPacker* packer = [[self alloc] init];
    packer->_entries = [[NSMutableArray alloc] init];
    packer->_capacity = entries;
    return packer;
}

+ (instancetype)raisingPacker {
    FSDirectoryEntryPacker* packer = [self packerWithCapacity:0];
    packer->_raises = YES;
    return packer;
}

- (BOOL)packEntryWithName:(FSFileName*)name
                 itemType:(FSItemType)itemType
                   itemID:(FSItemID)itemID
               nextCookie:(FSDirectoryCookie)nextCookie
               attributes:(FSItemAttributes*)attributes {
    if (_raises)
        [NSException raise:NSInternalInconsistencyException format:@"this packer raises"];
    if (_entries.count >= _capacity)
        return NO;
    [_entries addObject:[[FSPackedEntry alloc] initWithName:name
                                                   itemType:itemType
                                                     itemID:itemID
                                                 nextCookie:nextCookie
                                                 attributes:attributes]];
    return YES;
}

- (NSArray*)packedEntries {
    return [_entries copy];
}

@end

@implementation FSMutableFileDataBuffer {
    NSMutableData* _bytes;
}

+ (instancetype)bufferWithLength:(NSUInteger)length {
    FSMutableFileDataBuffer* buffer = [[self alloc] init];
    buffer->_bytes = [[NSMutableData alloc] initWithLength:length];
    return buffer;
}

- (NSUInteger)length {
    return _bytes.length;
}

- (void*)mutableBytes {
    return _bytes.mutableBytes;
}

@end

@implementation FSStatFSResult
@synthesize blockSize = _blockSize, ioSize = _ioSize, totalBlocks = _totalBlocks, availableBlocks = _availableBlocks;
@synthesize freeBlocks = _freeBlocks, usedBlocks = _usedBlocks, totalBytes = _totalBytes;
@synthesize availableBytes = _availableBytes, freeBytes = _freeBytes, usedBytes = _usedBytes;
@synthesize totalFiles = _totalFiles, freeFiles = _freeFiles, fileSystemSubType = _fileSystemSubType;
@synthesize fileSystemTypeName = _fileSystemTypeName;

- (instancetype)initWithFileSystemTypeName:(NSString*)fileSystemTypeName {
    if ((self = [super init])) {
        _fileSystemTypeName = [fileSystemTypeName copy];
        _blockSize = 4096;
    }
    return self;
}

@end

@implementation FSVolumeSupportedCapabilities
@synthesize supportsPersistentObjectIDs, supportsSymbolicLinks, supportsHardLinks, supportsJournal;
@synthesize supportsActiveJournal, doesNotSupportRootTimes, supportsSparseFiles, supportsZeroRuns, supportsFastStatFS;
@synthesize supports2TBFiles, supportsOpenDenyModes, supportsHiddenFiles, doesNotSupportVolumeSizes;
@synthesize supports64BitObjectIDs, supportsDocumentID, doesNotSupportImmutableFiles;
@synthesize doesNotSupportSettingFilePermissions, supportsSharedSpace, supportsVolumeGroups, caseFormat;
@end
