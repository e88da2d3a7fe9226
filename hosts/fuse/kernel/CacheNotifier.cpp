#include "hosts/fuse/kernel/CacheNotifier.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/support/BackgroundThread.h"

#include <algorithm>
#include <array>
#include <linux/fuse.h>
#include <sys/uio.h>
#include <utility>

namespace fusehost {
namespace {

constexpr std::int64_t attributesAlone = -1;
constexpr std::int64_t fromTheBeginning = 0;

template <typename Structure>
iovec partOf(Structure& structure) {
    return {&structure, sizeof structure};
}

// Notices that concern nothing the kernel knows are refused, which is as good; so are all once it has unmounted.
template <std::size_t count>
void sendNotice(int descriptor, fuse_notify_code code, std::array<iovec, count> parts) {
    fuse_out_header header{};
    header.error = code;
    parts[0] = partOf(header);
    for (const iovec& part : parts)
        header.len += static_cast<std::uint32_t>(part.iov_len);
    [[maybe_unused]] const ssize_t written = writev(descriptor, parts.data(), count);
}

} // namespace

CacheNotifier::CacheNotifier(int descriptor, Options options) : descriptor_(descriptor), options_(options) {}

CacheNotifier::~CacheNotifier() {
    finish();
    if (thread_.joinable())
        thread_.join();
}

void CacheNotifier::tell(ToForget toForget, std::function<void()> onTold) {
    const std::lock_guard guard(lock_);
    if (ending_)
        return;
    if (!thread_.joinable())
        thread_ = startBackgroundThread([this] { work(); });
    waiting_.push_back({std::move(toForget), std::move(onTold)});
    changed_.notify_all();
}

void CacheNotifier::finish() noexcept {
    std::deque<Notices> dropped;
    const std::lock_guard guard(lock_);
    ending_ = true;
    waiting_.swap(dropped);
    changed_.notify_all();
    if (!thread_.joinable())
        finished_.signal();
}

void CacheNotifier::work() {
    Guard guard(lock_);
    while (true) {
        changed_.wait(guard, [&] { return ending_ || !waiting_.empty(); });
        if (ending_)
            break;
        Notices notices = std::move(waiting_.front());
        waiting_.pop_front();
        guard.unlock();
        if (send(notices.toForget))
            quietly("telling that the kernel has forgotten", notices.onTold);
        notices = {};
        guard.lock();
    }
    finished_.signal();
}

bool CacheNotifier::isEnding() {
    const std::lock_guard guard(lock_);
    return ending_;
}

bool CacheNotifier::send(const ToForget& toForget) {
    const auto sendEach = [&](const auto& all, const auto& sendOne) {
        return std::all_of(all.begin(), all.end(), [&](const auto& one) {
            if (isEnding())
                return false;
            sendOne(one);
            return true;
        });
    };
    return sendEach(toForget.names, [&](const ToForget::Name& name) { sendName(name); }) &&
           sendEach(toForget.nodes, [&](NodeID node) { sendNode(node, fromTheBeginning); }) &&
           sendEach(toForget.directories, [&](NodeID directory) { sendNode(directory, attributesAlone); });
}

void CacheNotifier::sendName(const ToForget::Name& name) const {
    fuse_notify_inval_entry_out notice{};
    notice.parent = name.directory;
    notice.namelen = static_cast<std::uint32_t>(name.name.size());
    notice.flags = options_.dropFiles && name.isFile ? 0 : FUSE_EXPIRE_ONLY;
    std::string text = name.name;
    sendNotice(descriptor_, FUSE_NOTIFY_INVAL_ENTRY,
               std::array{iovec{}, partOf(notice), iovec{text.data(), text.size() + 1}});
}

/// Of its contents everything from `offset` on, which the kernel has written first where programs have changed it.
void CacheNotifier::sendNode(NodeID node, std::int64_t offset) const {
    fuse_notify_inval_inode_out notice{};
    notice.ino = node;
    notice.off = offset;
    sendNotice(descriptor_, FUSE_NOTIFY_INVAL_INODE, std::array{iovec{}, partOf(notice)});
}

} // namespace fusehost
