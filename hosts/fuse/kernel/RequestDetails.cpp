#include "hosts/fuse/kernel/RequestDetails.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <linux/fuse.h>
#include <string>

namespace fusehost {
namespace {

using Argument = RequestEvent::Argument;

std::string_view bodyOf(const KernelRequest& request) {
    if (request.size <= sizeof(fuse_in_header))
        return {};
    return {static_cast<const char*>(request.memory.get()) + sizeof(fuse_in_header),
            request.size - sizeof(fuse_in_header)};
}

/// The kernel's structure at the front; what is missing of it is zero.
template <typename Structure>
Structure frontOf(std::string_view body) {
    Structure structure{};
    std::memcpy(&structure, body.data(), std::min(body.size(), sizeof structure));
    return structure;
}

/// The text that begins at `offset` and ends with byte 0.
std::string_view textAt(std::string_view body, std::size_t offset) {
    if (offset >= body.size())
        return {};
    const std::string_view rest = body.substr(offset);
    return rest.substr(0, rest.find('\0'));
}

std::string_view textAfter(std::string_view body, std::size_t offset) {
    return textAt(body, offset + textAt(body, offset).size() + 1);
}

using Operations = std::array<KernelOperation, 64>;

constexpr Operations makeOperations() {
    Operations known{};
    known.fill(KernelOperation::other);
    known[FUSE_LOOKUP] = KernelOperation::lookup;
    known[FUSE_FORGET] = KernelOperation::forget;
    known[FUSE_BATCH_FORGET] = KernelOperation::forget;
    known[FUSE_GETATTR] = KernelOperation::getattr;
    known[FUSE_SETATTR] = KernelOperation::setattr;
    known[FUSE_ACCESS] = KernelOperation::access;
    known[FUSE_READLINK] = KernelOperation::readlink;
    known[FUSE_SYMLINK] = KernelOperation::symlink;
    known[FUSE_MKNOD] = KernelOperation::mknod;
    known[FUSE_MKDIR] = KernelOperation::mkdir;
    known[FUSE_UNLINK] = KernelOperation::unlink;
    known[FUSE_RMDIR] = KernelOperation::rmdir;
    known[FUSE_RENAME] = KernelOperation::rename;
    known[FUSE_RENAME2] = KernelOperation::rename;
    known[FUSE_LINK] = KernelOperation::link;
    known[FUSE_CREATE] = KernelOperation::create;
    known[FUSE_OPEN] = KernelOperation::open;
    known[FUSE_READ] = KernelOperation::read;
    known[FUSE_WRITE] = KernelOperation::write;
    known[FUSE_FLUSH] = KernelOperation::flush;
    known[FUSE_RELEASE] = KernelOperation::release;
    known[FUSE_FSYNC] = KernelOperation::fsync;
    known[FUSE_OPENDIR] = KernelOperation::opendir;
    known[FUSE_READDIR] = KernelOperation::readdir;
    known[FUSE_READDIRPLUS] = KernelOperation::readdirplus;
    known[FUSE_RELEASEDIR] = KernelOperation::releasedir;
    known[FUSE_FSYNCDIR] = KernelOperation::fsyncdir;
    known[FUSE_STATFS] = KernelOperation::statfs;
    known[FUSE_SETXATTR] = KernelOperation::setxattr;
    known[FUSE_GETXATTR] = KernelOperation::getxattr;
    known[FUSE_LISTXATTR] = KernelOperation::listxattr;
    known[FUSE_REMOVEXATTR] = KernelOperation::removexattr;
    known[FUSE_INIT] = KernelOperation::init;
    return known;
}

KernelOperation operationOf(std::uint32_t opcode) {
    static constexpr Operations known = makeOperations();
    return opcode < known.size() ? known[opcode] : KernelOperation::other;
}

/// The name that stands in the body of a request about a name in a directory.
std::string_view nameIn(std::string_view body, std::uint32_t opcode) {
    switch (opcode) {
    case FUSE_LOOKUP:
    case FUSE_UNLINK:
    case FUSE_RMDIR:
    case FUSE_SYMLINK: return textAt(body, 0);
    case FUSE_MKNOD: return textAt(body, sizeof(fuse_mknod_in));
    case FUSE_MKDIR: return textAt(body, sizeof(fuse_mkdir_in));
    case FUSE_CREATE: return textAt(body, sizeof(fuse_create_in));
    case FUSE_LINK: return textAt(body, sizeof(fuse_link_in));
    case FUSE_RENAME: return textAt(body, sizeof(fuse_rename_in));
    case FUSE_RENAME2: return textAt(body, sizeof(fuse_rename2_in));
    default: return {};
    }
}

std::int64_t number(std::uint64_t value) {
    return static_cast<std::int64_t>(value);
}

void addAttributes(std::vector<Argument>& arguments, const fuse_setattr_in& wanted) {
    const auto asksFor = [&](std::uint32_t bits) { return (wanted.valid & bits) != 0; };
    if (asksFor(FATTR_SIZE))
        arguments.emplace_back("size", number(wanted.size));
    if (asksFor(FATTR_MODE))
        arguments.emplace_back("mode", number(wanted.mode));
    if (asksFor(FATTR_UID))
        arguments.emplace_back("owner", number(wanted.uid));
    if (asksFor(FATTR_GID))
        arguments.emplace_back("group", number(wanted.gid));
    if (asksFor(FATTR_MTIME))
        arguments.emplace_back("mtime", number(wanted.mtime));
    if (asksFor(FATTR_ATIME))
        arguments.emplace_back("atime", number(wanted.atime));
}

} // namespace

RequestHead headOf(const KernelRequest& request) {
    fuse_in_header header{};
    if (request.size >= sizeof header)
        std::memcpy(&header, request.memory.get(), sizeof header);
    RequestHead head;
    head.operation = operationOf(header.opcode);
    head.opcode = header.opcode;
    head.node = header.nodeid;
    head.name = nameIn(bodyOf(request), header.opcode);
    head.thread = header.pid;
    head.user = header.uid;
    return head;
}

std::vector<Argument> argumentsOf(const KernelRequest& request) {
    const std::string_view body = bodyOf(request);
    std::vector<Argument> arguments;
    switch (request.opcode()) {
    case FUSE_READ:
    case FUSE_READDIR:
    case FUSE_READDIRPLUS: {
        const auto asked = frontOf<fuse_read_in>(body);
        arguments = {{"offset", number(asked.offset)}, {"size", number(asked.size)}};
        break;
    }
    case FUSE_WRITE: {
        const auto asked = frontOf<fuse_write_in>(body);
        arguments = {{"offset", number(asked.offset)}, {"size", number(asked.size)}};
        break;
    }
    case FUSE_OPEN: arguments = {{"flags", number(frontOf<fuse_open_in>(body).flags)}}; break;
    case FUSE_CREATE: {
        const auto asked = frontOf<fuse_create_in>(body);
        arguments = {{"flags", number(asked.flags)}, {"mode", number(asked.mode)}};
        break;
    }
    case FUSE_MKNOD: arguments = {{"mode", number(frontOf<fuse_mknod_in>(body).mode)}}; break;
    case FUSE_MKDIR: arguments = {{"mode", number(frontOf<fuse_mkdir_in>(body).mode)}}; break;
    case FUSE_ACCESS: arguments = {{"mask", number(frontOf<fuse_access_in>(body).mask)}}; break;
    case FUSE_SYMLINK: arguments = {{"target", std::string(textAfter(body, 0))}}; break;
    case FUSE_RENAME2: arguments = {{"flags", number(frontOf<fuse_rename2_in>(body).flags)}}; break;
    case FUSE_SETATTR: addAttributes(arguments, frontOf<fuse_setattr_in>(body)); break;
    case FUSE_FORGET: arguments = {{"lookups", number(frontOf<fuse_forget_in>(body).nlookup)}}; break;
    case FUSE_BATCH_FORGET: arguments = {{"nodes", number(frontOf<fuse_batch_forget_in>(body).count)}}; break;
    case FUSE_GETXATTR: arguments = {{"name", std::string(textAt(body, sizeof(fuse_getxattr_in)))}}; break;
    case FUSE_REMOVEXATTR: arguments = {{"name", std::string(textAt(body, 0))}}; break;
    default:
        if (operationOf(request.opcode()) == KernelOperation::other)
            arguments = {{"opcode", number(request.opcode())}};
    }
    return arguments;
}

NodeArgument nodeArgumentOf(const KernelRequest& request) {
    const std::string_view body = bodyOf(request);
    switch (request.opcode()) {
    case FUSE_RENAME: return {"to", frontOf<fuse_rename_in>(body).newdir, textAfter(body, sizeof(fuse_rename_in))};
    case FUSE_RENAME2: return {"to", frontOf<fuse_rename2_in>(body).newdir, textAfter(body, sizeof(fuse_rename2_in))};
    case FUSE_LINK: return {"from", frontOf<fuse_link_in>(body).oldnodeid, {}};
    default: return {};
    }
}

} // namespace fusehost
