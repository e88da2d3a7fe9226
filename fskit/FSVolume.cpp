#include "fskit/FSVolume.h"

namespace fskit {

FSVolume::~FSVolume() = default;

FSVolumePathConfOperations::~FSVolumePathConfOperations() = default;

FSVolumeOpenCloseOperations::~FSVolumeOpenCloseOperations() = default;

FSVolumeReadWriteOperations::~FSVolumeReadWriteOperations() = default;

FSDirectoryEntryPacker::~FSDirectoryEntryPacker() = default;

} // namespace fskit
