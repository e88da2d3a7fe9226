#include "hosts/fuse/FuseHost.h"

#include "foundation/Error.h"
#include "hosts/fuse/calls/Await.h"
#include "hosts/fuse/kernel/Callers.h"
#include "hosts/fuse/support/EventDescriptor.h"
#include "hosts/fuse/tree/FileTree.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/kernel/CacheNotifier.h"
#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/kernel/KernelSession.h"
#include "hosts/fuse/kernel/PageWriter.h"
#include "hosts/fuse/kernel/RequestReports.h"
#include "hosts/fuse/kernel/SessionLoop.h"
#include "hosts/fuse/placement/Placement.h"

#include <mutex>
#include <poll.h>
#include <vector>

namespace fusehost {

using OptionalError = std::optional<foundation::NSError>;

class FuseHost::Implementation {
public:
    Implementation(std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem, std::string source, std::string mountPoint,
                   MountOptions options, StateExplanation explain, const Companion* companion, Supervision* supervision)
        : fileSystem_(std::move(fileSystem)), source_(std::move(source)), mountPoint_(std::move(mountPoint)),
          options_(std::move(options)), explain_(std::move(explain)), companion_(companion), supervision_(supervision) {
    }

    ~Implementation() { session_.reset(); }

    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    void load();
    void mount();
    bool serve(const std::function<void()>& onWriting);
    bool isMounted() noexcept;

    std::optional<unsigned> deviceMinor() const { return session_ ? session_->deviceMinor() : std::nullopt; }

    void requestStop() noexcept { stop_.signal(); }

    void refuseRequests() noexcept;
    void invalidate(std::vector<std::string> paths, WhenInvalidated whenDone);

    void restart(KernelCaches caches) noexcept {
        if (renewal_)
            renewal_->ask(caches);
    }

    void lookAtVolume() noexcept {
        if (renewal_)
            renewal_->look();
    }

    void shutdown();

    Monitor& monitor() noexcept { return monitor_; }

private:
    class LoopInUse;
    class Invalidation;

    std::shared_ptr<fskit::FSVolume> loadVolume() const;
    void unload() const;
    void superviseVolume();
    EndTest endTest();

    std::unique_ptr<Placement> makePlacement() const;
    bool isStopRequested() const;
    bool writePages(SessionLoop& loop, const std::function<void()>& onWriting);

    std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem_;
    std::string source_;
    std::string mountPoint_;
    MountOptions options_;
    StateExplanation explain_;
    const Companion* companion_;
    Supervision* const supervision_;
    EventDescriptor stop_;
    EventDescriptor refusal_; // readable when nothing more is to be asked
    Monitor monitor_;
    std::shared_ptr<fskit::FSResource> resource_;
    std::unique_ptr<VolumeCalls> volume_;
    std::unique_ptr<FileTree> tree_;
    std::unique_ptr<VolumeRenewal> renewal_; // null without supervision; from the load on as long as this lives
    std::unique_ptr<KernelContext> context_;
    std::unique_ptr<KernelSession> session_;

    std::mutex lock_; // guards what follows
    SessionLoop* loop_ = nullptr;
    CacheNotifier* notifier_ = nullptr; // for as long as there is a loop
    bool refuses_ = false;
};

/// Lets other threads reach a loop for as long as it runs.
class FuseHost::Implementation::LoopInUse {
public:
    LoopInUse(Implementation& host, SessionLoop& loop, CacheNotifier& notifier) : host_(host) {
        const std::lock_guard guard(host_.lock_);
        host_.loop_ = &loop;
        host_.notifier_ = &notifier;
        if (host_.refuses_)
            loop.refuse();
        if (host_.renewal_)
            host_.renewal_->use(&loop, host_.session_->descriptor());
    }

    ~LoopInUse() {
        if (host_.renewal_)
            host_.renewal_->use(nullptr, -1);
        const std::lock_guard guard(host_.lock_);
        host_.loop_ = nullptr;
        host_.notifier_ = nullptr;
    }

    LoopInUse(const LoopInUse&) = delete;
    LoopInUse& operator=(const LoopInUse&) = delete;

private:
    Implementation& host_;
};

/// One that is asked for, until its answer is given. Where nobody gives it, as at the end of a mount, its own end does.
class FuseHost::Implementation::Invalidation {
public:
    Invalidation(std::vector<std::string> itsPaths, WhenInvalidated whenDone)
        : paths(std::move(itsPaths)), whenDone_(std::move(whenDone)) {}

    ~Invalidation() { answer(std::nullopt); }

    Invalidation(const Invalidation&) = delete;
    Invalidation& operator=(const Invalidation&) = delete;

    void answer(std::optional<std::size_t> told) noexcept {
        if (const WhenInvalidated whenDone = std::exchange(whenDone_, {}))
            quietly("answering an invalidation", [&] { whenDone(told); });
    }

    const std::vector<std::string> paths;

private:
    WhenInvalidated whenDone_;
};

void FuseHost::Implementation::load() {
    resource_ =
        std::make_shared<fskit::FSPathURLResource>(std::make_shared<foundation::URL>(source_), !options_.readOnly);
    volume_ = std::make_unique<VolumeCalls>(loadVolume(), explain_, endTest());
    tree_ = std::make_unique<FileTree>(*volume_, options_);
    tree_->begin();
    if (supervision_ != nullptr)
        superviseVolume();
}

std::shared_ptr<fskit::FSVolume> FuseHost::Implementation::loadVolume() const {
    auto [volume, error] = await<std::shared_ptr<fskit::FSVolume>, OptionalError>(
        [&](auto reply) { fileSystem_->loadResource(resource_, fskit::FSTaskOptions(), std::move(reply)); });
    if (error)
        throw foundation::NSErrorException(*error);
    return std::move(volume);
}

void FuseHost::Implementation::unload() const {
    await<OptionalError>(
        [&](auto reply) { fileSystem_->unloadResource(resource_, fskit::FSTaskOptions(), std::move(reply)); });
}

void FuseHost::Implementation::superviseVolume() {
    const VolumeRenewal::Source source{[this] { return loadVolume(); }, [this] { unload(); },
                                       [this] { invalidate({"/"}, [](std::optional<std::size_t>) {}); }};
    renewal_ = std::make_unique<VolumeRenewal>(*volume_, *tree_, source, *supervision_, options_, stop_);
}

/// Where a volume's end is the end, it is told as any other failure that lasts. Where operations are to fail from then
/// on, the embedding program hears of it all the same, and nothing else comes of it.
EndTest FuseHost::Implementation::endTest() {
    if (supervision_ == nullptr)
        return {};
    return [this](const foundation::ErrorOrigin& origin) {
        const bool isEnd = supervision_->isEnd(origin) && options_.onDeath != OnDeath::fail;
        if (isEnd)
            lookAtVolume(); // nobody may ask for anything for long
        return isEnd;
    };
}

void FuseHost::Implementation::mount() {
    context_ = std::make_unique<KernelContext>(KernelContext{*tree_, options_, {}, {}, renewal_.get()});
    session_ = std::make_unique<KernelSession>(*context_, source_, options_);
    context_->session = session_->get();
    session_->mount(mountPoint_);
}

bool FuseHost::Implementation::serve(const std::function<void()>& onWriting) {
    bool ended = false;
    {
        const SystemCallers callers;
        const auto placement = makePlacement();
        CacheNotifier notifier(session_->descriptor(), {.dropFiles = options_.writeback});
        RequestReports reports(*context_, monitor_);
        SessionLoop loop(session_->get(), session_->descriptor(), callers, tree_.get(),
                         placement ? &placement->pace() : nullptr);
        loop.reportTo(reports);
        const LoopInUse inUse(*this, loop, notifier);
        ended = loop.run(stop_.number());
        if (ended && isStopRequested())
            ended = writePages(loop, onWriting);
        notifier.finish();
        if (ended)
            ended = loop.run(notifier.finished());
    }
    session_->unmount();
    return ended;
}

// The connection is closed only when there is no loop any more.
bool FuseHost::Implementation::isMounted() noexcept {
    const std::lock_guard guard(lock_);
    return loop_ != nullptr && !session_->isSevered();
}

/// Nothing where it is not wanted or cannot be had; the mount works without.
std::unique_ptr<Placement> FuseHost::Implementation::makePlacement() const {
    std::unique_ptr<Placement> placement;
    if (companion_ != nullptr && options_.placement && Placement::isPossible())
        quietly("beginning to place threads", [&] { placement = std::make_unique<Placement>(*companion_); });
    return placement;
}

bool FuseHost::Implementation::isStopRequested() const {
    pollfd stop{stop_.number(), POLLIN, 0};
    return poll(&stop, 1, 0) == 1;
}

// Not begun while an operation hangs, since it cannot be broken off: it ends when everything is written or refused.
bool FuseHost::Implementation::writePages(SessionLoop& loop, const std::function<void()>& onWriting) {
    const std::vector<NodeID> nodes = tree_->writtenNodes();
    if (nodes.empty())
        return true;
    onWriting();
    std::optional<PageWriter> writer;
    if (renewal_)
        renewal_->beginLastWriting(refusal_);
    quietly("writing what programs have changed", [&] { writer.emplace(session_->get(), nodes); });
    const bool ended = writer ? loop.run(writer->descriptor()) : true;
    if (renewal_)
        renewal_->endLastWriting();
    return ended;
}

void FuseHost::Implementation::refuseRequests() noexcept {
    refusal_.signal();
    const std::lock_guard guard(lock_);
    refuses_ = true;
    if (loop_ != nullptr)
        loop_->refuse();
}

// The executing thread says what is to be forgotten, since the tree is its own; the notifier, which it does not wait
// for, has it forgotten.
void FuseHost::Implementation::invalidate(std::vector<std::string> paths, WhenInvalidated whenDone) {
    const auto invalidation = std::make_shared<Invalidation>(std::move(paths), std::move(whenDone));
    const std::lock_guard guard(lock_);
    if (loop_ == nullptr)
        return;
    loop_->hand([this, &notifier = *notifier_, invalidation] {
        ToForget toForget = tree_->noteOutsideChanges(invalidation->paths);
        const std::size_t count = toForget.names.size() + toForget.nodes.size();
        notifier.tell(std::move(toForget), [invalidation, count] { invalidation->answer(count); });
    });
}

void FuseHost::Implementation::shutdown() {
    if (session_)
        session_->unmount();
    if (!volume_)
        return;
    tree_->end();
    quietly("ending the volume", [&] { volume_->end(); });
    quietly("unloading the file system", [&] { unload(); });
    if (renewal_)
        renewal_->finish();
}

FuseHost::FuseHost(std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem, std::string source, std::string mountPoint,
                   MountOptions options, StateExplanation explain, const Companion* companion, Supervision* supervision)
    : implementation_(std::make_unique<Implementation>(std::move(fileSystem), std::move(source), std::move(mountPoint),
                                                       std::move(options), std::move(explain), companion,
                                                       supervision)) {}

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

bool FuseHost::serve(const std::function<void()>& onWriting) {
    return implementation_->serve(onWriting);
}

bool FuseHost::isMounted() noexcept {
    return implementation_->isMounted();
}

void FuseHost::requestStop() noexcept {
    implementation_->requestStop();
}

void FuseHost::refuseRequests() noexcept {
    implementation_->refuseRequests();
}

void FuseHost::invalidate(std::vector<std::string> paths, WhenInvalidated whenDone) {
    implementation_->invalidate(std::move(paths), std::move(whenDone));
}

Monitor& FuseHost::monitor() noexcept {
    return implementation_->monitor();
}

void FuseHost::restart(KernelCaches caches) noexcept {
    implementation_->restart(caches);
}

void FuseHost::lookAtVolume() noexcept {
    implementation_->lookAtVolume();
}

void FuseHost::shutdown() {
    implementation_->shutdown();
}

} // namespace fusehost
