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
    return openHandle(Direction::reading, flags, item);
}

std::int64_t KemviVolume::openWriteHandle(const KemviItem& item) {
    static const std::vector<std::string> flags{"write", "create"};
    return openHandle(Direction::writing, flags, item);
}

std::int64_t KemviVolume::openHandle(Direction direction, const std::vector<std::string>& flags,
                                     const KemviItem& item) {
    if (const auto open = handles_->find(direction, item.identifier()))
        return *open;
    HelperClient& client = requireClient();
    const std::int64_t opened = client.open(item.path(), flags);
    const auto shared = handles_->share(direction, item.identifier(), {opened, item.path()});
    if (!shared.isOurs)
        fskit::caughtError([&] { client.release(opened); });
    return shared.handle;
}

void KemviVolume::releaseReadHandle(const KemviItem& item) {
    releaseHandle(Direction::reading, item);
}

void KemviVolume::releaseWriteHandle(const KemviItem& item) {
    releaseHandle(Direction::writing, item);
}

void KemviVolume::releaseHandle(Direction direction, const KemviItem& item) {
    if (const auto open = handles_->take(direction, item.identifier()))
        tellingSubject(open->path, [&] { requireClient().release(open->handle); });
}

void KemviVolume::releaseHandles(const KemviItem& item) {
    releaseReadHandle(item);
    releaseWriteHandle(item);
}

void KemviVolume::flushAllWriteHandles() {
    for (const OpenHandle& open : handles_->all(Direction::writing))
        tellingSubject(open.path, [&] { requireClient().flush(open.handle); });
}

void KemviVolume::releaseAllHandles() {
    const std::vector<OpenHandle> handles = handles_->takeAll();
    if (!client_)
        return;
    for (const OpenHandle& open : handles)
        if (const auto error = fskit::caughtError([&] { client_->release(open.handle); }))
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
