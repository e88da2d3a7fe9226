#include "KernelEnd.h"

#include "Fuzz.h"

#include "hosts/fuse/kernel/LibFuse.h"
#include "unit/fusehost/PlayedKernel.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/uio.h>

namespace fuzz {
namespace {

using fusehosttests::bytesOf;
using fusehosttests::fromBytes;

std::string joined(const iovec* parts, int count) {
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
    return bytes;
}

} // namespace

KernelEnd::KernelEnd(fusehosttests::ServedTree& served, const fusehost::MountOptions& options)
    : options_(options), calls_(std::make_shared<fusehosttests::MemoryVolume>(served)),
      tree_(calls_, options_), context_{{tree_, options_, {}}, *this}, session_(context_, "source", options_) {
    tree_.begin();
    fuse_custom_io io{};
    io.read = [](int, void*, std::size_t, void*) -> ssize_t { return -ENODEV; }; // never called
    io.writev = [](int, iovec* parts, int count, void* context) -> ssize_t {
        const std::string bytes = joined(parts, count);
        static_cast<Context*>(static_cast<fusehost::KernelContext*>(context))->kernel.takeAnswer(bytes);
        return static_cast<ssize_t>(bytes.size());
    };
    const int unused = open("/dev/null", O_RDWR | O_CLOEXEC); // the session's from now on
    require(fuse_session_custom_io(session_.get(), &io, unused) == 0, "a session takes another connection");
    fuse_init_in init{};
    init.major = FUSE_KERNEL_VERSION;
    init.minor = FUSE_KERNEL_MINOR_VERSION;
    init.flags = FUSE_DO_READDIRPLUS | FUSE_READDIRPLUS_AUTO | FUSE_ATOMIC_O_TRUNC | FUSE_WRITEBACK_CACHE;
    require(call(FUSE_INIT, 0, bytesOf(init)).error == 0, "the kernel is greeted");
}

KernelEnd::~KernelEnd() = default;

void KernelEnd::send(std::uint32_t opcode, std::uint64_t node, std::string_view body) {
    fuse_in_header header{};
    header.len = static_cast<std::uint32_t>(sizeof header + body.size());
    header.opcode = opcode;
    header.unique = unique_ += 2;
    header.nodeid = node;
    std::string request = bytesOf(header) + std::string(body);
    fuse_buf buffer{};
    buffer.mem = request.data();
    buffer.size = request.size();
    answers_ = 0;
    fuse_session_process_buf(session_.get(), &buffer);
}

void KernelEnd::takeAnswer(std::string_view bytes) {
    const auto header = fromBytes<fuse_out_header>(bytes);
    require(header.len == bytes.size() && header.unique == unique_, "an answer belongs to the request");
    require(header.error <= 0 && header.error > -512, "an error is an errno value");
    ++answers_;
    answer_ = {-header.error, std::string(bytes.substr(sizeof header))};
}

KernelEnd::Answer KernelEnd::call(std::uint32_t opcode, std::uint64_t node, std::string_view body) {
    send(opcode, node, body);
    require(answers_ == 1, "each request has one answer");
    return std::move(answer_);
}

void KernelEnd::tell(std::uint32_t opcode, std::uint64_t node, std::string_view body) {
    send(opcode, node, body);
    require(answers_ == 0, "what needs no answer has none");
}

void KernelEnd::idle() {
    while (tree_.isPending())
        tree_.doNext();
}

std::size_t KernelEnd::nodes() const {
    return tree_.nodes().size();
}

void KernelEnd::end() {
    tree_.end();
    calls_.end();
}

} // namespace fuzz
