#include "extension/KemviUnaryFileSystem.h"

#include "extension/KemviMountConfig.h"
#include "extension/ScopedAccess.h"
#include "foundation/Error.h"
#include "foundation/FileContents.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"
#include "helper/HelperClient.h"
#include "volume/KemviVolume.h"

#include <system_error>
#include <thread>

namespace kemvi {
namespace {

constexpr const char* shownName = "Kemvi";
constexpr const char* configFileName = "mount-config.json";

const foundation::Logger& logger() {
    // Never destroyed: an unload may still be completing while the process ends.
    static const auto* const instance = new foundation::Logger(foundation::bundleIdentifier, "FileSystem");
    return *instance;
}

std::string appendingComponent(const std::string& directory, const char* name) {
    const bool separated = !directory.empty() && directory.back() == '/';
    return directory + (separated ? "" : "/") + name;
}

foundation::NSError posixError(std::int32_t code, std::string message) {
    return foundation::NSError::posix(code, std::move(message));
}

std::shared_ptr<KemviVolume> makeVolume(const foundation::URL& sourceDirectory, HelperObserver* observer,
                                        ExchangeObserver* exchanges) {
    const std::string bytes = foundation::contentsOfFile(appendingComponent(sourceDirectory.path(), configFileName));
    const KemviMountConfig config = KemviMountConfig::decode(bytes);
    logger().info({"loaded mount config driveId=", foundation::logPublic(config.driveId),
                   " helperPath=", foundation::logPublic(config.helperPath)});
    auto client = std::make_shared<HelperClient>(config.helperPath, config.helperEnvironment(), observer, exchanges);
    client->start();
    client->ping();
    logger().info({"helper started and ping succeeded"});
    return std::make_shared<KemviVolume>(fskit::FSVolumeIdentifier(foundation::UUID::random()),
                                         fskit::FSFileName(shownName), std::move(client));
}

} // namespace

KemviUnaryFileSystem::KemviUnaryFileSystem() : KemviUnaryFileSystem(nullptr, nullptr) {}

KemviUnaryFileSystem::KemviUnaryFileSystem(HelperObserver& observer, ExchangeObserver* exchanges)
    : KemviUnaryFileSystem(&observer, exchanges) {}

KemviUnaryFileSystem::KemviUnaryFileSystem(HelperObserver* observer, ExchangeObserver* exchanges)
    : containerID_(foundation::UUID::random()), observer_(observer), exchanges_(exchanges) {}

void KemviUnaryFileSystem::probeResource(const std::shared_ptr<fskit::FSResource>& resource, fskit::ProbeReply reply) {
    logger().info({"probeResource: ", foundation::logPrivate(resource->description())});
    reply(fskit::FSProbeResult::usable(shownName, containerID_), std::nullopt);
}

void KemviUnaryFileSystem::loadResource(const std::shared_ptr<fskit::FSResource>& resource, const fskit::FSTaskOptions&,
                                        fskit::VolumeReply reply) {
    logger().info({"loadResource: ", foundation::logPrivate(resource->description())});
    const auto* directory = dynamic_cast<const fskit::FSPathURLResource*>(resource.get());
    if (!directory) {
        reply(nullptr,
              posixError(foundation::posixErrno::EINVAL_, "KemviFS requires an FSPathURLResource source directory"));
        return;
    }
    const ScopedAccess access(directory->url()); // ends last of all, after the reply
    std::shared_ptr<fskit::FSVolume> volume;
    auto error = fskit::caughtError([&] { volume = makeVolume(directory->url(), observer_, exchanges_); });
    if (error)
        logger().error({"loadResource failed: ", foundation::logPublic(error->description())});
    reply(std::move(volume), std::move(error));
}

void KemviUnaryFileSystem::unloadResource(const std::shared_ptr<fskit::FSResource>&, const fskit::FSTaskOptions&,
                                          fskit::ErrorReply reply) {
    try {
        std::thread([reply = std::move(reply)]() mutable {
            logger().info({"unloadResource"});
            reply(std::nullopt);
        }).detach();
    } catch (const std::system_error&) {
        // No thread to be had. The handler went down with the task and has answered EIO.
    }
}

} // namespace kemvi
