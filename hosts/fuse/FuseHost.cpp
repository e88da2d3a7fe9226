#include "hosts/fuse/FuseHost.h"

#include "foundation/Error.h"
#include "hosts/fuse/Await.h"
#include "hosts/fuse/FileTree.h"
#include "hosts/fuse/HostLog.h"
#include "hosts/fuse/KernelErrno.h"
#include "hosts/fuse/KernelOperations.h"
#include "hosts/fuse/KernelSession.h"
#include "hosts/fuse/SessionLoop.h"
#include "hosts/fuse/VolumeCalls.h"

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <unistd.h>

namespace fusehost {

using OptionalError = std::optional<foundation::NSError>;

class FuseHost::Implementation {
public:
    Implementation(std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem, std::string source, std::string mountPoint,
                   MountOptions options)
        : fileSystem_(std::move(fileSystem)), source_(std::move(source)), mountPoint_(std::move(mountPoint)),
          options_(std::move(options)), stopDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (stopDescriptor_ < 0)
            throw MountError(std::string("cannot make an event descriptor: ") + std::strerror(errno));
    }

    ~Implementation() {
        session_.reset();
        close(stopDescriptor_);
    }

    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    void load();
    void mount();
    bool serve();

    std::optional<unsigned> deviceMinor() const { return session_ ? session_->deviceMinor() : std::nullopt; }

    void requestStop() noexcept;
    void shutdown();

private:
    std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem_;
    std::string source_;
    std::string mountPoint_;
    MountOptions options_;
    int stopDescriptor_;
    std::shared_ptr<fskit::FSResource> resource_;
    std::unique_ptr<VolumeCalls> volume_;
    std::unique_ptr<FileTree> tree_;
    std::unique_ptr<KernelContext> context_;
    std::unique_ptr<KernelSession> session_;
};

void FuseHost::Implementation::load() {
    resource_ =
        std::make_shared<fskit::FSPathURLResource>(std::make_shared<foundation::URL>(source_), !options_.readOnly);
    auto [volume, error] = await<std::shared_ptr<fskit::FSVolume>, OptionalError>(
        [&](auto reply) { fileSystem_->loadResource(resource_, fskit::FSTaskOptions(), std::move(reply)); });
    if (error)
        throw foundation::NSErrorException(*error);
    volume_ = std::make_unique<VolumeCalls>(std::move(volume));
    tree_ = std::make_unique<FileTree>(*volume_, options_);
    tree_->begin();
}

void FuseHost::Implementation::mount() {
    context_ = std::make_unique<KernelContext>(KernelContext{*tree_, options_, {}});
    session_ = std::make_unique<KernelSession>(*context_, source_, options_);
    session_->mount(mountPoint_);
}

bool FuseHost::Implementation::serve() {
    bool ended = false;
    {
        const SystemCallers callers;
        SessionLoop loop(session_->get(), session_->descriptor(), callers, tree_.get());
        ended = loop.run(stopDescriptor_);
    }
    session_->unmount();
    return ended;
}

void FuseHost::Implementation::requestStop() noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stopDescriptor_, &one, sizeof one);
}

void FuseHost::Implementation::shutdown() {
    if (session_)
        session_->unmount();
    if (!volume_)
        return;
    tree_->end();
    try {
        volume_->end();
    } catch (const KernelError& error) {
        hostLog().error({"ending the volume: ", foundation::logPublic(error.what())});
    }
    await<OptionalError>(
        [&](auto reply) { fileSystem_->unloadResource(resource_, fskit::FSTaskOptions(), std::move(reply)); });
}

FuseHost::FuseHost(std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem, std::string source, std::string mountPoint,
                   MountOptions options)
    : implementation_(std::make_unique<Implementation>(std::move(fileSystem), std::move(source), std::move(mountPoint),
                                                       std::move(options))) {}

FuseHost::~FuseHost() = default;

void FuseHost::load() {
    implementation_->load();
}

void FuseHost::mount() {
    implementation_->mount();
}

std::optional<unsigned> FuseHost::deviceMinor() const {
    return implementation_->deviceMinor();
}

bool FuseHost::serve() {
    return implementation_->serve();
}

void FuseHost::requestStop() noexcept {
    implementation_->requestStop();
}

void FuseHost::shutdown() {
    implementation_->shutdown();
}

} // namespace fusehost
