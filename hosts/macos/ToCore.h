#pragma once

#import <FSKit/FSKit.h>

#include "fskit/FSFileName.h"
#include "fskit/FSIdentifiers.h"
#include "fskit/FSItem.h"
#include "fskit/FSResource.h"
#include "fskit/FSVolumeTypes.h"

#include <cstddef>
#include <memory>
#include <span>

NS_ASSUME_NONNULL_BEGIN

// Values of the platform as values of the core. All of these are pure and safe on any thread.
namespace macoshost {

fskit::FSFileName toCore(FSFileName* name);
fskit::FSVolumeIdentifier toCore(FSVolumeIdentifier* identifier);
fskit::FSTaskOptions toCore(FSTaskOptions* options);
/// A path resource keeps the platform's URL object, which security-scoped access belongs to. Every other resource
/// becomes one that the core knows nothing of but its description.
std::shared_ptr<fskit::FSResource> toCore(FSResource* resource);
fskit::FSItemType toCore(FSItemType type);
fskit::FSVolumeOpenModes toCore(FSVolumeOpenModes modes);
fskit::FSDeactivateOptions toCore(FSDeactivateOptions options);
fskit::FSSyncFlags toCore(FSSyncFlags flags);
fskit::FSItemGetAttributesRequest toCore(FSItemGetAttributesRequest* request);
/// The valid attributes, and what is consumed already.
fskit::FSItemSetAttributesRequest toCore(FSItemSetAttributesRequest* request);
/// The buffer's own memory, not a copy; valid as long as the buffer.
fskit::FSMutableFileDataBuffer toCore(FSMutableFileDataBuffer* buffer);
/// The data's own bytes, not a copy; valid as long as the data.
std::span<const std::byte> toCore(NSData* data);

} // namespace macoshost

NS_ASSUME_NONNULL_END
