#import "hosts/macos/ToFSKit.h"

#include <string_view>

namespace macoshost {
namespace {

// nil if the text is not UTF-8.
NSString* nsString(std::string_view text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

NSString* nsStringOrEmpty(std::string_view text) {
    NSString* string = nsString(text);
    return string ? string : @"";
}

NSUUID* nsUUID(foundation::UUID uuid) {
    return [[NSUUID alloc] initWithUUIDBytes:uuid.bytes.data()];
}

} // namespace

NSError* toFSKit(const foundation::NSError& error) {
    NSString* description = error.localizedDescription ? nsString(*error.localizedDescription) : nil;
    NSDictionary* userInfo = description ? @{NSLocalizedDescriptionKey : description} : nil;
    return [NSError errorWithDomain:nsStringOrEmpty(error.domain)
                               code:static_cast<NSInteger>(error.code)
                           userInfo:userInfo];
}

FSFileName* toFSKit(const fskit::FSFileName& name) {
    return [[FSFileName alloc] initWithBytes:name.data().data() length:name.data().size()];
}

FSContainerIdentifier* toFSKit(const fskit::FSContainerIdentifier& identifier) {
    return [[FSContainerIdentifier alloc] initWithUUID:nsUUID(identifier.uuid())];
}

FSVolumeIdentifier* toFSKit(const fskit::FSVolumeIdentifier& identifier) {
    return [[FSVolumeIdentifier alloc] initWithUUID:nsUUID(identifier.uuid())];
}

FSProbeResult* toFSKit(const fskit::FSProbeResult& result) {
    if (result.result() == fskit::FSMatchResult::notRecognized || !result.containerID())
        return FSProbeResult.notRecognizedProbeResult;
    NSString* name = nsStringOrEmpty(result.name());
    FSContainerIdentifier* containerID = toFSKit(*result.containerID());
    switch (result.result()) {
    case fskit::FSMatchResult::recognized:
        return [FSProbeResult recognizedProbeResultWithName:name containerID:containerID];
    case fskit::FSMatchResult::usableButLimited:
        return [FSProbeResult usableButLimitedProbeResultWithName:name containerID:containerID];
    default: return [FSProbeResult usableProbeResultWithName:name containerID:containerID];
    }
}

FSItemType toFSKit(fskit::FSItemType type) {
    return static_cast<FSItemType>(type);
}

FSItemID toFSKit(fskit::FSItemID itemID) {
    return static_cast<FSItemID>(itemID);
}

FSItemAttribute toFSKit(fskit::FSItemAttribute attributes) {
    return static_cast<FSItemAttribute>(attributes);
}

// A setter makes its attribute valid, and the platform remembers every valid one: what the core does not know is not
// set.
FSItemAttributes* toFSKit(const fskit::FSItemAttributes& attributes) {
    FSItemAttributes* record = [[FSItemAttributes alloc] init];
    if (attributes.isValid(fskit::FSItemAttribute::type))
        record.type = toFSKit(attributes.type());
    if (attributes.isValid(fskit::FSItemAttribute::mode))
        record.mode = attributes.mode();
    if (attributes.isValid(fskit::FSItemAttribute::linkCount))
        record.linkCount = attributes.linkCount();
    if (attributes.isValid(fskit::FSItemAttribute::uid))
        record.uid = attributes.uid();
    if (attributes.isValid(fskit::FSItemAttribute::gid))
        record.gid = attributes.gid();
    if (attributes.isValid(fskit::FSItemAttribute::flags))
        record.flags = attributes.flags();
    if (attributes.isValid(fskit::FSItemAttribute::size))
        record.size = attributes.size();
    if (attributes.isValid(fskit::FSItemAttribute::allocSize))
        record.allocSize = attributes.allocSize();
    if (attributes.isValid(fskit::FSItemAttribute::fileID))
        record.fileID = toFSKit(attributes.fileID());
    if (attributes.isValid(fskit::FSItemAttribute::parentID))
        record.parentID = toFSKit(attributes.parentID());
    if (attributes.isValid(fskit::FSItemAttribute::supportsLimitedXAttrs))
        record.supportsLimitedXAttrs = attributes.supportsLimitedXAttrs();
    if (attributes.isValid(fskit::FSItemAttribute::inhibitKernelOffloadedIO))
        record.inhibitKernelOffloadedIO = attributes.inhibitKernelOffloadedIO();
    if (attributes.isValid(fskit::FSItemAttribute::modifyTime))
        record.modifyTime = attributes.modifyTime();
    if (attributes.isValid(fskit::FSItemAttribute::changeTime))
        record.changeTime = attributes.changeTime();
    if (attributes.isValid(fskit::FSItemAttribute::accessTime))
        record.accessTime = attributes.accessTime();
    if (attributes.isValid(fskit::FSItemAttribute::birthTime))
        record.birthTime = attributes.birthTime();
    if (attributes.isValid(fskit::FSItemAttribute::backupTime))
        record.backupTime = attributes.backupTime();
    if (attributes.isValid(fskit::FSItemAttribute::addedTime))
        record.addedTime = attributes.addedTime();
    return record;
}

// What a volume does not claim stays as the platform made it. Two capabilities are statements either way.
FSVolumeSupportedCapabilities* toFSKit(const fskit::FSVolumeSupportedCapabilities& capabilities) {
    FSVolumeSupportedCapabilities* result = [[FSVolumeSupportedCapabilities alloc] init];
    result.doesNotSupportSettingFilePermissions = capabilities.doesNotSupportSettingFilePermissions;
    result.caseFormat = static_cast<FSVolumeCaseFormat>(capabilities.caseFormat);
    if (capabilities.supportsPersistentObjectIDs)
        result.supportsPersistentObjectIDs = YES;
    if (capabilities.supportsSymbolicLinks)
        result.supportsSymbolicLinks = YES;
    if (capabilities.supportsHardLinks)
        result.supportsHardLinks = YES;
    if (capabilities.supportsJournal)
        result.supportsJournal = YES;
    if (capabilities.supportsActiveJournal)
        result.supportsActiveJournal = YES;
    if (capabilities.doesNotSupportRootTimes)
        result.doesNotSupportRootTimes = YES;
    if (capabilities.supportsSparseFiles)
        result.supportsSparseFiles = YES;
    if (capabilities.supportsZeroRuns)
        result.supportsZeroRuns = YES;
    if (capabilities.supportsFastStatFS)
        result.supportsFastStatFS = YES;
    if (capabilities.supports2TBFiles)
        result.supports2TBFiles = YES;
    if (capabilities.supportsOpenDenyModes)
        result.supportsOpenDenyModes = YES;
    if (capabilities.supportsHiddenFiles)
        result.supportsHiddenFiles = YES;
    if (capabilities.doesNotSupportVolumeSizes)
        result.doesNotSupportVolumeSizes = YES;
    if (capabilities.supports64BitObjectIDs)
        result.supports64BitObjectIDs = YES;
    if (capabilities.supportsDocumentID)
        result.supportsDocumentID = YES;
    if (capabilities.doesNotSupportImmutableFiles)
        result.doesNotSupportImmutableFiles = YES;
    if (capabilities.supportsSharedSpace)
        result.supportsSharedSpace = YES;
    if (capabilities.supportsVolumeGroups)
        result.supportsVolumeGroups = YES;
    return result;
}

FSStatFSResult* toFSKit(const fskit::FSStatFSResult& statistics) {
    FSStatFSResult* result =
        [[FSStatFSResult alloc] initWithFileSystemTypeName:nsStringOrEmpty(statistics.fileSystemTypeName)];
    result.blockSize = static_cast<NSInteger>(statistics.blockSize);
    result.ioSize = static_cast<NSInteger>(statistics.ioSize);
    result.totalBlocks = statistics.totalBlocks;
    result.freeBlocks = statistics.freeBlocks;
    result.availableBlocks = statistics.availableBlocks;
    result.usedBlocks = statistics.usedBlocks;
    result.totalBytes = statistics.totalBytes;
    result.freeBytes = statistics.freeBytes;
    result.availableBytes = statistics.availableBytes;
    result.usedBytes = statistics.usedBytes;
    result.totalFiles = statistics.totalFiles;
    result.freeFiles = statistics.freeFiles;
    result.fileSystemSubType = static_cast<NSInteger>(statistics.fileSystemSubType);
    return result;
}

bool PlatformPacker::packEntry(const fskit::FSFileName& name, fskit::FSItemType itemType, fskit::FSItemID itemID,
                               fskit::FSDirectoryCookie nextCookie, const fskit::FSItemAttributes* attributes) {
    @autoreleasepool {
        return [packer_ packEntryWithName:toFSKit(name)
                                 itemType:toFSKit(itemType)
                                   itemID:toFSKit(itemID)
                               nextCookie:nextCookie
                               attributes:attributes ? toFSKit(*attributes) : nil];
    }
}

} // namespace macoshost
