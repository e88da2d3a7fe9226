#include "volume/KemviVolume.h"

#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"
#include "volume/ItemChecks.h"
#include "volume/KemviAttributes.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace kemvi {
namespace {

using fskit::FSItemAttribute;

const std::vector<std::string>& createAndTruncate() {
    static const std::vector<std::string> flags{"write", "create", "truncate"};
    return flags;
}

const std::vector<std::string>& readOnly() {
    static const std::vector<std::string> flags{"read"};
    return flags;
}

// Runs `work` on a handle just opened and gives the handle back whatever came of it. What the helper says to giving
// it back is not wanted: the outcome of the work is the answer.
template <typename Work>
auto withHandle(HelperClient& client, std::int64_t handle, Work&& work) {
    struct GivesBack {
        HelperClient& client;
        std::int64_t handle;

        ~GivesBack() {
            fskit::caughtError([this] { client.release(handle); });
        }
    } givesBack{client, handle};

    return work();
}

void markConsumed(fskit::FSItemSetAttributesRequest& request, FSItemAttribute attribute) {
    request.setConsumedAttributes(request.consumedAttributes() | attribute);
}

std::int64_t signedSize(std::uint64_t size) {
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        foundation::fatalError("requested file size does not fit a signed 64-bit count");
    return static_cast<std::int64_t>(size);
}

foundation::Date dateFrom(timespec time) {
    return {static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1'000'000'000.0};
}

} // namespace

void KemviVolume::setAttributes(fskit::FSItemSetAttributesRequest& newAttributes, const fskit::FSItemPtr& item,
                                fskit::AttributesReply reply) {
    fskit::answer(reply, [&]() -> std::optional<fskit::FSItemAttributes> {
        const KemviItem& known = checkedItem(item, foundation::posixErrno::EINVAL_);
        HelperClient& client = requireClient();
        if (newAttributes.isValid(FSItemAttribute::size) && !known.isDirectory()) {
            foundation::tellingSubject(known.path(), [&] { resizeFile(known, signedSize(newAttributes.size())); });
            markConsumed(newAttributes, FSItemAttribute::size);
        }
        if (newAttributes.isValid(FSItemAttribute::mode)) {
            client.chmod(known.path(), newAttributes.mode() & 0xfff);
            markConsumed(newAttributes, FSItemAttribute::mode);
        }
        if (newAttributes.isValid(FSItemAttribute::modifyTime)) {
            client.utimes(known.path(), dateFrom(newAttributes.modifyTime()));
            markConsumed(newAttributes, FSItemAttribute::modifyTime);
        }
        return statAttributes(known.path());
    });
}

// The helper has no truncate: what is to stay is read, the file emptied, and what was read written back.
void KemviVolume::resizeFile(const KemviItem& item, std::int64_t size) {
    if (size < 0)
        foundation::throwPosix(foundation::posixErrno::EINVAL_);
    releaseHandles(item);
    HelperClient& client = requireClient();
    std::vector<std::byte> head;
    if (size > 0 && item.size() > 0) {
        const std::int64_t source = client.open(item.path(), readOnly());
        head = withHandle(client, source, [&] { return client.read(source, 0, std::min(item.size(), size)); });
    }
    const std::int64_t target = client.open(item.path(), createAndTruncate());
    withHandle(client, target, [&] {
        if (!head.empty())
            client.write(target, 0, head);
        if (static_cast<std::uint64_t>(head.size()) < static_cast<std::uint64_t>(size)) {
            const std::byte zero{0};
            client.write(target, size - 1, {&zero, 1}); // one byte at the end gives the file its size
        }
        client.flush(target);
    });
}

void KemviVolume::createItem(const fskit::FSFileName& name, fskit::FSItemType type, const fskit::FSItemPtr& directory,
                             fskit::FSItemSetAttributesRequest&, fskit::NamedItemReply reply) {
    fskit::answer(reply, [&] {
        const KemviItem& parent = checkedDirectory(directory, foundation::posixErrno::ENOTDIR_);
        const std::string path = joinPath(parent.path(), checkedNewName(name));
        if (type == fskit::FSItemType::file) {
            HelperClient& client = requireClient();
            const std::int64_t made = client.open(path, createAndTruncate());
            foundation::tellingSubject(path, [&] { client.release(made); });
        } else if (type == fskit::FSItemType::directory) {
            requireClient().mkdir(path);
        } else {
            foundation::throwPosix(foundation::posixErrno::ENOTSUP_);
        }
        return statItem(path);
    });
}

void KemviVolume::createSymbolicLink(const fskit::FSFileName&, const fskit::FSItemPtr&,
                                     fskit::FSItemSetAttributesRequest&, const fskit::FSFileName&,
                                     fskit::NamedItemReply reply) {
    reply(nullptr, std::nullopt, foundation::NSError::posix(foundation::posixErrno::ENOTSUP_));
}

void KemviVolume::createLink(const fskit::FSItemPtr&, const fskit::FSFileName&, const fskit::FSItemPtr&,
                             fskit::NameReply reply) {
    reply(std::nullopt, foundation::NSError::posix(foundation::posixErrno::ENOTSUP_));
}

void KemviVolume::removeItem(const fskit::FSItemPtr& item, const fskit::FSFileName&, const fskit::FSItemPtr&,
                             fskit::ErrorReply reply) {
    fskit::answer(reply, [&] {
        const KemviItem& known = checkedItem(item, foundation::posixErrno::EINVAL_);
        releaseHandles(known);
        requireClient().unlink(known.path());
    });
}

void KemviVolume::renameItem(const fskit::FSItemPtr& item, const fskit::FSItemPtr&, const fskit::FSFileName&,
                             const fskit::FSFileName& destinationName, const fskit::FSItemPtr& destinationDirectory,
                             const fskit::FSItemPtr& overItem, fskit::NameReply reply) {
    fskit::answer(reply, [&]() -> std::optional<fskit::FSFileName> {
        const KemviItem& moved = checkedItem(item, foundation::posixErrno::EINVAL_);
        const KemviItem& directory = checkedDirectory(destinationDirectory, foundation::posixErrno::EINVAL_);
        const std::string_view name = checkedNewName(destinationName);
        releaseHandles(moved);
        if (const auto* replaced = dynamic_cast<const KemviItem*>(overItem.get())) {
            releaseHandles(*replaced);
            requireClient().unlink(replaced->path());
        }
        requireClient().rename(moved.path(), joinPath(directory.path(), name));
        return fskit::FSFileName(name);
    });
}

} // namespace kemvi
