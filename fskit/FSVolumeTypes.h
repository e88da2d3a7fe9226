#pragma once

#include "fskit/FSFileName.h"
#include "fskit/FSItem.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace fskit {

/// A position in a directory listing, chosen by the volume; the initial cookie starts a listing.
using FSDirectoryCookie = std::uint64_t;
inline constexpr FSDirectoryCookie FSDirectoryCookieInitial = 0;

/// A version of a directory, chosen by the volume.
using FSDirectoryVerifier = std::uint64_t;
inline constexpr FSDirectoryVerifier FSDirectoryVerifierInitial = 0;

enum class FSDeactivateOptions : std::int64_t { none = 0, force = 1 << 0 };

enum class FSSyncFlags : std::int64_t { wait = 1, noWait = 2, dWait = 4 };

enum class FSVolumeCaseFormat : std::int64_t { sensitive = 0, insensitive = 1, insensitiveCasePreserving = 2 };

enum class FSVolumeOpenModes : std::uint64_t { none = 0, read = 1, write = 2, readWrite = 3 };

constexpr FSVolumeOpenModes operator|(FSVolumeOpenModes a, FSVolumeOpenModes b) {
    return static_cast<FSVolumeOpenModes>(static_cast<std::uint64_t>(a) | static_cast<std::uint64_t>(b));
}

constexpr FSVolumeOpenModes operator&(FSVolumeOpenModes a, FSVolumeOpenModes b) {
    return static_cast<FSVolumeOpenModes>(static_cast<std::uint64_t>(a) & static_cast<std::uint64_t>(b));
}

constexpr bool contains(FSVolumeOpenModes modes, FSVolumeOpenModes mode) {
    return (modes & mode) == mode;
}

/// Takes directory entries one by one. Made by the host for one enumeration.
class FSDirectoryEntryPacker {
public:
    virtual ~FSDirectoryEntryPacker();
    /// False: the entry was not taken, stop. `nextCookie` resumes after this entry; `attributes` is null when the
    /// caller asked for none.
    virtual bool packEntry(const FSFileName& name, FSItemType itemType, FSItemID itemID, FSDirectoryCookie nextCookie,
                           const FSItemAttributes* attributes) = 0;
};

/// The memory that a read fills; owned by the host.
class FSMutableFileDataBuffer {
public:
    explicit FSMutableFileDataBuffer(std::span<std::byte> memory) : memory_(memory) {}

    /// Bytes.
    std::size_t length() const { return memory_.size(); }

    std::byte* mutableBytes() const { return memory_.data(); }

private:
    std::span<std::byte> memory_;
};

/// The figures of a volume.
struct FSStatFSResult {
    std::string fileSystemTypeName;
    std::int64_t blockSize = 4096;
    std::int64_t ioSize = 0;
    std::uint64_t totalBlocks = 0;
    std::uint64_t availableBlocks = 0;
    std::uint64_t freeBlocks = 0;
    std::uint64_t usedBlocks = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t availableBytes = 0;
    std::uint64_t freeBytes = 0;
    std::uint64_t usedBytes = 0;
    std::uint64_t totalFiles = 0;
    std::uint64_t freeFiles = 0;
    std::int64_t fileSystemSubType = 0;
};

/// What a volume can do; everything is off until set.
struct FSVolumeSupportedCapabilities {
    bool supportsPersistentObjectIDs = false;
    bool supportsSymbolicLinks = false;
    bool supportsHardLinks = false;
    bool supportsJournal = false;
    bool supportsActiveJournal = false;
    bool doesNotSupportRootTimes = false;
    bool supportsSparseFiles = false;
    bool supportsZeroRuns = false;
    bool supportsFastStatFS = false;
    bool supports2TBFiles = false;
    bool supportsOpenDenyModes = false;
    bool supportsHiddenFiles = false;
    bool doesNotSupportVolumeSizes = false;
    bool supports64BitObjectIDs = false;
    bool supportsDocumentID = false;
    bool doesNotSupportImmutableFiles = false;
    bool doesNotSupportSettingFilePermissions = false;
    bool supportsSharedSpace = false;
    bool supportsVolumeGroups = false;
    FSVolumeCaseFormat caseFormat = FSVolumeCaseFormat::sensitive;
};

} // namespace fskit
