#include "cli/MountWatch.h"

#include "cli/CommandError.h"
#include "cli/Signals.h"
#include "foundation/Log.h"
#include "hosts/fuse/mounting/Unmounting.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cli {

namespace {

// What is told: one message each, the number behind the word. A helper's comes with a descriptor of the process.
constexpr std::string_view helperWord = "helper ";
constexpr std::string_view guardedWord = "guarded"; // all helpers have been told
constexpr std::string_view mountedWord = "mounted ";
constexpr std::string_view releasedWord = "released";

// Milliseconds.
constexpr int firstLook = 20;
constexpr int longestBetweenLooks = 1000;
/// A helper whose input ended may have something to finish; one that is still there then hangs.
constexpr int helperAlone = 5000;
constexpr int helperAfterTermination = 2000;

/// All that fusermount3 needs to be found.
std::map<std::string, std::string> watchEnvironment() {
    const char* path = std::getenv("PATH");
    return {{"PATH", path != nullptr ? path : "/usr/bin:/bin"}};
}

/// Room for one descriptor beside a message.
union Passed {
    cmsghdr header;
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

struct Message {
    std::string text;    // empty at the end
    int descriptor = -1; // the receiver's to close
};

Message receive(int channel) {
    std::array<char, 64> text{};
    Passed passed{};
    iovec part{text.data(), text.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = passed.bytes.data();
    message.msg_controllen = passed.bytes.size();
    ssize_t count = 0;
    do {
        count = ::recvmsg(channel, &message, MSG_CMSG_CLOEXEC);
    } while (count < 0 && errno == EINTR);
    Message received{std::string(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0)};
    const cmsghdr* header = count > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS)
        std::memcpy(&received.descriptor, CMSG_DATA(header), sizeof received.descriptor);
    return received;
}

template <typename Number>
Number numberBehind(std::string_view word, const std::string& text) {
    Number number{};
    std::from_chars(text.data() + word.size(), text.data() + text.size(), number);
    return number;
}

/// The process that made the channel. Not the parent, which may be somebody else by now.
pid_t otherEndsProcess() {
    ucred peer{};
    socklen_t length = sizeof peer;
    return ::getsockopt(STDIN_FILENO, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 ? peer.pid : -1;
}

/// The watching process: what it was told so far, and what it does when nothing more comes.
class Watch {
public:
    explicit Watch(const std::string& mountPoint) : mountPoint_(mountPoint), host_(otherEndsProcess()) {}

    void run() {
        for (int wait = firstLook;; wait = std::min(2 * wait, longestBetweenLooks)) {
            pollfd channel{STDIN_FILENO, POLLIN, 0};
            if (::poll(&channel, 1, guarded_ ? -1 : wait) == 0)
                look();
            else if (!obey(receive(STDIN_FILENO)))
                break;
        }
        clearUp();
    }

private:
    /// False at the end.
    bool obey(const Message& message) {
        if (message.text.starts_with(mountedWord)) {
            mounted_ = numberBehind<unsigned>(mountedWord, message.text);
        } else if (message.text == releasedWord) {
            mounted_.reset();
        } else if (message.text.starts_with(helperWord)) {
            told_.emplace_back(numberBehind<pid_t>(helperWord, message.text), message.descriptor);
        } else if (message.text == guardedWord) {
            helpers_ = std::move(told_);
            told_.clear();
            guarded_ = true;
        }
        return !message.text.empty();
    }

    /// Which process the helper is comes only when it has answered, which one that hangs never does.
    void look() {
        auto found = handlesOfChildren(childrenOf(host_).helpers, host_);
        // Looked at last: while the host lives, its number is its own.
        if (::getppid() == host_)
            helpers_ = std::move(found);
    }

    void clearUp() {
        if (mounted_)
            fusehost::unmountStaleDevice(*mounted_, mountPoint_);
        if (!endProcesses(helpers_, helperAlone, helperAfterTermination)) {
            foundation::Log::setSink(foundation::makeSystemLogSink("kemvi"));
            foundation::Logger("kemvi", "Watch")
                .error({"the process that served ", foundation::logPrivate(mountPoint_),
                        " died; its helper did not end by itself and was ended"});
        }
    }

    const std::string& mountPoint_;
    const pid_t host_;
    std::optional<unsigned> mounted_;
    std::vector<ProcessHandle> helpers_;
    std::vector<ProcessHandle> told_; // of a list that is not complete yet
    bool guarded_ = false;
};

} // namespace

MountWatch::MountWatch(const std::string& mountPoint) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw CommandError(ExitCode::failure, mountPoint, "cannot be watched over: " + errnoText(errno));
    channel_ = ends[0];
    try {
        process_.launch({"/proc/self/exe", {argument, mountPoint}, watchEnvironment(), ends[1], STDERR_FILENO});
    } catch (...) {
        ::close(ends[0]);
        ::close(ends[1]);
        throw;
    }
    ::close(ends[1]);
}

MountWatch::~MountWatch() {
    release();
    ::close(channel_);
    process_.waitUntilExit();
}

void MountWatch::guard(const std::vector<ProcessHandle>& helpers) {
    for (const auto& helper : helpers)
        send(std::string(helperWord) + std::to_string(helper.pid()), helper.descriptor());
    send(guardedWord);
}

void MountWatch::begin(unsigned deviceMinor) {
    send(std::string(mountedWord) + std::to_string(deviceMinor));
}

void MountWatch::release() {
    send(releasedWord);
}

void MountWatch::send(std::string_view text, int descriptor) const {
    iovec part{const_cast<char*>(text.data()), text.size()};
    Passed passed{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
        message.msg_control = passed.bytes.data();
        message.msg_controllen = passed.bytes.size();
        passed.header.cmsg_level = SOL_SOCKET;
        passed.header.cmsg_type = SCM_RIGHTS;
        passed.header.cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(&passed.header), &descriptor, sizeof descriptor);
    }
    // A watch that is gone is no reason to end the mount.
    while (::sendmsg(channel_, &message, MSG_NOSIGNAL) < 0 && errno == EINTR) {
    }
}

bool isCalledToWatch(int argc, char** argv) {
    return argc == 3 && std::string_view(argv[1]) == MountWatch::argument;
}

int runMountWatch(const std::string& mountPoint) {
    ::prctl(PR_SET_NAME, MountWatch::processName);
    blockStopSignals();
    Watch(mountPoint).run();
    return EXIT_SUCCESS;
}

} // namespace cli
