#include "hosts/fuse/kernel/KernelListings.h"

#include "hosts/fuse/kernel/KernelAnswer.h"
#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/tree/AttributeMap.h"

#include <optional>
#include <vector>

namespace fusehost {
namespace {

/// The nodes handed out with a reply: taken back unless the kernel got it.
class HandedOut {
public:
    explicit HandedOut(FileTree& tree) : tree_(tree) {}

    ~HandedOut() {
        for (const NodeID node : nodes_)
            forgetQuietly(tree_, node, 1);
    }

    HandedOut(const HandedOut&) = delete;
    HandedOut& operator=(const HandedOut&) = delete;

    /// To be called before a node is handed out: adding it then cannot fail.
    void makeRoom() {
        if (nodes_.size() == nodes_.capacity())
            nodes_.reserve(2 * nodes_.size() + 16);
    }

    void add(NodeID node) { nodes_.push_back(node); }

    void keep() { nodes_.clear(); }

private:
    FileTree& tree_;
    std::vector<NodeID> nodes_;
};

struct stat listedStat(const ListedEntry& entry) {
    struct stat shown {};

    shown.st_ino = static_cast<ino_t>(entry.id);
    shown.st_mode = typeBits(entry.type);
    return shown;
}

fuse_entry_param listedParam(KernelContext& context, OpenDirectoryID directory, const ListedEntry& entry) {
    const std::optional<TreeEntry> node = context.tree.listedNode(directory, entry);
    fuse_entry_param param{};
    if (node)
        param = entryParam(context, *node);
    else
        param.attr = listedStat(entry); // a name alone; the kernel looks it up when it needs more
    return param;
}

/// The reply of a listing as it fills up.
class ListingReply {
public:
    ListingReply(fuse_req_t request, std::size_t size)
        : request_(request), buffer_(contextOf(request).bufferFor(size)) {}

    /// Where the next entry goes, and how many bytes are left for it.
    char* at() { return reinterpret_cast<char*>(buffer_.data()) + used_; }

    std::size_t room() const { return buffer_.size() - used_; }

    /// Keeps an entry of that many bytes; false if there is no room for it.
    bool keep(std::size_t needed) {
        if (needed > room())
            return false;
        used_ += needed;
        return true;
    }

    /// 0 if the kernel got it.
    int send() { return fuse_reply_buf(request_, reinterpret_cast<const char*>(buffer_.data()), used_); }

private:
    fuse_req_t request_;
    std::span<std::byte> buffer_;
    std::size_t used_ = 0;
};

/// Calls `add` with each entry from `offset` on that is to be shown and with the offset behind it, until it takes no
/// more. A listing from the start is taken anew.
template <typename Add>
void addListed(FileTree& tree, OpenDirectoryID directory, off_t offset, Add add) {
    if (offset == 0)
        tree.startListing(directory);
    const std::size_t count = tree.listedCount(directory);
    for (auto index = static_cast<std::size_t>(offset); index < count; ++index) {
        const ListedEntry* entry = tree.listedEntry(directory, index);
        if (entry != nullptr && !add(*entry, static_cast<off_t>(index + 1)))
            return;
    }
}

} // namespace

void readDirectory(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* file) {
    answer(request, [&] {
        ListingReply reply(request, size);
        addListed(contextOf(request).tree, directoryOf(*file), offset, [&](const ListedEntry& entry, off_t next) {
            const struct stat shown = listedStat(entry);
            return reply.keep(fuse_add_direntry(request, reply.at(), reply.room(), entry.name.c_str(), &shown, next));
        });
        reply.send();
    });
}

void readDirectoryPlus(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* file) {
    KernelContext& context = contextOf(request);
    answer(request, [&] {
        const OpenDirectoryID directory = directoryOf(*file);
        ListingReply reply(request, size);
        HandedOut handedOut(context.tree);
        addListed(context.tree, directory, offset, [&](const ListedEntry& entry, off_t next) {
            // Asked for its size first: a node must not be handed out in an entry that then does not fit.
            char* const at = reply.at();
            const std::size_t room = reply.room();
            if (!reply.keep(fuse_add_direntry_plus(request, nullptr, 0, entry.name.c_str(), nullptr, 0)))
                return false;
            handedOut.makeRoom();
            const fuse_entry_param param = listedParam(context, directory, entry);
            fuse_add_direntry_plus(request, at, room, entry.name.c_str(), &param, next);
            if (param.ino != 0)
                handedOut.add(param.ino);
            return true;
        });
        if (reply.send() == 0)
            handedOut.keep();
    });
}

} // namespace fusehost
