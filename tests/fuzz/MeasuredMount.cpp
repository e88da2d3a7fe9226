#include "MeasuredMount.h"

#include "Fuzz.h"

#include "unit/fusehost/PlayedKernel.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/fuse.h>
#include <sys/stat.h>
#include <utility>

namespace fuzz {
namespace {

using fusehosttests::bytesOf;
using fusehosttests::fromBytes;

constexpr std::uint64_t rootNode = FUSE_ROOT_ID;

std::string terminated(const std::string& text) {
    return text + '\0';
}

} // namespace

MeasuredMount::MeasuredMount(fusehosttests::ServedTree& served, const Kind& kind)
    : served_(served), isExact_(!kind.helperFails),
      negativeEntries_(kind.options.negativeTimeout > fusehost::Seconds(0)), readsToWrite_(kind.options.writeback),
      kernel_(served, kind.options), root_(std::make_shared<Inode>()) {
    root_->isDirectory = true;
    nodes_.push_back({rootNode, root_, 1});
}

bool MeasuredMount::isOpen(const Inode& inode) const {
    return std::any_of(files_.begin(), files_.end(), [&](const OpenFile& file) { return file.inode.get() == &inode; });
}

// A removed file lives on while it is open, a removed directory does not.
Errors MeasuredMount::errorsOfNode(const Inode& inode) const {
    return inode.isRemoved && (inode.isDirectory || !isOpen(inode)) ? Errors{ESTALE} : Errors{};
}

bool MeasuredMount::succeeded(const Answer& answer, const Errors& errors) const {
    if (isExact_)
        require(errors.empty() ? answer.error == 0 : errors.contains(answer.error),
                "a request succeeds or fails as on any Unix file system");
    return answer.error == 0 && errors.empty();
}

void MeasuredMount::compare(std::string_view attributes, const Inode& inode) const {
    const auto attr = fromBytes<fuse_attr>(attributes);
    if (!isExact_)
        return;
    require(S_ISDIR(attr.mode) == inode.isDirectory, "a node's type is its file's");
    require(inode.isDirectory || attr.size == inode.bytes.size(), "a node's size is its file's");
    require(inode.isDirectory || (attr.nlink == 0) == inode.isRemoved, "a removed file has no links");
}

void MeasuredMount::takeNode(std::string_view bytes, InodePtr inode) {
    const auto entry = fromBytes<fuse_entry_out>(bytes);
    require(entry.nodeid != 0 && entry.nodeid != rootNode, "a name has a node of its own");
    if (!inode) {
        inode = std::make_shared<Inode>(); // only where the helper fails is there what should not be
        inode->isDirectory = S_ISDIR(entry.attr.mode);
    }
    compare(bytesOf(entry.attr), *inode);
    for (KnownNode& known : nodes_) {
        if (isExact_)
            require((known.id == entry.nodeid) == (known.inode == inode), "a file has one node, and a node one file");
        if (known.id == entry.nodeid) {
            ++known.lookups;
            return;
        }
    }
    nodes_.push_back({entry.nodeid, inode, 1});
}

void MeasuredMount::lookup(std::size_t node, const std::string& name) {
    const InodePtr directory = nodes_[node].inode;
    Answer answer = kernel_.call(FUSE_LOOKUP, nodes_[node].id, terminated(name));
    if (answer.error == 0 && fromBytes<fuse_entry_out>(answer.body).nodeid == 0) {
        require(negativeEntries_, "absence is told as an entry only where it may be remembered");
        answer.error = ENOENT;
    }
    succeeded(answer, errorsOfLookup(*directory, name));
    if (answer.error == 0)
        takeNode(answer.body, directory->child(name));
}

void MeasuredMount::getAttributes(std::size_t node) {
    const Inode& inode = *nodes_[node].inode;
    const Answer answer = kernel_.call(FUSE_GETATTR, nodes_[node].id, bytesOf(fuse_getattr_in{}));
    if (succeeded(answer, errorsOfNode(inode)))
        compare(std::string_view(answer.body).substr(offsetof(fuse_attr_out, attr)), inode);
}

void MeasuredMount::forget(std::size_t node, std::uint64_t count) {
    const std::uint64_t id = nodes_[node].id;
    const auto uses = [&](const auto& opened) { return opened.node == id; };
    const bool isUsed =
        std::any_of(files_.begin(), files_.end(), uses) || std::any_of(directories_.begin(), directories_.end(), uses);
    if (id == rootNode || isUsed)
        return;
    count = std::min(count, nodes_[node].lookups);
    kernel_.tell(FUSE_FORGET, id, bytesOf(fuse_forget_in{count}));
    nodes_[node].lookups -= count;
    if (nodes_[node].lookups == 0)
        nodes_.erase(nodes_.begin() + static_cast<std::ptrdiff_t>(node));
}

void MeasuredMount::setAttributes(std::size_t node, const std::string& request, const Errors& errors) {
    const Answer answer = kernel_.call(FUSE_SETATTR, nodes_[node].id, request);
    if (!succeeded(answer, errors))
        return;
    const auto wanted = fromBytes<fuse_setattr_in>(request);
    Inode& inode = *nodes_[node].inode;
    if ((wanted.valid & FATTR_SIZE) != 0)
        inode.bytes.resize(wanted.size, '\0');
    const auto told = fromBytes<fuse_attr_out>(answer.body);
    compare(bytesOf(told.attr), inode);
    if ((wanted.valid & FATTR_MTIME) != 0 && nodes_[node].id != rootNode && isExact_)
        require(told.attr.mtime == wanted.mtime, "a time that was set is shown");
}

void MeasuredMount::setSize(std::size_t node, std::uint64_t size) {
    fuse_setattr_in change{};
    change.valid = FATTR_SIZE;
    change.size = size;
    Errors errors = errorsOfNode(*nodes_[node].inode);
    if (nodes_[node].inode->isDirectory)
        errors.insert(EISDIR);
    setAttributes(node, bytesOf(change), errors);
}

void MeasuredMount::setMode(std::size_t node, std::uint32_t mode) {
    fuse_setattr_in change{};
    change.valid = FATTR_MODE;
    change.mode = mode;
    setAttributes(node, bytesOf(change), errorsOfNode(*nodes_[node].inode));
}

void MeasuredMount::setTime(std::size_t node, std::uint64_t seconds) {
    fuse_setattr_in change{};
    change.valid = FATTR_MTIME;
    change.mtime = seconds;
    setAttributes(node, bytesOf(change), errorsOfNode(*nodes_[node].inode));
}

void MeasuredMount::create(std::size_t node, const std::string& name, int flags, std::uint32_t mode) {
    fuse_create_in request{};
    request.flags = static_cast<std::uint32_t>(flags | O_CREAT);
    request.mode = S_IFREG | mode;
    const InodePtr directory = nodes_[node].inode;
    Errors errors = errorsOfLookup(*directory, name);
    errors.erase(ENOENT);
    const InodePtr found = directory->child(name);
    if (found && (flags & O_EXCL) != 0)
        errors.insert(EEXIST);
    if (found && found->isDirectory)
        errors.insert(EISDIR);
    const Answer answer = kernel_.call(FUSE_CREATE, nodes_[node].id, bytesOf(request) + terminated(name));
    createAndTake(answer, *directory, name, errors, flags);
}

void MeasuredMount::createAndTake(const Answer& answer, Inode& directory, const std::string& name, const Errors& errors,
                                  int flags) {
    InodePtr inode = directory.child(name);
    if (succeeded(answer, errors)) {
        if (!inode)
            inode = make(directory, name, false);
        if ((flags & O_TRUNC) != 0)
            inode->bytes.clear();
    }
    if (answer.error != 0)
        return;
    if (!inode)
        inode = std::make_shared<Inode>();
    takeNode(answer.body, inode);
    addFile(std::string_view(answer.body).substr(sizeof(fuse_entry_out)), fromBytes<fuse_entry_out>(answer.body).nodeid,
            inode, flags);
}

void MeasuredMount::addFile(std::string_view opened, std::uint64_t node, const InodePtr& inode, int flags) {
    const int access = flags & O_ACCMODE;
    files_.push_back(
        {fromBytes<fuse_open_out>(opened).fh, node, inode, access != O_WRONLY || readsToWrite_, access != O_RDONLY});
}

void MeasuredMount::makeDirectory(std::size_t node, const std::string& name) {
    const InodePtr directory = nodes_[node].inode;
    fuse_mkdir_in request{};
    request.mode = 0755;
    const Answer answer = kernel_.call(FUSE_MKDIR, nodes_[node].id, bytesOf(request) + terminated(name));
    if (succeeded(answer, errorsOfMaking(*directory, name)))
        make(*directory, name, true);
    if (answer.error == 0)
        takeNode(answer.body, directory->child(name));
}

void MeasuredMount::makeFile(std::size_t node, const std::string& name) {
    const InodePtr directory = nodes_[node].inode;
    fuse_mknod_in request{};
    request.mode = S_IFREG | 0644;
    const Answer answer = kernel_.call(FUSE_MKNOD, nodes_[node].id, bytesOf(request) + terminated(name));
    if (succeeded(answer, errorsOfMaking(*directory, name)))
        make(*directory, name, false);
    if (answer.error == 0)
        takeNode(answer.body, directory->child(name));
}

void MeasuredMount::makeOddities(std::size_t node, const std::string& name) {
    fuse_mknod_in pipe{};
    pipe.mode = S_IFIFO | 0644;
    const std::uint64_t directory = nodes_[node].id;
    for (const Answer& answer :
         {kernel_.call(FUSE_MKNOD, directory, bytesOf(pipe) + terminated(name)),
          kernel_.call(FUSE_SYMLINK, directory, terminated(name) + terminated("elsewhere")),
          kernel_.call(FUSE_LINK, directory, bytesOf(fuse_link_in{nodes_.back().id}) + terminated(name))})
        require(answer.error != 0, "what helpers do not have cannot be made");
}

void MeasuredMount::removeFile(std::size_t node, const std::string& name) {
    lookup(node, name); // as the kernel does
    const InodePtr directory = nodes_[node].inode;
    const Answer answer = kernel_.call(FUSE_UNLINK, nodes_[node].id, terminated(name));
    if (succeeded(answer, errorsOfRemovingFile(*directory, name)))
        remove(*directory, name);
}

void MeasuredMount::removeDirectory(std::size_t node, const std::string& name) {
    lookup(node, name);
    const InodePtr directory = nodes_[node].inode;
    const Answer answer = kernel_.call(FUSE_RMDIR, nodes_[node].id, terminated(name));
    if (succeeded(answer, errorsOfRemovingDirectory(*directory, name)))
        remove(*directory, name);
}

void MeasuredMount::rename(std::size_t from, const std::string& name, std::size_t to, const std::string& newName,
                           bool replaces) {
    lookup(from, name);
    lookup(to, newName);
    const InodePtr source = nodes_[from].inode->child(name);
    const InodePtr target = nodes_[to].inode->child(newName);
    // The kernel itself sees to it that nothing moves into itself.
    if ((source && isWithin(*nodes_[to].inode, *source)) || (target && isWithin(*nodes_[from].inode, *target)))
        return;
    fuse_rename2_in request{};
    request.newdir = nodes_[to].id;
    request.flags = replaces ? 0 : RENAME_NOREPLACE;
    const Answer answer =
        kernel_.call(FUSE_RENAME2, nodes_[from].id, bytesOf(request) + terminated(name) + terminated(newName));
    if (succeeded(answer, errorsOfRename(*nodes_[from].inode, name, *nodes_[to].inode, newName, replaces)))
        fuzz::rename(*nodes_[from].inode, name, *nodes_[to].inode, newName);
}

void MeasuredMount::open(std::size_t node, int flags) {
    const InodePtr inode = nodes_[node].inode;
    Errors errors = errorsOfNode(*inode);
    if (inode->isDirectory)
        errors.insert(EISDIR);
    fuse_open_in request{};
    request.flags = static_cast<std::uint32_t>(flags);
    const Answer answer = kernel_.call(FUSE_OPEN, nodes_[node].id, bytesOf(request));
    if (succeeded(answer, errors) && (flags & O_TRUNC) != 0)
        inode->bytes.clear();
    if (answer.error == 0)
        addFile(answer.body, nodes_[node].id, inode, flags);
}

void MeasuredMount::read(std::size_t file, std::uint64_t offset, std::uint32_t size) {
    const OpenFile& opened = files_[file];
    if (!opened.reads)
        return;
    fuse_read_in request{};
    request.fh = opened.handle;
    request.offset = offset;
    request.size = size;
    const Answer answer = kernel_.call(FUSE_READ, opened.node, bytesOf(request));
    require(answer.body.size() <= size, "a read gives no more than was asked for");
    const std::string& bytes = opened.inode->bytes;
    if (succeeded(answer, {}) && isExact_)
        require(answer.body == (offset < bytes.size() ? bytes.substr(offset, size) : ""),
                "a read gives what was written");
}

void MeasuredMount::write(std::size_t file, std::uint64_t offset, std::uint32_t size) {
    const OpenFile& opened = files_[file];
    if (!opened.writes)
        return;
    const std::string contents(size, static_cast<char>('a' + writes_++ % 26));
    fuse_write_in request{};
    request.fh = opened.handle;
    request.offset = offset;
    request.size = size;
    const Answer answer = kernel_.call(FUSE_WRITE, opened.node, bytesOf(request) + contents);
    if (!succeeded(answer, {}))
        return;
    const std::uint32_t written = fromBytes<fuse_write_out>(answer.body).size;
    require(written <= size && (!isExact_ || written == size), "a write takes what it was given");
    std::string& bytes = opened.inode->bytes;
    bytes.resize(std::max<std::size_t>(bytes.size(), offset + written), '\0');
    bytes.replace(offset, written, contents, 0, written);
}

void MeasuredMount::flush(std::size_t file) {
    fuse_flush_in request{};
    request.fh = files_[file].handle;
    succeeded(kernel_.call(FUSE_FLUSH, files_[file].node, bytesOf(request)), {});
}

void MeasuredMount::synchronize(std::size_t file) {
    fuse_fsync_in request{};
    request.fh = files_[file].handle;
    succeeded(kernel_.call(FUSE_FSYNC, files_[file].node, bytesOf(request)), {});
}

void MeasuredMount::release(std::size_t file) {
    fuse_release_in request{};
    request.fh = files_[file].handle;
    succeeded(kernel_.call(FUSE_RELEASE, files_[file].node, bytesOf(request)), {});
    files_.erase(files_.begin() + static_cast<std::ptrdiff_t>(file));
}

void MeasuredMount::openDirectory(std::size_t node) {
    const InodePtr inode = nodes_[node].inode;
    const Answer answer = kernel_.call(FUSE_OPENDIR, nodes_[node].id, bytesOf(fuse_open_in{}));
    Errors errors;
    if (!inode->isDirectory)
        errors.insert(ENOTDIR);
    if (inode->isRemoved && answer.error != 0) // it may be opened, and is empty
        errors.insert(ESTALE);
    if (succeeded(answer, errors))
        directories_.push_back({fromBytes<fuse_open_out>(answer.body).fh, nodes_[node].id, inode});
}

void MeasuredMount::list(std::size_t directory, std::uint32_t bufferSize, bool withAttributes) {
    const OpenDirectory opened = directories_[directory];
    std::multiset<std::string> names;
    fuse_read_in request{};
    request.fh = opened.handle;
    request.size = bufferSize;
    while (true) {
        const Answer answer =
            kernel_.call(withAttributes ? FUSE_READDIRPLUS : FUSE_READDIR, opened.node, bytesOf(request));
        require(answer.body.size() <= bufferSize, "a listing is no longer than was asked for");
        if (!succeeded(answer, {}))
            return;
        if (answer.body.empty())
            break;
        request.offset = takeEntries(answer.body, *opened.inode, withAttributes, names);
    }
    std::multiset<std::string> expected;
    if (!opened.inode->isRemoved)
        expected = {".", ".."};
    for (const auto& [name, inode] : opened.inode->entries)
        expected.insert(name);
    if (isExact_)
        require(names == expected, "a listing tells each entry once");
}

std::size_t MeasuredMount::takeEntries(const std::string& body, const Inode& directory, bool withAttributes,
                                       std::multiset<std::string>& names) {
    std::size_t next = 0;
    for (std::size_t at = 0; at < body.size();) {
        const std::size_t front = withAttributes ? sizeof(fuse_entry_out) : 0;
        const auto entry = fromBytes<fuse_dirent>(body, at + front);
        const std::string name = body.substr(at + front + FUSE_NAME_OFFSET, entry.namelen);
        require(name.size() == entry.namelen && entry.off > next, "entries are whole and in order");
        if (withAttributes && fromBytes<fuse_entry_out>(body, at).nodeid != 0)
            takeNode(std::string_view(body).substr(at), directory.child(name));
        names.insert(name);
        next = entry.off;
        at += FUSE_DIRENT_ALIGN(front + FUSE_NAME_OFFSET + entry.namelen);
    }
    return next;
}

void MeasuredMount::releaseDirectory(std::size_t directory) {
    fuse_release_in request{};
    request.fh = directories_[directory].handle;
    succeeded(kernel_.call(FUSE_RELEASEDIR, directories_[directory].node, bytesOf(request)), {});
    directories_.erase(directories_.begin() + static_cast<std::ptrdiff_t>(directory));
}

void MeasuredMount::figures() {
    succeeded(kernel_.call(FUSE_STATFS, rootNode), {});
}

void MeasuredMount::idle() {
    kernel_.idle();
}

void MeasuredMount::compareServed(const std::string& path, const Inode& directory) const {
    std::vector<std::string> expected;
    for (const auto& [name, inode] : directory.entries)
        expected.push_back(name);
    require(served_.names(path.empty() ? "/" : path) == expected, "the helper serves the names that there should be");
    for (const auto& [name, inode] : directory.entries) {
        const std::string beneath = path + "/" + name;
        if (inode->isDirectory)
            compareServed(beneath, *inode);
        else
            require(served_.bytes(beneath) == inode->bytes, "the helper has the bytes that were written");
    }
}

void MeasuredMount::end() {
    served_.before = {};
    while (!files_.empty())
        release(files_.size() - 1);
    while (!directories_.empty())
        releaseDirectory(directories_.size() - 1);
    idle();
    if (isExact_)
        compareServed("", *root_);
    while (nodes_.size() > 1)
        forget(nodes_.size() - 1, nodes_.back().lookups);
    require(kernel_.nodes() == 1, "no node outlives the kernel's references");
    kernel_.end();
    require(served_.openHandles() == 0, "every handle of the helper is given back");
}

} // namespace fuzz
