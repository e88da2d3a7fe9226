#pragma once

#import <FSKit/FSKit.h>

#include "foundation/NSError.h"
#include "fskit/FSFileName.h"
#include "fskit/FSIdentifiers.h"
#include "fskit/FSItem.h"
#include "fskit/FSResource.h"
#include "fskit/FSVolumeTypes.h"

#include <optional>

NS_ASSUME_NONNULL_BEGIN

// Values of the core as values of the platform. All of these are safe on any thread.
namespace macoshost {

/// Domain, code, and user info only where the core's error carries a description: its text for logs stays inside.
NSError* toFSKit(const foundation::NSError& error);
FSFileName* toFSKit(const fskit::FSFileName& name);
FSContainerIdentifier* toFSKit(const fskit::FSContainerIdentifier& identifier);
FSVolumeIdentifier* toFSKit(const fskit::FSVolumeIdentifier& identifier);
FSProbeResult* toFSKit(const fskit::FSProbeResult& result);
FSItemType toFSKit(fskit::FSItemType type);
FSItemID toFSKit(fskit::FSItemID itemID);
FSItemAttribute toFSKit(fskit::FSItemAttribute attributes);
/// A new record with exactly the valid attributes set.
FSItemAttributes* toFSKit(const fskit::FSItemAttributes& attributes);
FSVolumeSupportedCapabilities* toFSKit(const fskit::FSVolumeSupportedCapabilities& capabilities);
FSStatFSResult* toFSKit(const fskit::FSStatFSResult& statistics);

/// The value's counterpart, or nil where there is no value.
template <typename Value>
auto toFSKit(const std::optional<Value>& value) -> decltype(toFSKit(*value)) _Nullable {
    return value ? toFSKit(*value) : nil;
}

/// Hands the entries of one enumeration on to the platform's packer.
class PlatformPacker final : public fskit::FSDirectoryEntryPacker {
public:
    explicit PlatformPacker(::FSDirectoryEntryPacker* packer) : packer_(packer) {}

    bool packEntry(const fskit::FSFileName& name, fskit::FSItemType itemType, fskit::FSItemID itemID,
                   fskit::FSDirectoryCookie nextCookie, const fskit::FSItemAttributes* _Nullable attributes) override;

private:
    ::FSDirectoryEntryPacker* packer_;
};

} // namespace macoshost

NS_ASSUME_NONNULL_END
