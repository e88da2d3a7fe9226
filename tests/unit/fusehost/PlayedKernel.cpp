#include "PlayedKernel.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;

constexpr auto limit = 20s;     // longer than anything takes on a busy machine
constexpr auto lookAgain = 2ms; // between looks at what is written to the connection directly

std::string noticeOf(int code, std::string_view body) {
    if (code == FUSE_NOTIFY_INVAL_INODE) {
        const auto notice = fromBytes<fuse_notify_inval_inode_out>(body);
        return (notice.off < 0 ? "attributes " : "forget ") + std::to_string(notice.ino);
    }
    const auto notice = fromBytes<fuse_notify_inval_entry_out>(body);
    const std::string_view name = body.substr(sizeof notice, notice.namelen);
    EXPECT_EQ(body[sizeof notice + notice.namelen], '\0');
    return (notice.flags == FUSE_EXPIRE_ONLY ? "expire " : "drop ") + std::to_string(notice.parent) + "/" +
           std::string(name);
}

} // namespace

PlayedKernel::PlayedKernel() : received_(1 << 18, '\0') {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    kernelEnd_ = ends[0];
    hostEnd_ = ends[1];
}

PlayedKernel::~PlayedKernel() {
    if (kernelEnd_ >= 0)
        close(kernelEnd_);
    if (hostEnd_ >= 0)
        close(hostEnd_);
}

int PlayedKernel::takeHostEnd() {
    return std::exchange(hostEnd_, -1);
}

void PlayedKernel::send(std::uint32_t opcode, std::uint64_t unique, std::uint64_t node, std::string_view body,
                        std::uint32_t thread) {
    fuse_in_header header{};
    header.len = static_cast<std::uint32_t>(sizeof header + body.size());
    header.opcode = opcode;
    header.unique = unique;
    header.nodeid = node;
    header.uid = user_;
    header.pid = thread;
    const std::string datagram = bytesOf(header) + std::string(body);
    EXPECT_EQ(::send(kernelEnd_, datagram.data(), datagram.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(datagram.size()));
}

std::uint64_t PlayedKernel::ask(std::uint32_t opcode, std::uint64_t node, std::string_view body, std::uint32_t thread) {
    const std::lock_guard guard(lock_);
    const std::uint64_t unique = next_;
    next_ += 2; // as the kernel counts; odd numbers are for interrupts
    send(opcode, unique, node, body, thread);
    return unique;
}

std::uint64_t PlayedKernel::askAndLeave(std::uint32_t opcode, std::uint64_t node, std::string_view body) {
    const std::lock_guard guard(lock_);
    const std::uint64_t unique = next_;
    next_ += 2;
    gone_.insert(unique);
    send(opcode, unique, node, body, 0);
    return unique;
}

void PlayedKernel::interrupt(std::uint64_t request) {
    const std::lock_guard guard(lock_);
    send(FUSE_INTERRUPT, request | 1, 0, bytesOf(fuse_interrupt_in{request}), 0);
}

void PlayedKernel::takeIn() {
    while (kernelEnd_ >= 0) {
        const ssize_t got = recv(kernelEnd_, received_.data(), received_.size(), 0);
        if (got <= 0)
            return;
        const auto header = fromBytes<fuse_out_header>(received_);
        EXPECT_EQ(header.len, static_cast<std::uint32_t>(got));
        if (header.unique == 0) {
            notices_.push_back(noticeOf(header.error, std::string_view(received_).substr(sizeof header)));
            continue;
        }
        if (gone_.count(header.unique) != 0 || answers_.count(header.unique) != 0) {
            ++refusals_;
            continue;
        }
        answers_[header.unique] = {-header.error, received_.substr(sizeof header, got - sizeof header)};
        order_.push_back(header.unique);
    }
}

PlayedKernel::Answer PlayedKernel::answerTo(std::uint64_t request) {
    std::unique_lock guard(lock_);
    const auto end = std::chrono::steady_clock::now() + limit;
    for (takeIn(); answers_.count(request) == 0; takeIn()) {
        if (std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << "request " << request << " was not answered";
            return {ETIMEDOUT, {}};
        }
        changed_.wait_for(guard, lookAgain);
    }
    return answers_[request];
}

void PlayedKernel::waitUntilRead() {
    std::unique_lock guard(lock_);
    const auto end = std::chrono::steady_clock::now() + limit;
    int unread = 1;
    while (ioctl(kernelEnd_, SIOCOUTQ, &unread) == 0 && unread > 0 && std::chrono::steady_clock::now() < end)
        changed_.wait_for(guard, lookAgain);
    EXPECT_EQ(unread, 0);
}

std::vector<std::string> PlayedKernel::notices(std::size_t count) {
    std::unique_lock guard(lock_);
    const auto end = std::chrono::steady_clock::now() + limit;
    for (takeIn(); notices_.size() < count && std::chrono::steady_clock::now() < end; takeIn())
        changed_.wait_for(guard, lookAgain);
    EXPECT_GE(notices_.size(), count);
    return notices_;
}

PlayedKernel::Answer PlayedKernel::call(std::uint32_t opcode, std::uint64_t node, std::string_view body) {
    return answerTo(ask(opcode, node, body));
}

void PlayedKernel::beUser(std::uint32_t uid) {
    const std::lock_guard guard(lock_);
    user_ = uid;
}

bool PlayedKernel::isAnswered(std::uint64_t request) {
    const std::lock_guard guard(lock_);
    takeIn();
    return answers_.count(request) != 0;
}

std::vector<std::uint64_t> PlayedKernel::answered() {
    const std::lock_guard guard(lock_);
    takeIn();
    return order_;
}

int PlayedKernel::refusals() {
    const std::lock_guard guard(lock_);
    return refusals_;
}

void PlayedKernel::waitForRefusals(int count) {
    std::unique_lock guard(lock_);
    EXPECT_TRUE(changed_.wait_for(guard, limit, [&] { return refusals_ >= count; }));
}

void PlayedKernel::unmount() {
    const std::lock_guard guard(lock_);
    takeIn();
    close(std::exchange(kernelEnd_, -1));
}

void PlayedKernel::failReading(int error) {
    const std::lock_guard guard(lock_);
    readError_ = error;
    send(FUSE_STATFS, 0, 0, {}, 0); // never read: it only makes poll call
}

void PlayedKernel::waitForFailedReads(int count) {
    std::unique_lock guard(lock_);
    EXPECT_TRUE(changed_.wait_for(guard, limit, [&] { return failedReads_ >= count; }));
}

int PlayedKernel::reads() {
    const std::lock_guard guard(lock_);
    return reads_;
}

ssize_t PlayedKernel::read(int descriptor, void* memory, std::size_t size) {
    const std::lock_guard guard(lock_);
    ++reads_;
    if (readError_ != 0) {
        ++failedReads_;
        changed_.notify_all();
        errno = readError_;
        return -1;
    }
    const ssize_t got = ::read(descriptor, memory, size);
    if (got != 0)
        return got;
    errno = ENODEV; // what the kernel says when the file system was unmounted
    return -1;
}

ssize_t PlayedKernel::write(int descriptor, iovec* parts, int count) {
    const std::lock_guard guard(lock_);
    takeIn();
    const auto header =
        fromBytes<fuse_out_header>(std::string_view(static_cast<const char*>(parts[0].iov_base), parts[0].iov_len));
    changed_.notify_all();
    if (kernelEnd_ < 0 || gone_.count(header.unique) != 0 || answers_.count(header.unique) != 0) {
        ++refusals_;
        errno = ENOENT;
        return -1;
    }
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    const ssize_t written = sendmsg(descriptor, &message, MSG_NOSIGNAL);
    takeIn();
    return written;
}

} // namespace fusehosttests
