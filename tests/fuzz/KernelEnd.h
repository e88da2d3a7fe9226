#pragma once

#include "hosts/fuse/calls/VolumeCalls.h"
#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/kernel/KernelSession.h"
#include "unit/fusehost/MemoryVolume.h"
#include "unit/fusehost/ServedTree.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace fuzz {

/// A mount of a ServedTree and the kernel's end of its connection: every request is carried out and answered before
/// `call` returns. Without a kernel, sockets or a thread that serves.
class KernelEnd {
public:
    struct Answer {
        int error = 0; // an errno value
        std::string body;
    };

    KernelEnd(fusehosttests::ServedTree& served, const fusehost::MountOptions& options);
    ~KernelEnd();
    KernelEnd(const KernelEnd&) = delete;
    KernelEnd& operator=(const KernelEnd&) = delete;

    /// The process ends unless there is exactly one answer.
    Answer call(std::uint32_t opcode, std::uint64_t node, std::string_view body = {});
    /// A request that has no answer.
    void tell(std::uint32_t opcode, std::uint64_t node, std::string_view body);
    /// The kernel asks for nothing for a while.
    void idle();
    /// Nodes that the mount remembers.
    std::size_t nodes() const;
    /// The end of the mount.
    void end();

private:
    struct Context : fusehost::KernelContext {
        KernelEnd& kernel;
    };

    void send(std::uint32_t opcode, std::uint64_t node, std::string_view body);
    void takeAnswer(std::string_view bytes);

    fusehost::MountOptions options_;
    fusehost::VolumeCalls calls_;
    fusehost::FileTree tree_;
    Context context_;
    fusehost::KernelSession session_;
    std::uint64_t unique_ = 0;
    int answers_ = 0;
    Answer answer_;
};

} // namespace fuzz
