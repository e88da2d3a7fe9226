#include "hosts/fuse/kernel/KernelRequest.h"

#include <cstdlib>
#include <cstring>
#include <linux/fuse.h>
#include <unistd.h>

namespace fusehost {
namespace {

fuse_in_header headerOf(const KernelRequest& request) {
    fuse_in_header header{};
    if (request.size >= sizeof header)
        std::memcpy(&header, request.memory.get(), sizeof header);
    return header;
}

} // namespace

void KernelRequest::Free::operator()(void* allocated) const {
    std::free(allocated);
}

std::uint64_t KernelRequest::unique() const {
    return headerOf(*this).unique;
}

std::uint32_t KernelRequest::opcode() const {
    return headerOf(*this).opcode;
}

std::uint32_t KernelRequest::thread() const {
    return headerOf(*this).pid;
}

bool KernelRequest::isInterrupt() const {
    return opcode() == FUSE_INTERRUPT;
}

bool KernelRequest::isFlush() const {
    return opcode() == FUSE_FLUSH;
}

std::uint64_t KernelRequest::interruptedUnique() const {
    fuse_interrupt_in body{};
    if (size >= sizeof(fuse_in_header) + sizeof body)
        std::memcpy(&body, static_cast<const char*>(memory.get()) + sizeof(fuse_in_header), sizeof body);
    return body.unique;
}

void replyErrorDirectly(int descriptor, std::uint64_t unique, int error) {
    fuse_out_header header{};
    header.len = sizeof header;
    header.error = -error;
    header.unique = unique;
    // Refused with ENOENT when the request has its answer already.
    [[maybe_unused]] const ssize_t written = write(descriptor, &header, sizeof header);
}

} // namespace fusehost
