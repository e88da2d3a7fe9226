#include "volume/KemviVolume.h"

#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"

#include <limits>

namespace kemvi {
namespace {

std::uint64_t bytesOf(std::uint64_t blocks, std::int64_t blockSize) {
    if (blockSize < 0)
        foundation::fatalError("negative block size in the volume statistics");
    const auto size = static_cast<std::uint64_t>(blockSize);
    if (size != 0 && blocks > std::numeric_limits<std::uint64_t>::max() / size)
        foundation::fatalError("byte count of the volume statistics overflows 64 bits");
    return blocks * size;
}

} // namespace

KemviVolume::KemviVolume(fskit::FSVolumeIdentifier volumeID, fskit::FSFileName volumeName,
                         std::shared_ptr<HelperClient> client, std::shared_ptr<HandleTable> handles)
    : FSVolume(volumeID, std::move(volumeName)),
      rootItem_(std::make_shared<KemviItem>("/", fskit::FSItemID::rootDirectory, true, 0, std::nullopt)),
      client_(std::move(client)), handles_(std::move(handles)) {
    logger().info({"KemviVolume init"});
}

KemviVolume::KemviVolume(fskit::FSVolumeIdentifier volumeID, fskit::FSFileName volumeName)
    : KemviVolume(volumeID, std::move(volumeName), nullptr) {}

const foundation::Logger& KemviVolume::logger() {
    // Never destroyed: an operation may still log while the process ends.
    static const auto* const instance = new foundation::Logger(foundation::bundleIdentifier, "Volume");
    return *instance;
}

HelperClient& KemviVolume::requireClient() const {
    if (!client_)
        foundation::throwPosix(foundation::posixErrno::ENXIO_);
    return *client_;
}

fskit::FSVolumeSupportedCapabilities KemviVolume::supportedVolumeCapabilities() const {
    fskit::FSVolumeSupportedCapabilities capabilities;
    capabilities.supportsPersistentObjectIDs = true;
    capabilities.supportsFastStatFS = true;
    capabilities.supports64BitObjectIDs = true;
    capabilities.supports2TBFiles = true;
    capabilities.supportsSparseFiles = true;
    capabilities.doesNotSupportImmutableFiles = true;
    capabilities.doesNotSupportSettingFilePermissions = false;
    capabilities.caseFormat = fskit::FSVolumeCaseFormat::insensitiveCasePreserving;
    return capabilities;
}

fskit::FSStatFSResult KemviVolume::volumeStatistics() const {
    fskit::FSStatFSResult figures;
    figures.fileSystemTypeName = "kemvifs";
    figures.blockSize = 4096;
    figures.ioSize = 1048576;
    figures.totalBlocks = 1073741824;
    figures.freeBlocks = 1073741824;
    figures.availableBlocks = 1073741824;
    figures.usedBlocks = 0;
    figures.totalBytes = bytesOf(figures.totalBlocks, figures.blockSize);
    figures.freeBytes = bytesOf(figures.freeBlocks, figures.blockSize);
    figures.availableBytes = figures.freeBytes;
    figures.usedBytes = 0;
    figures.totalFiles = 1000000000;
    figures.freeFiles = 999999999;
    return figures;
}

void KemviVolume::mount(const fskit::FSTaskOptions&, fskit::ErrorReply reply) {
    logger().info({"mount"});
    reply(std::nullopt); // the helper is already running
}

void KemviVolume::activate(const fskit::FSTaskOptions&, fskit::ItemReply reply) {
    logger().info({"activate"});
    reply(rootItem_, std::nullopt);
}

void KemviVolume::synchronize(fskit::FSSyncFlags, fskit::ErrorReply reply) {
    logger().info({"synchronize"});
    fskit::answer(reply, [this] {
        flushAllWriteHandles();
        if (client_)
            client_->statfs(); // its figures are not wanted, only that the helper still answers
    });
}

void KemviVolume::deactivate(fskit::FSDeactivateOptions, fskit::ErrorReply reply) {
    logger().info({"deactivate"});
    shutDown();
    reply(std::nullopt);
}

void KemviVolume::unmount(fskit::Reply<> reply) {
    logger().info({"unmount"});
    shutDown();
    reply();
}

// Runs once for unmount and once for deactivate; the client bears a second stop.
void KemviVolume::shutDown() {
    releaseAllHandles();
    if (client_)
        client_->stop();
}

} // namespace kemvi
