// Stand-in: items and attribute records.
#import <FSKit/FSKitStandin.h>

@implementation FSItem
@end

// One attribute: its variable, and a setter that makes it valid.
#define ATTRIBUTE(Type, name, Name, bit)                                                                               \
    -(void)set##Name : (Type)value {                                                                                   \
        _##name = value;                                                                                               \
        _valid |= bit;                                                                                                 \
    }

@implementation FSItemAttributes {
    NSInteger _valid;
}
@synthesize uid = _uid, gid = _gid, mode = _mode, type = _type, linkCount = _linkCount, flags = _flags, size = _size;
@synthesize allocSize = _allocSize, fileID = _fileID, parentID = _parentID;
@synthesize supportsLimitedXAttrs = _supportsLimitedXAttrs, inhibitKernelOffloadedIO = _inhibitKernelOffloadedIO;
@synthesize accessTime = _accessTime, modifyTime = _modifyTime, changeTime = _changeTime, birthTime = _birthTime;
@synthesize backupTime = _backupTime, addedTime = _addedTime;
ATTRIBUTE(uint32_t, uid, Uid, FSItemAttributeUID)
ATTRIBUTE(uint32_t, gid, Gid, FSItemAttributeGID)
ATTRIBUTE(uint32_t, mode, Mode, FSItemAttributeMode)
ATTRIBUTE(FSItemType, type, Type, FSItemAttributeType)
ATTRIBUTE(uint32_t, linkCount, LinkCount, FSItemAttributeLinkCount)
ATTRIBUTE(uint32_t, flags, Flags, FSItemAttributeFlags)
ATTRIBUTE(uint64_t, size, Size, FSItemAttributeSize)
ATTRIBUTE(uint64_t, allocSize, AllocSize, FSItemAttributeAllocSize)
ATTRIBUTE(FSItemID, fileID, FileID, FSItemAttributeFileID)
ATTRIBUTE(FSItemID, parentID, ParentID, FSItemAttributeParentID)
ATTRIBUTE(BOOL, supportsLimitedXAttrs, SupportsLimitedXAttrs, FSItemAttributeSupportsLimitedXAttrs)
ATTRIBUTE(BOOL, inhibitKernelOffloadedIO, InhibitKernelOffloadedIO, FSItemAttributeInhibitKernelOffloadedIO)
ATTRIBUTE(struct timespec, accessTime, AccessTime, FSItemAttributeAccessTime)
ATTRIBUTE(struct timespec, modifyTime, ModifyTime, FSItemAttributeModifyTime)
ATTRIBUTE(struct timespec, changeTime, ChangeTime, FSItemAttributeChangeTime)
ATTRIBUTE(struct timespec, birthTime, BirthTime, FSItemAttributeBirthTime)
ATTRIBUTE(struct timespec, backupTime, BackupTime, FSItemAttributeBackupTime)
ATTRIBUTE(struct timespec, addedTime, AddedTime, FSItemAttributeAddedTime)

- (void)invalidateAllProperties {
    _valid = 0;
}

- (BOOL)isValid:(FSItemAttribute)attribute {
    return (_valid & attribute) == attribute;
}

@end

@implementation FSItemSetAttributesRequest
@synthesize consumedAttributes = _consumedAttributes, consumedAttributesAssigned = _consumedAttributesAssigned;

- (void)setConsumedAttributes:(FSItemAttribute)attributes {
    _consumedAttributes = attributes;
    _consumedAttributesAssigned = YES;
}

- (BOOL)wasAttributeConsumed:(FSItemAttribute)attribute {
    return (_consumedAttributes & attribute) == attribute;
}

@end

@implementation FSItemGetAttributesRequest
@synthesize wantedAttributes = _wantedAttributes;

- (BOOL)isAttributeWanted:(FSItemAttribute)attribute {
    return (_wantedAttributes & attribute) == attribute;
}

@end
