#include "hosts/fuse/kernel/KernelSession.h"

#include "foundation/Error.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/kernel/KernelOperations.h"
#include "hosts/fuse/kernel/LibFuse.h"
#include "hosts/fuse/mounting/MountError.h"
#include "hosts/fuse/mounting/MountReason.h"
#include "hosts/fuse/mounting/MountTable.h"
#include "hosts/fuse/mounting/Unmounting.h"
#include "hosts/fuse/support/HostLog.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fusehost {
namespace {

/// What libfuse said last, which is the reason of a failed mount. It reports through one function per process, which
/// knows neither session nor caller, so there is one of these per process. Any thread.
class LastMessage {
public:
    static LastMessage& ofLibFuse() {
        static auto* const kept = new LastMessage; // threads of libfuse may outlive every static object
        return *kept;
    }

    void keep(std::string text) {
        const std::lock_guard guard(lock_);
        text_ = std::move(text);
    }

    std::string text() const {
        const std::lock_guard guard(lock_);
        return text_;
    }

private:
    mutable std::mutex lock_;
    std::string text_;
};

void keepMessage(fuse_log_level level, const char* format, va_list arguments) noexcept {
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    quietly("keeping a message of libfuse", [&] {
        std::string line(text);
        while (!line.empty() && line.back() == '\n')
            line.pop_back();
        if (level <= FUSE_LOG_ERR)
            LastMessage::ofLibFuse().keep(line);
        hostLog().debug({"libfuse: ", foundation::logPublic(line)});
    });
}

/// A value inside an option list: commas and backslashes would end it.
std::string escaped(const std::string& value) {
    std::string text;
    for (const char c : value) {
        if (c == ',' || c == '\\')
            text += '\\';
        text += c;
    }
    return text;
}

std::string optionList(const std::string& source, const MountOptions& options) {
    std::string list = "subtype=kemvi,fsname=" + escaped(options.fsname.value_or(source)) +
                       ",max_read=" + std::to_string(options.requestSize);
    if (options.kernelChecksPermissions())
        list += ",default_permissions";
    if (options.readOnly)
        list += ",ro";
    if (options.allowOther)
        list += ",allow_other";
    for (const std::string& option : options.kernelOptions)
        list += "," + option;
    return list;
}

std::vector<unsigned> ownDevicesAt(const std::string& mountPoint) {
    try {
        std::vector<unsigned> devices;
        for (const MountEntry& entry : readMountTable())
            if (entry.isOurs() && entry.mountPoint == mountPoint)
                devices.push_back(entry.deviceMinor);
        return devices;
    } catch (const foundation::Error& error) {
        throw MountError("cannot see what is mounted: " + error.description());
    }
}

/// The writing end of a pipe that nobody reads.
foundation::Descriptor makeBrokenPipe() {
    foundation::PipeEnds ends = foundation::openPipe();
    if (!ends.writing.isOpen())
        throw MountError(std::string("cannot make a pipe: ") + std::strerror(errno));
    return std::move(ends.writing);
}

} // namespace

KernelSession::KernelSession(KernelContext& context, const std::string& source, const MountOptions& options) {
    fuse_set_log_func(keepMessage);
    std::string list = optionList(source, options);
    char program[] = "kemvi";
    char flag[] = "-o";
    char* arguments[] = {program, flag, list.data(), nullptr};
    fuse_args args = FUSE_ARGS_INIT(3, arguments);
    session_ = fuse_session_new(&args, &kernelOperations(), sizeof(fuse_lowlevel_ops), &context);
    fuse_opt_free_args(&args);
    if (session_ == nullptr)
        throw MountError("libfuse refuses the mount options \"" + list + "\": " + LastMessage::ofLibFuse().text());
}

KernelSession::~KernelSession() {
    unmount();
    fuse_session_destroy(session_);
}

int KernelSession::descriptor() const {
    return fuse_session_fd(session_);
}

void KernelSession::mount(const std::string& mountPoint) {
    LastMessage::ofLibFuse().keep({});
    brokenPipe_ = makeBrokenPipe();
    const auto before = ownDevicesAt(mountPoint);
    GatheredErrors errors;
    const int result = fuse_session_mount(session_, mountPoint.c_str());
    const std::string told = errors.finish();
    if (result != 0) {
        const std::string last = LastMessage::ofLibFuse().text();
        const std::string fallback = last.empty() ? "no reason was given" : mountReason(last);
        throw MountError("cannot mount here: " + (told.empty() ? fallback : told));
    }
    if (!told.empty())
        dprintf(STDERR_FILENO, "kemvi: %s\n", told.c_str());
    mounted_ = true;
    mountPoint_ = mountPoint;
    for (const unsigned device : ownDevicesAt(mountPoint))
        if (std::find(before.begin(), before.end(), device) == before.end())
            deviceMinor_ = device;
    // A request can vanish between poll and read (its caller was killed); reading must not wait for the next one.
    const int flags = fcntl(descriptor(), F_GETFL);
    if (fcntl(descriptor(), F_SETFL, flags | O_NONBLOCK) != 0)
        throw MountError("cannot make the connection to the kernel non-blocking");
    fcntl(descriptor(), F_SETFD, FD_CLOEXEC);
}

void KernelSession::unmount() noexcept {
    if (!mounted_)
        return;
    mounted_ = false;
    quietly("unmounting", [&] {
        const bool severed = isSevered();
        const auto path = severed ? std::nullopt : ownPath();
        // First, or unmounting would wait for an answer from here.
        dropConnection();
        if (path)
            unmountLazily(*path);
        else if (severed && deviceMinor_)
            unmountStaleDevice(*deviceMinor_, mountPoint_);
    });
    dropConnection();
}

std::optional<std::string> KernelSession::ownPath() const {
    return deviceMinor_ ? reachablePath(readMountTable(), *deviceMinor_, mountPoint_) : std::nullopt;
}

bool KernelSession::isSevered() const {
    pollfd connection{descriptor(), 0, 0};
    return poll(&connection, 1, 0) == 1 && (connection.revents & POLLERR) != 0;
}

/// libfuse unmounts whatever lies on the path, unless its descriptor shows that the connection was severed. One that
/// leads to a broken pipe shows that.
void KernelSession::dropConnection() noexcept {
    if (descriptor() < 0)
        return;
    dup3(brokenPipe_.number(), descriptor(), O_CLOEXEC);
    fuse_session_unmount(session_);
}

} // namespace fusehost
