#include "hosts/fuse/kernel/RequestReports.h"

#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/kernel/CallerNames.h"

#include <cerrno>
#include <linux/fuse.h>

namespace fusehost {

namespace {

constexpr std::size_t longestWholePath = std::size_t{64} * 1024;

/// Kernels forget nodes by the thousand, and nobody is interested in which.
bool isAboutAFile(const RequestHead& head) {
    return head.node != 0 && head.operation != KernelOperation::forget;
}

bool isRefused(const RequestHead& head) {
    switch (head.operation) {
    case KernelOperation::other: return head.opcode != FUSE_DESTROY;
    case KernelOperation::setxattr:
    case KernelOperation::getxattr:
    case KernelOperation::listxattr:
    case KernelOperation::removexattr: return true;
    default: return false;
    }
}

} // namespace

void RequestReports::begin(const KernelRequest& request, Clock::time_point since, Clock::time_point started) noexcept {
    const RequestHead head = headOf(request);
    context_.outcome = {};
    isRefused_ = isRefused(head);
    const std::string_view path =
        isAboutAFile(head) ? context_.tree.describe(head.node, head.name, path_) : std::string_view();
    monitor_.begin({head.operation, path, head.thread, head.user, since, started});
    event_.reset();
    if (monitor_.isListenedTo())
        quietly("describing a request", [&] { describe(request, head, since, started); });
}

void RequestReports::beginIdleWork(Clock::time_point now) noexcept {
    context_.outcome = {};
    isRefused_ = false;
    monitor_.begin({KernelOperation::idle, {}, 0, 0, now, now});
    event_.reset();
    if (monitor_.isListenedTo()) {
        event_.emplace().operation = KernelOperation::idle;
        noteBeginning(now, now);
    }
}

RequestReports::Clock::time_point RequestReports::end() noexcept {
    const Clock::time_point now = Clock::now();
    if (isRefused_)
        context_.outcome.error = ENOSYS;
    monitor_.end(now, {context_.outcome.error, context_.outcome.bytes});
    monitor_.setTree(context_.tree.gauges());
    if (event_)
        tell(now);
    return now;
}

void RequestReports::describe(const KernelRequest& request, const RequestHead& head, Clock::time_point since,
                              Clock::time_point started) {
    RequestEvent event;
    event.operation = head.operation;
    event.opcode = head.opcode;
    if (isAboutAFile(head))
        event.path = wholePath(head.node, head.name);
    event.arguments = argumentsOf(request);
    if (const NodeArgument other = nodeArgumentOf(request); other.node != 0)
        event.arguments.emplace_back(other.argument, wholePath(other.node, other.name));
    const CallerName caller = callerName(head.thread);
    event.process = caller.name;
    event.pid = caller.process;
    event.thread = head.thread;
    event.user = head.user;
    event_ = std::move(event);
    noteBeginning(since, started);
}

void RequestReports::noteBeginning(Clock::time_point since, Clock::time_point started) {
    since_ = since;
    event_->waited = started - since;
    event_->began = std::chrono::system_clock::now() -
                    std::chrono::duration_cast<std::chrono::system_clock::duration>(Clock::now() - since);
}

std::string RequestReports::wholePath(NodeID node, std::string_view name) {
    std::string_view path = context_.tree.describe(node, name, path_);
    if (path.size() < path_.size())
        return std::string(path);
    std::string room(longestWholePath, '\0');
    return std::string(context_.tree.describe(node, name, room));
}

void RequestReports::tell(Clock::time_point now) {
    event_->duration = now - since_;
    event_->error = context_.outcome.error;
    event_->bytes = context_.outcome.bytes;
    monitor_.tell(*event_);
    event_.reset();
}

} // namespace fusehost
