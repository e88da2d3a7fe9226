#include "foundation/FileHandle.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace foundation {
namespace {

constexpr std::size_t firstReadSize = std::size_t{64} * 1024;
constexpr std::size_t mostPieces = 4;

// read(2) until it is not interrupted; 0 at the end of the stream, and for a stream that fails, which has ended too.
std::size_t readSome(int descriptor, char* into, std::size_t room) {
    for (;;) {
        const ssize_t count = ::read(descriptor, into, room);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            return 0;
    }
}

// One piece goes by the simpler call, which costs the platform less.
ssize_t writeSome(int descriptor, const iovec* pieces, std::size_t count) {
    if (count == 1)
        return ::write(descriptor, pieces->iov_base, pieces->iov_len);
    return ::writev(descriptor, pieces, static_cast<int>(count));
}

// Waits until something can be written (true, also when it would fail) or the stream at `answers` has ended. Without
// such a stream (-1) only the former ends the wait.
bool awaitRoom(int descriptor, int answers) {
    for (;;) {
        std::array<pollfd, 2> sources{pollfd{descriptor, POLLOUT, 0}, pollfd{answers, 0, 0}};
        if (::poll(sources.data(), sources.size(), -1) < 0 && errno != EINTR)
            return true;
        if (sources[1].revents != 0)
            return false;
        if (sources[0].revents != 0)
            return true;
    }
}

} // namespace

class FileHandle::Stream {
public:
    explicit Stream(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

    int number() const { return descriptor_.number(); }

    // Only for a writing end: the other end of a pipe, which a child may share, has flags of its own.
    void neverBlock() {
        if (!neverBlocks_.exchange(true, std::memory_order_relaxed))
            (void)::fcntl(number(), F_SETFL, ::fcntl(number(), F_GETFL) | O_NONBLOCK);
    }

private:
    const Descriptor descriptor_;
    std::atomic<bool> neverBlocks_{false};
};

FileHandle::FileHandle(Descriptor descriptor) {
    if (descriptor.isOpen())
        stream_ = std::make_shared<Stream>(std::move(descriptor));
}

FileHandle::~FileHandle() = default;

std::shared_ptr<FileHandle::Stream> FileHandle::use() const {
    std::lock_guard guard(lock_);
    return stream_;
}

bool FileHandle::isOpen() const {
    return use() != nullptr;
}

int FileHandle::fileDescriptor() const {
    const auto stream = use();
    return stream ? stream->number() : -1;
}

bool FileHandle::close() {
    std::shared_ptr<Stream> closing;
    std::lock_guard guard(lock_);
    closing = std::exchange(stream_, nullptr);
    return closing != nullptr;
}

bool FileHandle::refill() {
    const auto stream = use();
    if (!stream)
        return false;
    held_.clear();
    heldStart_ = 0;
    held_.reserve(firstReadSize);
    held_.setSize(readSome(stream->number(), held_.data(), held_.capacity()));
    ended_ = held_.size() == 0;
    return !ended_;
}

// Moves what is held into `line`, up to and without a byte 10; true if there was one.
bool FileHandle::takeHeldLine(ByteBuffer& line) {
    const std::string_view held = held_.view().substr(heldStart_);
    const std::size_t end = held.find('\n');
    line.append(held.substr(0, end));
    if (end == std::string_view::npos) {
        held_.clear();
        heldStart_ = 0;
        return false;
    }
    heldStart_ += end + 1;
    return true;
}

bool FileHandle::readLine(ByteBuffer& line) {
    line.clear();
    if (takeHeldLine(line))
        return true;
    const auto stream = use();
    if (!stream)
        return false;
    for (;;) {
        // Straight into the line, so that a long answer is copied once only; a full buffer doubles.
        if (line.size() == line.capacity())
            line.reserve(line.capacity() < firstReadSize ? firstReadSize : line.capacity() * 2);
        char* const fresh = line.data() + line.size();
        const std::size_t count = readSome(stream->number(), fresh, line.capacity() - line.size());
        if (count == 0) {
            ended_ = true;
            return false;
        }
        const void* const end = std::memchr(fresh, '\n', count);
        if (end == nullptr) {
            line.setSize(line.size() + count);
            continue;
        }
        const auto length = static_cast<std::size_t>(static_cast<const char*>(end) - fresh);
        held_.append({fresh + length + 1, count - length - 1});
        line.setSize(line.size() + length);
        return true;
    }
}

bool FileHandle::write(std::string_view bytes) {
    return write(std::span<const std::string_view>(&bytes, 1));
}

bool FileHandle::write(std::span<const std::string_view> pieces) {
    const auto stream = use();
    return stream && writeAll(*stream, pieces, nullptr);
}

bool FileHandle::writeUnlessEnded(std::span<const std::string_view> pieces, const FileHandle& answers) {
    const auto stream = use();
    const auto watched = answers.use();
    if (!stream || !watched || answers.ended_)
        return false;
    stream->neverBlock();
    return writeAll(*stream, pieces, watched.get());
}

bool FileHandle::writeAll(const Stream& stream, std::span<const std::string_view> pieces, const Stream* answers) {
    std::array<iovec, mostPieces> vectors;
    std::size_t count = 0;
    for (const std::string_view piece : pieces)
        if (!piece.empty())
            vectors.at(count++) = {const_cast<char*>(piece.data()), piece.size()};
    std::size_t first = 0;
    while (first < count) {
        const ssize_t result = writeSome(stream.number(), &vectors[first], count - first);
        if (result < 0) {
            const bool isFull = errno == EAGAIN || errno == EWOULDBLOCK;
            if (errno != EINTR && !(isFull && awaitRoom(stream.number(), answers ? answers->number() : -1)))
                return false;
            continue;
        }
        auto written = static_cast<std::size_t>(result);
        while (first < count && written >= vectors[first].iov_len)
            written -= vectors[first++].iov_len;
        if (first < count) {
            vectors[first].iov_base = static_cast<char*>(vectors[first].iov_base) + written;
            vectors[first].iov_len -= written;
        }
    }
    return true;
}

} // namespace foundation
