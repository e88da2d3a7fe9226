#include "hosts/fuse/kernel/KernelOperations.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/kernel/KernelAnswer.h"
#include "hosts/fuse/kernel/KernelContext.h"
#include "hosts/fuse/kernel/KernelListings.h"
#include "hosts/fuse/kernel/LibFuse.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace fusehost {
namespace {

FileTree& treeOf(fuse_req_t request) {
    return contextOf(request).tree;
}

std::uint64_t numberOf(OpenFileID file) {
    return static_cast<std::uint64_t>(file);
}

std::uint64_t numberOf(OpenDirectoryID directory) {
    return static_cast<std::uint64_t>(directory);
}

/// Where permissions are not the kernel's to check: EACCES unless whoever asks may do all of `wanted` to the node.
void checkAccess(fuse_req_t request, fuse_ino_t node, int wanted) {
    treeOf(request).checkAccess(fuse_req_ctx(request)->uid, node, wanted);
}

void checkDirectoryAccess(fuse_req_t request, fuse_ino_t directory, int wanted) {
    treeOf(request).checkDirectoryAccess(fuse_req_ctx(request)->uid, directory, wanted);
}

void checkOwner(fuse_req_t request, fuse_ino_t node) {
    treeOf(request).checkOwner(fuse_req_ctx(request)->uid, node);
}

constexpr int toChangeNames = W_OK | X_OK;

/// Runs an operation that changes names in a directory, if whoever asks may do that there.
template <typename Operation>
void answerChange(fuse_req_t request, fuse_ino_t directory, const Operation& operation) noexcept {
    answer(request, [&] {
        checkDirectoryAccess(request, directory, toChangeNames);
        operation();
    });
}

int accessToOpen(int flags) {
    const int toTruncate = (flags & O_TRUNC) != 0 ? W_OK : 0;
    switch (flags & O_ACCMODE) {
    case O_RDONLY: return R_OK | toTruncate;
    case O_WRONLY: return W_OK;
    default: return R_OK | W_OK;
    }
}

OpenFileID fileOf(const fuse_file_info& file) {
    return OpenFileID{file.fh};
}

void release(FileTree& tree, OpenFileID file) noexcept {
    quietly("closing a file whose opener is gone", [&] { tree.release(file); });
}

void replyEntry(fuse_req_t request, const TreeEntry& entry) {
    KernelContext& context = contextOf(request);
    const fuse_entry_param param = entryParam(context, entry);
    if (fuse_reply_entry(request, &param) != 0)
        forgetQuietly(context.tree, entry.node, 1);
}

void replyAttributes(fuse_req_t request, const struct stat& attributes) {
    fuse_reply_attr(request, &attributes, contextOf(request).options.attrTimeout.count());
}

void setOpenFlags(fuse_file_info& file) {
    // Pages stay cached across opens: the kernel drops them itself when it sees another size or modification time.
    file.keep_cache = 1;
    // Closing a descriptor that never wrote needs no flush.
    file.noflush = (file.flags & O_ACCMODE) == O_RDONLY;
}

constexpr unsigned writesPerOperation = 4;
constexpr unsigned largestWrite = 1024 * 1024; // what kernels accept

void opInit(void* userdata, fuse_conn_info* connection) {
    const KernelContext& context = *static_cast<KernelContext*>(userdata);
    const auto want = [&](unsigned capabilities) { connection->want |= connection->capable & capabilities; };
    const auto refuse = [&](unsigned capabilities) { connection->want &= ~capabilities; };
    refuse(FUSE_CAP_WRITEBACK_CACHE);
    if (context.options.writeback)
        want(FUSE_CAP_WRITEBACK_CACHE);
    want(FUSE_CAP_READDIRPLUS | FUSE_CAP_READDIRPLUS_AUTO);
    want(FUSE_CAP_AUTO_INVAL_DATA | FUSE_CAP_ATOMIC_O_TRUNC);
    // Taking the bits that let a program run as its owner from a file that is changed is the helper's affair; it cannot
    // be promised for every helper. They are never shown, so the kernel has none to take away either.
    refuse(FUSE_CAP_HANDLE_KILLPRIV);
    // Splicing does not pay where every byte is encoded anyway.
    refuse(FUSE_CAP_SPLICE_READ | FUSE_CAP_SPLICE_WRITE | FUSE_CAP_SPLICE_MOVE);
    connection->max_read = context.options.requestSize;
    // One hand-over from the kernel for several requests to the helper: each costs two changes of process.
    connection->max_write = std::min(context.options.requestSize * writesPerOperation, largestWrite);
    connection->time_gran = 1000000; // helpers know milliseconds
}

void opLookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    KernelContext& context = contextOf(request);
    answer(request, [&] {
        checkDirectoryAccess(request, parent, X_OK);
        try {
            replyEntry(request, context.tree.lookup(parent, name));
        } catch (const KernelError& error) {
            if (error.number() != ENOENT || !context.tree.noteToldAbsence(parent, name))
                throw;
            fuse_entry_param absent{};
            absent.entry_timeout = context.options.negativeTimeout.count();
            context.outcome.error = ENOENT;
            fuse_reply_entry(request, &absent);
        }
    });
}

void opForget(fuse_req_t request, fuse_ino_t node, std::uint64_t lookups) {
    forgetQuietly(treeOf(request), node, lookups);
    fuse_reply_none(request);
}

void opForgetMulti(fuse_req_t request, std::size_t count, fuse_forget_data* forgets) {
    for (std::size_t i = 0; i < count; ++i)
        forgetQuietly(treeOf(request), forgets[i].ino, forgets[i].nlookup);
    fuse_reply_none(request);
}

void opGetattr(fuse_req_t request, fuse_ino_t node, fuse_file_info*) {
    answer(request, [&] { replyAttributes(request, treeOf(request).getAttributes(node)); });
}

timespec currentTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

/// Times may be set to now by whoever may write; the size also by whoever has the file open for that.
void checkChange(fuse_req_t request, fuse_ino_t node, int valid, const fuse_file_info* file) {
    const auto asksFor = [&](int bits) { return (valid & bits) != 0; };
    if (asksFor(FUSE_SET_ATTR_MODE | FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID) ||
        (asksFor(FUSE_SET_ATTR_MTIME) && !asksFor(FUSE_SET_ATTR_MTIME_NOW)) ||
        (asksFor(FUSE_SET_ATTR_ATIME) && !asksFor(FUSE_SET_ATTR_ATIME_NOW)))
        checkOwner(request, node);
    else if (asksFor(FUSE_SET_ATTR_MTIME | FUSE_SET_ATTR_ATIME) || (asksFor(FUSE_SET_ATTR_SIZE) && file == nullptr))
        checkAccess(request, node, W_OK);
}

void opSetattr(fuse_req_t request, fuse_ino_t node, struct stat* attributes, int valid, fuse_file_info* file) {
    AttributeChange change;
    if ((valid & FUSE_SET_ATTR_SIZE) != 0)
        change.size = static_cast<std::uint64_t>(attributes->st_size);
    if ((valid & FUSE_SET_ATTR_MODE) != 0)
        change.mode = attributes->st_mode & 0777;
    if ((valid & FUSE_SET_ATTR_UID) != 0)
        change.uid = attributes->st_uid;
    if ((valid & FUSE_SET_ATTR_GID) != 0)
        change.gid = attributes->st_gid;
    if ((valid & FUSE_SET_ATTR_MTIME_NOW) != 0)
        change.modifyTime = currentTime();
    else if ((valid & FUSE_SET_ATTR_MTIME) != 0)
        change.modifyTime = attributes->st_mtim;
    answer(request, [&] {
        checkChange(request, node, valid, file);
        replyAttributes(request, treeOf(request).setAttributes(node, change));
    });
}

// For access(2) and chdir(2), where the kernel does not check permissions itself. To be answered: a kernel that gets no
// answer once takes everything for allowed.
void opAccess(fuse_req_t request, fuse_ino_t node, int wanted) {
    answer(request, [&] {
        checkAccess(request, node, wanted);
        fuse_reply_err(request, 0);
    });
}

void opReadlink(fuse_req_t request, fuse_ino_t node) {
    answer(request, [&] { fuse_reply_readlink(request, treeOf(request).readSymbolicLink(node).c_str()); });
}

void opMknod(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t) {
    answerChange(request, parent, [&] { replyEntry(request, treeOf(request).makeNode(parent, name, mode)); });
}

void opMkdir(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode) {
    answerChange(request, parent, [&] { replyEntry(request, treeOf(request).makeDirectory(parent, name, mode)); });
}

void opSymlink(fuse_req_t request, const char* contents, fuse_ino_t parent, const char* name) {
    answerChange(request, parent,
                 [&] { replyEntry(request, treeOf(request).makeSymbolicLink(parent, name, contents)); });
}

void opLink(fuse_req_t request, fuse_ino_t node, fuse_ino_t parent, const char* name) {
    answerChange(request, parent, [&] { replyEntry(request, treeOf(request).makeLink(node, parent, name)); });
}

void opUnlink(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answerChange(request, parent, [&] {
        treeOf(request).removeFile(parent, name);
        fuse_reply_err(request, 0);
    });
}

void opRmdir(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answerChange(request, parent, [&] {
        treeOf(request).removeDirectory(parent, name);
        fuse_reply_err(request, 0);
    });
}

void opRename(fuse_req_t request, fuse_ino_t parent, const char* name, fuse_ino_t newParent, const char* newName,
              unsigned flags) {
    answerChange(request, parent, [&] {
        checkDirectoryAccess(request, newParent, toChangeNames);
        treeOf(request).rename(parent, name, newParent, newName, flags);
        fuse_reply_err(request, 0);
    });
}

void opCreate(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, fuse_file_info* file) {
    KernelContext& context = contextOf(request);
    answerChange(request, parent, [&] {
        const auto [entry, opened] = context.tree.create(parent, name, file->flags, mode);
        file->fh = numberOf(opened);
        setOpenFlags(*file);
        const fuse_entry_param param = entryParam(context, entry);
        if (fuse_reply_create(request, &param, file) != 0) {
            release(context.tree, opened);
            forgetQuietly(context.tree, entry.node, 1);
        }
    });
}

/// The kernel asks for size and time before it next goes by them. Waits for nothing: pages are left alone, which it
/// drops itself when it sees that they are of another size or time.
void haveAskedAnew(const KernelContext& context, fuse_ino_t node) {
    context.tree.forgetShown();
    if (context.session != nullptr)
        fuse_lowlevel_notify_inval_inode(context.session, node, -1, 0);
}

void opOpen(fuse_req_t request, fuse_ino_t node, fuse_file_info* file) {
    answer(request, [&] {
        const KernelContext& context = contextOf(request);
        FileTree& tree = context.tree;
        checkAccess(request, node, accessToOpen(file->flags));
        const OpenFileID opened = tree.open(node, file->flags);
        if (context.options.closeToOpen)
            haveAskedAnew(context, node);
        file->fh = numberOf(opened);
        setOpenFlags(*file);
        // Past the page cache the kernel reads on until a read is empty, whatever size it knows.
        file->direct_io = tree.isOfUnknownSize(opened);
        if (fuse_reply_open(request, file) != 0)
            release(tree, opened);
    });
}

void opRead(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* file) {
    KernelContext& context = contextOf(request);
    answer(request, [&] {
        const std::span<std::byte> buffer = context.bufferFor(size);
        const std::size_t count = context.tree.read(fileOf(*file), offset, buffer);
        context.outcome.bytes = count;
        fuse_reply_buf(request, reinterpret_cast<const char*>(buffer.data()), count);
    });
}

void opWrite(fuse_req_t request, fuse_ino_t, const char* bytes, std::size_t size, off_t offset, fuse_file_info* file) {
    KernelContext& context = contextOf(request);
    answer(request, [&] {
        const std::span<const std::byte> contents(reinterpret_cast<const std::byte*>(bytes), size);
        std::size_t written = size;
        if (file->writepage)
            context.tree.writePages(fileOf(*file), offset, contents); // of a short count the kernel would tell nobody
        else
            written = context.tree.write(fileOf(*file), offset, contents);
        context.outcome.bytes = written;
        fuse_reply_write(request, written);
    });
}

void opFlush(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    answer(request, [&] {
        treeOf(request).flush(fileOf(*file));
        fuse_reply_err(request, 0);
    });
}

void opFsync(fuse_req_t request, fuse_ino_t, int, fuse_file_info* file) {
    answer(request, [&] {
        treeOf(request).synchronize(fileOf(*file));
        fuse_reply_err(request, 0);
    });
}

void opRelease(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    answer(request, [&] {
        treeOf(request).release(fileOf(*file));
        fuse_reply_err(request, 0);
    });
}

void opOpendir(fuse_req_t request, fuse_ino_t node, fuse_file_info* file) {
    answer(request, [&] {
        FileTree& tree = treeOf(request);
        checkAccess(request, node, R_OK);
        const OpenDirectoryID opened = tree.openDirectory(node);
        file->fh = numberOf(opened);
        if (fuse_reply_open(request, file) != 0)
            quietly("closing a directory whose opener is gone", [&] { tree.releaseDirectory(opened); });
    });
}

void opReleasedir(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    answer(request, [&] {
        treeOf(request).releaseDirectory(directoryOf(*file));
        fuse_reply_err(request, 0);
    });
}

// There is nothing to write out for a directory: every change of names is carried out when it is asked for.
void opFsyncdir(fuse_req_t request, fuse_ino_t, int, fuse_file_info*) {
    fuse_reply_err(request, 0);
}

void opStatfs(fuse_req_t request, fuse_ino_t) {
    answer(request, [&] {
        const FileTree& tree = treeOf(request);
        const fskit::FSStatFSResult figures = tree.statistics();
        struct statvfs shown {};
        shown.f_bsize = static_cast<unsigned long>(figures.ioSize);
        shown.f_frsize = static_cast<unsigned long>(figures.blockSize);
        shown.f_blocks = figures.totalBlocks;
        shown.f_bfree = figures.freeBlocks;
        shown.f_bavail = figures.availableBlocks;
        shown.f_files = figures.totalFiles;
        shown.f_ffree = figures.freeFiles;
        shown.f_favail = figures.freeFiles;
        shown.f_namemax = tree.maximumNameLength();
        fuse_reply_statfs(request, &shown);
    });
}

fuse_lowlevel_ops makeOperations() {
    fuse_lowlevel_ops operations{};
    operations.init = opInit;
    operations.lookup = opLookup;
    operations.forget = opForget;
    operations.forget_multi = opForgetMulti;
    operations.getattr = opGetattr;
    operations.setattr = opSetattr;
    operations.access = opAccess;
    operations.readlink = opReadlink;
    operations.mknod = opMknod;
    operations.mkdir = opMkdir;
    operations.symlink = opSymlink;
    operations.link = opLink;
    operations.unlink = opUnlink;
    operations.rmdir = opRmdir;
    operations.rename = opRename;
    operations.create = opCreate;
    operations.open = opOpen;
    operations.read = opRead;
    operations.write = opWrite;
    operations.flush = opFlush;
    operations.fsync = opFsync;
    operations.release = opRelease;
    operations.opendir = opOpendir;
    operations.readdir = readDirectory;
    operations.readdirplus = readDirectoryPlus;
    operations.releasedir = opReleasedir;
    operations.fsyncdir = opFsyncdir;
    operations.statfs = opStatfs;
    return operations;
}

} // namespace

const fuse_lowlevel_ops& kernelOperations() {
    static const fuse_lowlevel_ops operations = makeOperations();
    return operations;
}

} // namespace fusehost
