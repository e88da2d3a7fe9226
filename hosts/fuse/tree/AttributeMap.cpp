#include "hosts/fuse/tree/AttributeMap.h"

namespace fusehost {
namespace {

// Without the bits that let a program run as its owner: nobody takes them away when the file is changed.
constexpr mode_t shownBits = 01777;
constexpr std::uint64_t sectorSize = 512; // the unit of st_blocks
constexpr blksize_t preferredBlockSize = 4096;

} // namespace

AttributeMap::AttributeMap(const MountOptions& options)
    : fileMask_(options.fileMask), directoryMask_(options.directoryMask), uid_(options.uid), gid_(options.gid) {}

mode_t typeBits(fskit::FSItemType type) {
    switch (type) {
    case fskit::FSItemType::directory: return S_IFDIR;
    case fskit::FSItemType::symlink: return S_IFLNK;
    case fskit::FSItemType::fifo: return S_IFIFO;
    case fskit::FSItemType::charDevice: return S_IFCHR;
    case fskit::FSItemType::blockDevice: return S_IFBLK;
    case fskit::FSItemType::socket: return S_IFSOCK;
    case fskit::FSItemType::file:
    case fskit::FSItemType::unknown: return S_IFREG;
    }
    return S_IFREG;
}

struct stat AttributeMap::map(const fskit::FSItemAttributes& attributes) const {
    struct stat shown {};

    const bool isDirectory = attributes.type() == fskit::FSItemType::directory;
    const auto& mask = isDirectory ? directoryMask_ : fileMask_;
    const mode_t permissions = mask ? 0777 & ~*mask : attributes.mode() & shownBits;
    shown.st_mode = typeBits(attributes.type()) | permissions;
    shown.st_ino = static_cast<ino_t>(attributes.fileID());
    shown.st_nlink = attributes.linkCount();
    shown.st_uid = uid_.value_or(attributes.uid());
    shown.st_gid = gid_.value_or(attributes.gid());
    shown.st_size = static_cast<off_t>(attributes.size());
    shown.st_blocks = static_cast<blkcnt_t>(attributes.allocSize() / sectorSize);
    shown.st_blksize = preferredBlockSize;
    shown.st_atim = attributes.accessTime();
    shown.st_mtim = attributes.modifyTime();
    shown.st_ctim = attributes.changeTime();
    return shown;
}

} // namespace fusehost
