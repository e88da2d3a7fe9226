#pragma once

#include "hosts/fuse/support/EventDescriptor.h"
#include "hosts/fuse/tree/ToForget.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace fusehost {

/// Tells the kernel what to forget. That may wait for requests that the kernel has under way, and for changed pages,
/// which it first has written: so it is done by a thread of its own, which starts when it is first needed, holds no
/// lock meanwhile and executes no request.
///
/// A name is looked up anew when it is next used; until then whatever is open, mounted or somebody's working folder
/// beneath it stays where it is. (Kernels before 6.2 drop such a name at once, and with it what is mounted beneath.)
class CacheNotifier {
public:
    struct Options {
        /// The kernel goes by its own idea of a file's size and time for as long as it knows the file (its writeback
        /// cache): names of files are to be dropped, so that it forgets files that nobody has open.
        bool dropFiles = false;
    };

    /// `descriptor` is the session's connection.
    CacheNotifier(int descriptor, Options options);
    /// Waits for the notice under way: see `finish`.
    ~CacheNotifier();
    CacheNotifier(const CacheNotifier&) = delete;
    CacheNotifier& operator=(const CacheNotifier&) = delete;

    /// Tells the kernel. `onTold` is called when it has forgotten all of it, on the notifier's thread; it is destroyed
    /// uncalled if the end comes first. Throws std::system_error if the process can have no more threads.
    void tell(ToForget toForget, std::function<void()> onTold);

    /// For the end: takes nothing more and drops what waits. Requests must be served, or the connection be broken,
    /// until `finished` is readable, since the notice under way may wait for one of them.
    void finish() noexcept;

    /// Becomes readable after `finish` when no notice is under way any more.
    int finished() const { return finished_.number(); }

private:
    using Guard = std::unique_lock<std::mutex>;

    struct Notices {
        ToForget toForget;
        std::function<void()> onTold;
    };

    void work();
    /// False if the end came before all was told.
    bool send(const ToForget& toForget);
    void sendName(const ToForget::Name& name) const;
    void sendNode(NodeID node, std::int64_t offset) const;
    bool isEnding();

    const int descriptor_;
    const Options options_;
    EventDescriptor finished_;
    std::mutex lock_; // guards what follows; not held while anything is sent
    std::condition_variable changed_;
    std::deque<Notices> waiting_;
    bool ending_ = false;
    std::thread thread_;
};

} // namespace fusehost
