#import "hosts/macos/ToCore.h"

#include <cstdint>
#include <string>
#include <vector>

namespace macoshost {
namespace {

// The core's enumerations have the platform's values, so that they convert by a cast.
template <typename Core, typename Platform>
constexpr bool sameValue(Core core, Platform platform) {
    return static_cast<std::int64_t>(core) == static_cast<std::int64_t>(platform);
}

static_assert(sameValue(fskit::FSItemType::unknown, FSItemTypeUnknown));
static_assert(sameValue(fskit::FSItemType::file, FSItemTypeFile));
static_assert(sameValue(fskit::FSItemType::directory, FSItemTypeDirectory));
static_assert(sameValue(fskit::FSItemType::symlink, FSItemTypeSymlink));
static_assert(sameValue(fskit::FSItemType::fifo, FSItemTypeFIFO));
static_assert(sameValue(fskit::FSItemType::charDevice, FSItemTypeCharDevice));
static_assert(sameValue(fskit::FSItemType::blockDevice, FSItemTypeBlockDevice));
static_assert(sameValue(fskit::FSItemType::socket, FSItemTypeSocket));
static_assert(sameValue(fskit::FSVolumeOpenModes::read, FSVolumeOpenModesRead));
static_assert(sameValue(fskit::FSVolumeOpenModes::write, FSVolumeOpenModesWrite));
static_assert(sameValue(fskit::FSDeactivateOptions::force, FSDeactivateOptionsForce));
static_assert(sameValue(fskit::FSSyncFlags::wait, FSSyncFlagsWait));
static_assert(sameValue(fskit::FSSyncFlags::noWait, FSSyncFlagsNoWait));
static_assert(sameValue(fskit::FSSyncFlags::dWait, FSSyncFlagsDWait));

std::string utf8(NSString* text) {
    const char* bytes = text.UTF8String;
    return bytes ? std::string(bytes) : std::string();
}

/// A path with the platform's URL object behind it.
class PlatformURL final : public foundation::URL {
public:
    explicit PlatformURL(NSURL* url) : URL(url.path.fileSystemRepresentation), url_(url) {}

    bool startAccessingSecurityScopedResource() override { return [url_ startAccessingSecurityScopedResource]; }

    void stopAccessingSecurityScopedResource() override { [url_ stopAccessingSecurityScopedResource]; }

private:
    NSURL* url_;
};

/// A resource that is not a path.
class OtherResource final : public fskit::FSResource {
public:
    explicit OtherResource(std::string description) : description_(std::move(description)) {}

    std::string description() const override { return description_; }

private:
    std::string description_;
};

void copyAttributes(FSItemAttributes* from, fskit::FSItemAttributes& to) {
    if ([from isValid:FSItemAttributeType])
        to.setType(toCore(from.type));
    if ([from isValid:FSItemAttributeMode])
        to.setMode(from.mode);
    if ([from isValid:FSItemAttributeLinkCount])
        to.setLinkCount(from.linkCount);
    if ([from isValid:FSItemAttributeUID])
        to.setUid(from.uid);
    if ([from isValid:FSItemAttributeGID])
        to.setGid(from.gid);
    if ([from isValid:FSItemAttributeFlags])
        to.setFlags(from.flags);
    if ([from isValid:FSItemAttributeSize])
        to.setSize(from.size);
    if ([from isValid:FSItemAttributeAllocSize])
        to.setAllocSize(from.allocSize);
    if ([from isValid:FSItemAttributeFileID])
        to.setFileID(static_cast<fskit::FSItemID>(from.fileID));
    if ([from isValid:FSItemAttributeParentID])
        to.setParentID(static_cast<fskit::FSItemID>(from.parentID));
    if ([from isValid:FSItemAttributeAccessTime])
        to.setAccessTime(from.accessTime);
    if ([from isValid:FSItemAttributeModifyTime])
        to.setModifyTime(from.modifyTime);
    if ([from isValid:FSItemAttributeChangeTime])
        to.setChangeTime(from.changeTime);
    if ([from isValid:FSItemAttributeBirthTime])
        to.setBirthTime(from.birthTime);
    if ([from isValid:FSItemAttributeBackupTime])
        to.setBackupTime(from.backupTime);
    if ([from isValid:FSItemAttributeAddedTime])
        to.setAddedTime(from.addedTime);
    if ([from isValid:FSItemAttributeSupportsLimitedXAttrs])
        to.setSupportsLimitedXAttrs(from.supportsLimitedXAttrs);
    if ([from isValid:FSItemAttributeInhibitKernelOffloadedIO])
        to.setInhibitKernelOffloadedIO(from.inhibitKernelOffloadedIO);
}

} // namespace

fskit::FSFileName toCore(FSFileName* name) {
    NSData* data = name.data;
    return fskit::FSFileName(std::string_view(static_cast<const char*>(data.bytes), data.length));
}

fskit::FSVolumeIdentifier toCore(FSVolumeIdentifier* identifier) {
    foundation::UUID uuid;
    [identifier.uuid getUUIDBytes:uuid.bytes.data()];
    return fskit::FSVolumeIdentifier(uuid);
}

fskit::FSTaskOptions toCore(FSTaskOptions* options) {
    std::vector<std::string> arguments;
    for (NSString* argument in options.taskOptions)
        arguments.push_back(utf8(argument));
    return fskit::FSTaskOptions(std::move(arguments));
}

std::shared_ptr<fskit::FSResource> toCore(FSResource* resource) {
    if (@available(macOS 26.0, *)) {
        if ([resource isKindOfClass:[FSPathURLResource class]]) {
            auto* path = static_cast<FSPathURLResource*>(resource);
            return std::make_shared<fskit::FSPathURLResource>(std::make_shared<PlatformURL>(path.url), path.isWritable);
        }
    }
    return std::make_shared<OtherResource>(utf8(resource.description));
}

fskit::FSItemType toCore(FSItemType type) {
    return static_cast<fskit::FSItemType>(type);
}

fskit::FSVolumeOpenModes toCore(FSVolumeOpenModes modes) {
    return static_cast<fskit::FSVolumeOpenModes>(modes);
}

fskit::FSDeactivateOptions toCore(FSDeactivateOptions options) {
    return static_cast<fskit::FSDeactivateOptions>(options);
}

fskit::FSSyncFlags toCore(FSSyncFlags flags) {
    return static_cast<fskit::FSSyncFlags>(flags);
}

fskit::FSItemGetAttributesRequest toCore(FSItemGetAttributesRequest* request) {
    fskit::FSItemGetAttributesRequest core;
    core.setWantedAttributes(static_cast<fskit::FSItemAttribute>(request.wantedAttributes));
    return core;
}

fskit::FSItemSetAttributesRequest toCore(FSItemSetAttributesRequest* request) {
    fskit::FSItemSetAttributesRequest core;
    copyAttributes(request, core);
    core.setConsumedAttributes(static_cast<fskit::FSItemAttribute>(request.consumedAttributes));
    return core;
}

fskit::FSMutableFileDataBuffer toCore(FSMutableFileDataBuffer* buffer) {
    return fskit::FSMutableFileDataBuffer({static_cast<std::byte*>(buffer.mutableBytes), buffer.length});
}

std::span<const std::byte> toCore(NSData* data) {
    return {static_cast<const std::byte*>(data.bytes), data.length};
}

} // namespace macoshost
