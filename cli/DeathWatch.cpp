#include "cli/DeathWatch.h"

#include "cli/CommandError.h"
#include "cli/Signals.h"
#include "foundation/Log.h"
#include "hosts/fuse/mounting/Unmounting.h"
#include "hosts/fuse/placement/Aftermath.h"
#include "hosts/fuse/placement/LinuxTasks.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace cli {

namespace {

using foundation::Descriptor;
using std::chrono::milliseconds;

// What is told: one message each, the number behind the word. A helper's comes with a descriptor of the process.
constexpr std::string_view helperWord = "helper ";
constexpr std::string_view placingWord = "placing ";
constexpr std::string_view mountedWord = "mounted ";
constexpr std::string_view releasedWord = "released";

// Behind the argument that calls for a watch: the patience in milliseconds, and the mount point, which may be empty.
enum Argument { program, call, alone, afterTermination, mountPoint, count };

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
    std::string text; // empty at the end
    Descriptor descriptor;
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
    ssize_t length = 0;
    do {
        length = ::recvmsg(channel, &message, MSG_CMSG_CLOEXEC);
    } while (length < 0 && errno == EINTR);
    int descriptor = -1;
    const cmsghdr* header = length > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS)
        std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    return {{text.data(), length > 0 ? static_cast<std::size_t>(length) : 0}, Descriptor(descriptor)};
}

template <typename Number>
Number numberIn(std::string_view text) {
    Number number{};
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

milliseconds durationIn(std::string_view text) {
    return milliseconds(numberIn<milliseconds::rep>(text));
}

/// The watching process: what it was told so far, and what it does when nothing more comes.
class Watch {
public:
    Watch(Patience patience, std::string mountPoint) : patience_(patience), mountPoint_(std::move(mountPoint)) {}

    void run() {
        while (obey(receive(STDIN_FILENO))) {
        }
        clearUp();
    }

private:
    /// False at the end.
    bool obey(Message message) {
        const std::string_view text = message.text;
        if (text.starts_with(mountedWord))
            mounted_ = numberIn<unsigned>(text.substr(mountedWord.size()));
        else if (text == releasedWord)
            mounted_.reset();
        else if (text.starts_with(placingWord))
            placed_ = numberIn<int>(text.substr(placingWord.size()));
        else if (text.starts_with(helperWord))
            guard({numberIn<pid_t>(text.substr(helperWord.size())), std::move(message.descriptor)});
        return !text.empty();
    }

    void guard(HeldProcess helper) {
        std::erase_if(helpers_, [](const HeldProcess& earlier) { return earlier.gone(); });
        helpers_.push_back(std::move(helper));
    }

    void clearUp() {
        giveProcessorsBack();
        if (mounted_)
            fusehost::unmountStaleDevice(*mounted_, mountPoint_);
        if (endProcesses(helpers_, patience_) || mountPoint_.empty())
            return;
        foundation::Log::setSink(foundation::makeSystemLogSink("kemvi"));
        foundation::Logger("kemvi", "Watch")
            .error({"the process that served ", foundation::logPrivate(mountPoint_),
                    " died; its helper did not end by itself and was ended"});
    }

    // First: what a helper starts at its end is to have all processors.
    void giveProcessorsBack() const {
        fusehost::LinuxTasks tasks;
        for (const HeldProcess& helper : helpers_)
            if (placed_ && !helper.gone())
                fusehost::giveBackAfterDeath(tasks, helper.pid(), *placed_);
    }

    const Patience patience_;
    const std::string mountPoint_; // empty where there is none
    std::optional<unsigned> mounted_;
    std::optional<int> placed_; // the processor on which a helper was placed last
    std::vector<HeldProcess> helpers_;
};

} // namespace

DeathWatch::DeathWatch(Patience patience) : DeathWatch(patience, {}) {}

DeathWatch::DeathWatch(Patience patience, const std::string& mountPoint) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw CommandError(ExitCode::failure, mountPoint.empty() ? "the helper" : mountPoint,
                           "cannot be watched over: " + errnoText(errno));
    }
    channel_ = Descriptor(ends[0]);
    const Descriptor itsEnd(ends[1]);
    process_.launch({"/proc/self/exe",
                     {std::string(argument), std::to_string(patience.alone.count()),
                      std::to_string(patience.afterTermination.count()), mountPoint},
                     watchEnvironment(),
                     itsEnd.number(),
                     STDERR_FILENO});
}

DeathWatch::~DeathWatch() {
    release();
    channel_.reset();
    process_.waitUntilExit();
}

void DeathWatch::guard(const HeldProcess& helper) {
    send(std::string(helperWord) + std::to_string(helper.pid()), helper.descriptor());
}

void DeathWatch::placing(int processor) {
    if (lastPlaced_.exchange(processor) != processor)
        send(std::string(placingWord) + std::to_string(processor));
}

void DeathWatch::begin(unsigned deviceMinor) {
    send(std::string(mountedWord) + std::to_string(deviceMinor));
}

void DeathWatch::release() {
    send(std::string(releasedWord));
}

void DeathWatch::send(const std::string& text) const {
    send(text, -1);
}

void DeathWatch::send(const std::string& text, int descriptor) const {
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
    while (::sendmsg(channel_.number(), &message, MSG_NOSIGNAL) < 0 && errno == EINTR) {
    }
}

bool isCalledToWatch(int argc, char** argv) {
    return argc == Argument::count && argv[Argument::call] == DeathWatch::argument;
}

int runDeathWatch(char** argv) {
    ::prctl(PR_SET_NAME, DeathWatch::processName);
    blockStopSignals();
    const Patience patience{durationIn(argv[Argument::alone]), durationIn(argv[Argument::afterTermination])};
    Watch(patience, argv[Argument::mountPoint]).run();
    return EXIT_SUCCESS;
}

} // namespace cli
