#include "MemoryVolume.h"

#include "foundation/PosixErrno.h"
#include "fskit/Answer.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace fusehosttests {

namespace posixErrno = foundation::posixErrno;

using foundation::throwPosix;
using fskit::FSItemAttribute;
using fskit::FSItemAttributes;
using fskit::FSItemPtr;
using fskit::FSItemType;
using fskit::FSVolumeOpenModes;

namespace {

std::string joined(const std::string& directory, const std::string& name) {
    return directory == "/" ? "/" + name : directory + "/" + name;
}

// Gives the handle back whatever comes of the work, whose outcome is the answer.
template <typename Work>
void withHandle(ServedTree& tree, std::int64_t handle, Work&& work) {
    const auto giveBack = [&] { fskit::caughtError([&] { tree.release(handle); }); };
    try {
        work();
    } catch (...) {
        giveBack();
        throw;
    }
    giveBack();
}

} // namespace

fskit::FSItemID MemoryVolume::identifier(const std::string& path) const {
    if (const auto given = identifiers.find(path); given != identifiers.end())
        return static_cast<fskit::FSItemID>(given->second);
    return path == "/" ? fskit::FSItemID::rootDirectory
                       : static_cast<fskit::FSItemID>(std::hash<std::string>()(path) | 4);
}

FSItemAttributes MemoryVolume::record(const std::string& path, const ServedTree::Facts& facts) const {
    FSItemAttributes attributes;
    attributes.setType(facts.isDirectory ? FSItemType::directory : FSItemType::file);
    attributes.setMode(facts.isDirectory ? 0040755 : 0100644);
    attributes.setLinkCount(facts.isDirectory ? 2 : 1);
    attributes.setUid(1000);
    attributes.setGid(1000);
    attributes.setSize(facts.size);
    attributes.setAllocSize((facts.size + 4095) / 4096 * 4096);
    attributes.setFileID(identifier(path));
    attributes.setModifyTime({facts.modified, 0});
    return attributes;
}

struct MemoryVolume::Item final : fskit::FSItem {
    Item(const MemoryVolume& itsVolume, std::string itsPath, ServedTree::Facts itsFacts)
        : volume(itsVolume), path(std::move(itsPath)), facts(itsFacts) {}

    std::optional<FSItemAttributes> knownAttributes() const override { return volume.record(path, facts); }

    fskit::FSItemID identifier() const override { return volume.identifier(path); }

    bool isSame(const FSItem& other) const override { return dynamic_cast<const Item&>(other).path == path; }

    bool hasMember(std::string_view name, fskit::FSItemID identifier) const override {
        return volume.identifier(joined(path, std::string(name))) == identifier;
    }

    std::shared_ptr<fskit::FSItem> member(std::string_view name, FSItemType type, std::uint64_t size) const override {
        return std::make_shared<Item>(volume, joined(path, std::string(name)),
                                      ServedTree::Facts{type == FSItemType::directory, size, 0});
    }

    const MemoryVolume& volume;
    const std::string path;
    const ServedTree::Facts facts;
};

MemoryVolume::MemoryVolume(ServedTree& tree)
    : FSVolume(fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("memory")), tree_(tree),
      root_(std::make_shared<Item>(*this, "/", ServedTree::Facts{true, 0, 0})) {}

MemoryVolume::Item& MemoryVolume::itemOf(const FSItemPtr& item) {
    return dynamic_cast<Item&>(*item);
}

void MemoryVolume::refuseDirectory(const FSItemPtr& item) {
    if (itemOf(item).facts.isDirectory)
        throwPosix(posixErrno::EISDIR_);
}

fskit::FSStatFSResult MemoryVolume::volumeStatistics() const {
    if (onStatistics)
        onStatistics();
    fskit::FSStatFSResult figures;
    figures.blockSize = 4096;
    figures.ioSize = 1 << 20;
    figures.totalBlocks = 1000;
    figures.freeBlocks = 900;
    figures.availableBlocks = 800;
    figures.totalFiles = 70;
    figures.freeFiles = 60;
    return figures;
}

void MemoryVolume::mount(const fskit::FSTaskOptions&, fskit::ErrorReply reply) {
    reply(std::nullopt);
}

void MemoryVolume::unmount(fskit::Reply<> reply) {
    for (Handles* handles : {&reading_, &writing_})
        while (!handles->empty())
            fskit::caughtError([&] { giveBack(*handles, handles->begin()->first); });
    reply();
}

void MemoryVolume::activate(const fskit::FSTaskOptions&, fskit::ItemReply reply) {
    reply(root_, std::nullopt);
}

void MemoryVolume::deactivate(fskit::FSDeactivateOptions, fskit::ErrorReply reply) {
    ended_ = true;
    reply(std::nullopt);
}

void MemoryVolume::synchronize(fskit::FSSyncFlags, fskit::ErrorReply reply) {
    called();
    fskit::answer(reply, [&] {
        for (const auto& [identifier, handle] : writing_)
            tree_.flush(handle);
        tree_.statfs();
    });
}

void MemoryVolume::getAttributes(const fskit::FSItemGetAttributesRequest&, const FSItemPtr& item,
                                 fskit::AttributesReply reply) {
    called();
    fskit::answer(reply, [&]() -> std::optional<FSItemAttributes> {
        const std::string& path = itemOf(item).path;
        if (path == "/")
            return record(path, itemOf(item).facts);
        return record(tree_.reportedPath(path), tree_.getattr(path));
    });
}

void MemoryVolume::setAttributes(fskit::FSItemSetAttributesRequest& request, const FSItemPtr& item,
                                 fskit::AttributesReply reply) {
    called();
    fskit::answer(reply, [&]() -> std::optional<FSItemAttributes> {
        const Item& known = itemOf(item);
        if (request.isValid(FSItemAttribute::size) && !known.facts.isDirectory)
            resize(known, request.size());
        if (request.isValid(FSItemAttribute::mode))
            tree_.chmod(known.path, request.mode() & 07777);
        if (request.isValid(FSItemAttribute::modifyTime))
            tree_.utimes(known.path, static_cast<double>(request.modifyTime().tv_sec) +
                                         static_cast<double>(request.modifyTime().tv_nsec) / 1e9);
        return record(tree_.reportedPath(known.path), tree_.getattr(known.path));
    });
}

void MemoryVolume::resize(const Item& item, std::uint64_t size) {
    giveBackBoth(item.path);
    std::vector<std::byte> head(static_cast<std::size_t>(std::min(size, item.facts.size)));
    if (!head.empty()) {
        const std::int64_t source = tree_.open(item.path, "read");
        withHandle(tree_, source, [&] { head.resize(tree_.read(source, 0, head)); }); // one, however short its answer
    }
    const std::int64_t target = tree_.open(item.path, "write,create,truncate");
    withHandle(tree_, target, [&] {
        if (!head.empty())
            tree_.write(target, 0, head);
        const std::byte zero{0};
        if (head.size() < size)
            tree_.write(target, static_cast<std::int64_t>(size) - 1, {&zero, 1});
        tree_.flush(target);
    });
}

std::pair<FSItemPtr, std::optional<fskit::FSFileName>> MemoryVolume::found(const std::string& path) {
    const ServedTree::Facts facts = tree_.getattr(path);
    return {std::make_shared<Item>(*this, tree_.reportedPath(path), facts), fskit::FSFileName(tree_.storedName(path))};
}

void MemoryVolume::lookupItem(const fskit::FSFileName& name, const FSItemPtr& directory, fskit::NamedItemReply reply) {
    called();
    fskit::answer(reply, [&] {
        if (!itemOf(directory).facts.isDirectory)
            throwPosix(posixErrno::ENOTDIR_);
        if (!name.string() || name.data().empty())
            throwPosix(posixErrno::EINVAL_);
        return found(joined(itemOf(directory).path, name.data()));
    });
}

void MemoryVolume::reclaimItem(const FSItemPtr&, fskit::ErrorReply reply) {
    ++reclaimed_;
    reply(std::nullopt);
    if (onReclaim)
        onReclaim();
}

void MemoryVolume::readSymbolicLink(const FSItemPtr&, fskit::NameReply reply) {
    called();
    reply(std::nullopt, foundation::NSError::posix(posixErrno::EINVAL_));
}

void MemoryVolume::createItem(const fskit::FSFileName& name, FSItemType type, const FSItemPtr& directory,
                              fskit::FSItemSetAttributesRequest&, fskit::NamedItemReply reply) {
    called();
    fskit::answer(reply, [&] {
        const std::string path = joined(itemOf(directory).path, name.data());
        if (type == FSItemType::file)
            tree_.release(tree_.open(path, "write,create,truncate"));
        else if (type == FSItemType::directory)
            tree_.mkdir(path);
        else
            throwPosix(posixErrno::ENOTSUP_);
        return found(path);
    });
}

void MemoryVolume::createSymbolicLink(const fskit::FSFileName&, const FSItemPtr&, fskit::FSItemSetAttributesRequest&,
                                      const fskit::FSFileName&, fskit::NamedItemReply reply) {
    called();
    reply(nullptr, std::nullopt, foundation::NSError::posix(posixErrno::ENOTSUP_));
}

void MemoryVolume::createLink(const FSItemPtr&, const fskit::FSFileName&, const FSItemPtr&, fskit::NameReply reply) {
    called();
    reply(std::nullopt, foundation::NSError::posix(posixErrno::ENOTSUP_));
}

void MemoryVolume::removeItem(const FSItemPtr& item, const fskit::FSFileName&, const FSItemPtr&,
                              fskit::ErrorReply reply) {
    called();
    fskit::answer(reply, [&] {
        giveBackBoth(itemOf(item).path);
        tree_.unlink(itemOf(item).path);
    });
}

void MemoryVolume::renameItem(const FSItemPtr& item, const FSItemPtr&, const fskit::FSFileName&,
                              const fskit::FSFileName& newName, const FSItemPtr& newDirectory,
                              const FSItemPtr& overItem, fskit::NameReply reply) {
    called();
    fskit::answer(reply, [&]() -> std::optional<fskit::FSFileName> {
        giveBackBoth(itemOf(item).path);
        if (overItem) {
            giveBackBoth(itemOf(overItem).path);
            tree_.unlink(itemOf(overItem).path);
        }
        tree_.rename(itemOf(item).path, joined(itemOf(newDirectory).path, newName.data()));
        return newName;
    });
}

void MemoryVolume::enumerateDirectory(const FSItemPtr& directory, fskit::FSDirectoryCookie, fskit::FSDirectoryVerifier,
                                      const fskit::FSItemGetAttributesRequest*, fskit::FSDirectoryEntryPacker& packer,
                                      fskit::VerifierReply reply) {
    called();
    const auto error = fskit::caughtError([&] {
        if (!itemOf(directory).facts.isDirectory)
            throwPosix(posixErrno::ENOTDIR_);
        const std::string& path = itemOf(directory).path;
        std::vector<ServedTree::Entry> entries = tree_.readdir(path);
        entries.insert(entries.begin(), {{".", {true, 0, 0}}, {"..", {true, 0, 0}}});
        fskit::FSDirectoryCookie next = 0;
        for (const auto& [name, facts] : entries) {
            const std::string entryPath = tree_.reportedPath(joined(path, name));
            const FSItemAttributes attributes = record(entryPath, facts);
            if (!packer.packEntry(fskit::FSFileName(name), attributes.type(), identifier(entryPath), ++next,
                                  &attributes))
                break;
        }
    });
    reply(1, error);
}

std::int64_t MemoryVolume::handle(Handles& handles, const std::string& path, const std::string& flags) {
    const auto known = handles.find(identifier(path));
    return known != handles.end() ? known->second : handles[identifier(path)] = tree_.open(path, flags);
}

void MemoryVolume::giveBack(Handles& handles, fskit::FSItemID identifier) {
    if (const auto removed = handles.extract(identifier); !removed.empty())
        tree_.release(removed.mapped());
}

void MemoryVolume::giveBackBoth(const std::string& path) {
    giveBack(reading_, identifier(path));
    giveBack(writing_, identifier(path));
}

void MemoryVolume::openItem(const FSItemPtr& item, FSVolumeOpenModes modes, fskit::ErrorReply reply) {
    called();
    fskit::answer(reply, [&] {
        refuseDirectory(item);
        if (contains(modes, FSVolumeOpenModes::read))
            handle(reading_, itemOf(item).path, "read");
        if (contains(modes, FSVolumeOpenModes::write))
            handle(writing_, itemOf(item).path, "write,create");
    });
}

void MemoryVolume::closeItem(const FSItemPtr& item, FSVolumeOpenModes modes, fskit::ErrorReply reply) {
    called();
    fskit::answer(reply, [&] {
        if (!contains(modes, FSVolumeOpenModes::read))
            giveBack(reading_, identifier(itemOf(item).path));
        if (!contains(modes, FSVolumeOpenModes::write))
            giveBack(writing_, identifier(itemOf(item).path));
    });
}

void MemoryVolume::read(const FSItemPtr& item, std::int64_t offset, std::int64_t,
                        fskit::FSMutableFileDataBuffer& buffer, fskit::CountReply reply) {
    called();
    if (onRead)
        onRead();
    fskit::answer(reply, [&] {
        refuseDirectory(item);
        const std::int64_t opened = handle(reading_, itemOf(item).path, "read");
        return tree_.read(opened, offset, {buffer.mutableBytes(), buffer.length()});
    });
}

void MemoryVolume::write(std::span<const std::byte> contents, const FSItemPtr& item, std::int64_t offset,
                         fskit::CountReply reply) {
    called();
    fskit::answer(reply, [&] {
        refuseDirectory(item);
        tree_.write(handle(writing_, itemOf(item).path, "write,create"), offset, contents);
        return contents.size();
    });
}

} // namespace fusehosttests
