#include "hosts/fuse/tree/ByteSpool.h"

#include "hosts/fuse/calls/KernelError.h"

#include <algorithm>
#include <cerrno>

namespace fusehost {
namespace {

constexpr std::uint64_t mostInMemory = std::uint64_t{16} * 1024 * 1024;

void checkAll(std::size_t done, std::size_t wanted) {
    if (done != wanted)
        throw KernelError(errno != 0 ? errno : EIO);
}

} // namespace

void ByteSpool::moveToFile() {
    file_ = folder_.makeFile();
    errno = 0;
    if (!memory_.empty())
        checkAll(std::fwrite(memory_.data(), 1, memory_.size(), file_.get()), memory_.size());
    memory_ = {};
}

void ByteSpool::append(std::span<const std::byte> bytes) {
    if (!file_ && size_ + bytes.size() > mostInMemory)
        moveToFile();
    if (file_) {
        errno = 0;
        if (fseeko(file_.get(), 0, SEEK_END) != 0) // it may have been read from since
            throw KernelError(errno);
        checkAll(std::fwrite(bytes.data(), 1, bytes.size(), file_.get()), bytes.size());
    } else {
        memory_.insert(memory_.end(), bytes.begin(), bytes.end());
    }
    size_ += bytes.size();
}

void ByteSpool::copy(std::uint64_t offset, std::span<std::byte> into) {
    if (!file_) {
        std::copy_n(memory_.begin() + static_cast<std::ptrdiff_t>(offset), into.size(), into.begin());
        return;
    }
    errno = 0;
    if (fseeko(file_.get(), static_cast<off_t>(offset), SEEK_SET) != 0)
        throw KernelError(errno);
    checkAll(std::fread(into.data(), 1, into.size(), file_.get()), into.size());
}

} // namespace fusehost
