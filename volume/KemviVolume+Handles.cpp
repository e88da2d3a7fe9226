#include "volume/KemviVolume.h"

#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"
#include "volume/ItemChecks.h"

#include <algorithm>
#include <vector>

namespace kemvi {
namespace {

using foundation::tellingSubject;
using fskit::FSVolumeOpenModes;

std::uint64_t key(const KemviItem& item) {
    return static_cast<std::uint64_t>(item.identifier());
}

const KemviItem& checkedFile(const fskit::FSItemPtr& item) {
    const KemviItem& known = checkedItem(item, foundation::posixErrno::EINVAL_);
    if (known.isDirectory())
        foundation::throwPosix(foundation::posixErrno::EISDIR_);
    return known;
}

const KemviItem& checkedFile(const fskit::FSItemPtr& item, std::int64_t offset) {
    const KemviItem& known = checkedFile(item);
    if (offset < 0)
        foundation::throwPosix(foundation::posixErrno::EINVAL_);
    return known;
}

} // namespace

std::int64_t KemviVolume::openReadHandle(const KemviItem& item) {
    static const std::vector<std::string> flags{"read"};
    return openHandle(readHandles_, flags, item);
}

std::int64_t KemviVolume::openWriteHandle(const KemviItem& item) {
    static const std::vector<std::string> flags{"write", "create"};
    return openHandle(writeHandles_, flags, item);
}

std::int64_t KemviVolume::openHandle(HandleTable& table, const std::vector<std::string>& flags, const KemviItem& item) {
    {
        std::lock_guard guard(handlesLock_);
        if (const auto found = table.find(key(item)); found != table.end())
            return found->second.handle;
    }
    HelperClient& client = requireClient();
    const std::int64_t opened = client.open(item.path(), flags);
    std::unique_lock guard(handlesLock_);
    const auto [entry, stored] = table.try_emplace(key(item), OpenHandle{opened, item.path()});
    const std::int64_t handle = entry->second.handle;
    guard.unlock();
    if (!stored) // another thread was first: its handle is the shared one, ours goes back
        fskit::caughtError([&] { client.release(opened); });
    return handle;
}

void KemviVolume::releaseReadHandle(const KemviItem& item) {
    releaseHandle(readHandles_, item);
}

void KemviVolume::releaseWriteHandle(const KemviItem& item) {
    releaseHandle(writeHandles_, item);
}

void KemviVolume::releaseHandle(HandleTable& table, const KemviItem& item) {
    std::unique_lock guard(handlesLock_);
    const auto removed = table.extract(key(item));
    guard.unlock();
    if (!removed.empty())
        tellingSubject(removed.mapped().path, [&] { requireClient().release(removed.mapped().handle); });
}

void KemviVolume::releaseHandles(const KemviItem& item) {
    releaseReadHandle(item);
    releaseWriteHandle(item);
}

void KemviVolume::flushAllWriteHandles() {
    std::vector<OpenHandle> handles;
    {
        std::lock_guard guard(handlesLock_);
        handles.reserve(writeHandles_.size());
        for (const auto& [identifier, open] : writeHandles_)
            handles.push_back(open);
    }
    for (const OpenHandle& open : handles)
        tellingSubject(open.path, [&] { requireClient().flush(open.handle); });
}

void KemviVolume::releaseAllHandles() {
    HandleTable reading;
    HandleTable writing;
    {
        std::lock_guard guard(handlesLock_);
        reading.swap(readHandles_);
        writing.swap(writeHandles_);
    }
    if (!client_)
        return;
    for (const HandleTable* table : {&reading, &writing})
        for (const auto& [identifier, open] : *table)
            if (const auto error = fskit::caughtError([&, handle = open.handle] { client_->release(handle); }))
                logger().error({"failed to release helper handle for ", foundation::logPublic(open.path), ": ",
                                foundation::logPublic(error->description())});
}

void KemviVolume::openItem(const fskit::FSItemPtr& item, FSVolumeOpenModes modes, fskit::ErrorReply reply) {
    fskit::answer(reply, [&] {
        const KemviItem& file = checkedFile(item);
        if (contains(modes, FSVolumeOpenModes::read))
            openReadHandle(file);
        if (contains(modes, FSVolumeOpenModes::write))
            openWriteHandle(file);
    });
}

void KemviVolume::closeItem(const fskit::FSItemPtr& item, FSVolumeOpenModes modes, fskit::ErrorReply reply) {
    fskit::answer(reply, [&] {
        const KemviItem& known = checkedItem(item, foundation::posixErrno::EINVAL_);
        if (!contains(modes, FSVolumeOpenModes::read))
            releaseReadHandle(known);
        if (!contains(modes, FSVolumeOpenModes::write))
            releaseWriteHandle(known);
    });
}

void KemviVolume::read(const fskit::FSItemPtr& item, std::int64_t offset, std::int64_t length,
                       fskit::FSMutableFileDataBuffer& buffer, fskit::CountReply reply) {
    fskit::answer(reply, [&]() -> std::size_t {
        const KemviItem& file = checkedFile(item, offset);
        if (length <= 0)
            return 0;
        const std::int64_t handle = openReadHandle(file);
        const std::span<std::byte> into(buffer.mutableBytes(), buffer.length());
        const auto wanted = std::min(length, static_cast<std::int64_t>(into.size()));
        const std::size_t returned =
            tellingSubject(file.path(), [&] { return requireClient().read(handle, offset, wanted, into); });
        return std::min(into.size(), returned); // what came beyond the buffer was dropped
    });
}

void KemviVolume::write(std::span<const std::byte> contents, const fskit::FSItemPtr& item, std::int64_t offset,
                        fskit::CountReply reply) {
    fskit::answer(reply, [&] {
        const KemviItem& file = checkedFile(item, offset);
        const std::int64_t handle = openWriteHandle(file);
        tellingSubject(file.path(), [&] { requireClient().write(handle, offset, contents); });
        return contents.size(); // the helper reports no count: what it accepts is written
    });
}

} // namespace kemvi
