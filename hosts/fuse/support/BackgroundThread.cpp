#include "hosts/fuse/support/BackgroundThread.h"

#include <csignal>
#include <utility>

namespace fusehost {
namespace {

/// Blocks all signals of the calling thread; threads that it starts inherit that.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }

    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_{};
};

} // namespace

std::thread startBackgroundThread(std::function<void()> work) {
    const BlockedSignals blocked;
    return std::thread(std::move(work));
}

} // namespace fusehost
