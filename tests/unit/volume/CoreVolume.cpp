#include "suites/volume/VolumeUnderTest.h"
#include "volume/KemviVolume.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

// The volume suite against the core itself.
namespace volumesuite {
namespace {

using fskit::FSItemPtr;

// Calls an operation with a handler that passes its arguments to `store`, and fails the test unless that happens once.
template <typename... Args, typename Operation, typename Store>
void expectOneReply(Operation&& operation, Store store) {
    int replies = 0;
    operation(fskit::Reply<Args...>([&](Args... args) {
        ++replies;
        store(std::move(args)...);
    }));
    EXPECT_EQ(replies, 1);
}

template <typename Operation>
Error errorOf(Operation&& operation) {
    Error answer;
    expectOneReply<Error>(std::forward<Operation>(operation), [&](Error error) { answer = std::move(error); });
    return answer;
}

std::optional<std::string> bytesOf(const std::optional<fskit::FSFileName>& name) {
    return name ? std::optional(name->data()) : std::nullopt;
}

template <typename Operation>
NameAnswer nameOf(Operation&& operation) {
    NameAnswer answer;
    expectOneReply<std::optional<fskit::FSFileName>, Error>(std::forward<Operation>(operation),
                                                            [&](const auto& name, Error error) {
                                                                answer = {bytesOf(name), std::move(error)};
                                                            });
    return answer;
}

template <typename Operation>
AttributesAnswer attributesOf(Operation&& operation) {
    AttributesAnswer answer;
    expectOneReply<std::optional<fskit::FSItemAttributes>, Error>(std::forward<Operation>(operation),
                                                                  [&](const auto& attributes, Error error) {
                                                                      answer = {attributes, std::move(error)};
                                                                  });
    return answer;
}

template <typename Operation>
ItemAnswer itemOf(Operation&& operation) {
    ItemAnswer answer;
    expectOneReply<FSItemPtr, std::optional<fskit::FSFileName>, Error>(
        std::forward<Operation>(operation), [&](const FSItemPtr& item, const auto& name, Error error) {
            answer = {item, bytesOf(name), std::move(error)};
        });
    return answer;
}

template <typename Operation>
CountAnswer countOf(Operation&& operation) {
    CountAnswer answer;
    expectOneReply<std::size_t, Error>(std::forward<Operation>(operation), [&](std::size_t count, Error error) {
        answer = {count, std::move(error), {}};
    });
    return answer;
}

FSItemPtr fsItem(const Item& item) {
    return std::static_pointer_cast<fskit::FSItem>(item);
}

class ForeignItem final : public fskit::FSItem {};

class ListPacker final : public fskit::FSDirectoryEntryPacker {
public:
    explicit ListPacker(std::size_t capacity) : capacity_(capacity) {}

    bool packEntry(const fskit::FSFileName& name, fskit::FSItemType type, fskit::FSItemID itemID,
                   fskit::FSDirectoryCookie nextCookie, const fskit::FSItemAttributes* attributes) override {
        EXPECT_FALSE(refused_) << "an entry was offered after one had been refused";
        refused_ = entries.size() == capacity_;
        if (refused_)
            return false;
        entries.push_back({name.data(), type, static_cast<std::uint64_t>(itemID), nextCookie,
                           attributes ? std::optional(*attributes) : std::nullopt});
        return true;
    }

    std::vector<PackedEntry> entries;

private:
    std::size_t capacity_;
    bool refused_ = false;
};

class CoreVolume final : public VolumeUnderTest {
public:
    explicit CoreVolume(std::shared_ptr<kemvi::HelperClient> client)
        : volume_(fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("Kemvi"),
                  std::move(client)) {}

    std::string name() override { return volume_.name().data(); }

    std::int64_t maximumLinkCount() override { return volume_.maximumLinkCount(); }

    std::int64_t maximumNameLength() override { return volume_.maximumNameLength(); }

    bool restrictsOwnershipChanges() override { return volume_.restrictsOwnershipChanges(); }

    bool truncatesLongNames() override { return volume_.truncatesLongNames(); }

    fskit::FSVolumeSupportedCapabilities supportedVolumeCapabilities() override {
        return volume_.supportedVolumeCapabilities();
    }

    fskit::FSStatFSResult volumeStatistics() override { return volume_.volumeStatistics(); }

    Error mount() override {
        return errorOf([&](auto reply) { volume_.mount({}, std::move(reply)); });
    }

    ItemAnswer activate() override {
        ItemAnswer answer;
        expectOneReply<FSItemPtr, Error>([&](auto reply) { volume_.activate({}, std::move(reply)); },
                                         [&](const FSItemPtr& item, Error error) {
                                             answer = {item, std::nullopt, std::move(error)};
                                         });
        return answer;
    }

    Error synchronize() override {
        return errorOf([&](auto reply) { volume_.synchronize(fskit::FSSyncFlags::wait, std::move(reply)); });
    }

    Error deactivate() override {
        return errorOf([&](auto reply) { volume_.deactivate(fskit::FSDeactivateOptions::none, std::move(reply)); });
    }

    void unmount() override {
        expectOneReply<>([&](auto reply) { volume_.unmount(std::move(reply)); }, [] {});
    }

    AttributesAnswer getAttributes(const Item& item) override {
        return attributesOf([&](auto reply) { volume_.getAttributes({}, fsItem(item), std::move(reply)); });
    }

    AttributesAnswer setAttributes(fskit::FSItemSetAttributesRequest& request, const Item& item) override {
        return attributesOf([&](auto reply) { volume_.setAttributes(request, fsItem(item), std::move(reply)); });
    }

    ItemAnswer lookupItem(std::string_view name, const Item& directory) override {
        return itemOf(
            [&](auto reply) { volume_.lookupItem(fskit::FSFileName(name), fsItem(directory), std::move(reply)); });
    }

    Listing enumerateDirectory(const Item& directory, const ListingRequest& request) override {
        Listing listing;
        ListPacker packer(request.capacity);
        const fskit::FSItemGetAttributesRequest wanted;
        const auto enumerate = [&](auto reply) {
            volume_.enumerateDirectory(fsItem(directory), request.cookie, request.verifier,
                                       request.withAttributes ? &wanted : nullptr, packer, std::move(reply));
        };
        expectOneReply<fskit::FSDirectoryVerifier, Error>(enumerate, [&](std::uint64_t verifier, Error error) {
            listing.verifier = verifier;
            listing.error = std::move(error);
        });
        listing.entries = std::move(packer.entries);
        return listing;
    }

    NameAnswer readSymbolicLink(const Item& item) override {
        return nameOf([&](auto reply) { volume_.readSymbolicLink(fsItem(item), std::move(reply)); });
    }

    Error reclaimItem(const Item& item) override {
        return errorOf([&](auto reply) { volume_.reclaimItem(fsItem(item), std::move(reply)); });
    }

    Error openItem(const Item& item, fskit::FSVolumeOpenModes modes) override {
        return errorOf([&](auto reply) { volume_.openItem(fsItem(item), modes, std::move(reply)); });
    }

    Error closeItem(const Item& item, fskit::FSVolumeOpenModes keptModes) override {
        return errorOf([&](auto reply) { volume_.closeItem(fsItem(item), keptModes, std::move(reply)); });
    }

    CountAnswer read(const Item& item, std::int64_t offset, std::int64_t length, std::size_t bufferSize) override {
        std::string bytes(bufferSize, '.');
        fskit::FSMutableFileDataBuffer buffer(std::as_writable_bytes(std::span(bytes)));
        CountAnswer answer =
            countOf([&](auto reply) { volume_.read(fsItem(item), offset, length, buffer, std::move(reply)); });
        answer.bytes = std::move(bytes);
        return answer;
    }

    CountAnswer write(std::string_view contents, const Item& item, std::int64_t offset) override {
        return countOf([&](auto reply) {
            volume_.write(std::as_bytes(std::span(contents)), fsItem(item), offset, std::move(reply));
        });
    }

    ItemAnswer createItem(std::string_view name, fskit::FSItemType type, const Item& directory,
                          fskit::FSItemSetAttributesRequest& attributes) override {
        return itemOf([&](auto reply) {
            volume_.createItem(fskit::FSFileName(name), type, fsItem(directory), attributes, std::move(reply));
        });
    }

    ItemAnswer createSymbolicLink(std::string_view name, const Item& directory, std::string_view contents) override {
        fskit::FSItemSetAttributesRequest attributes;
        return itemOf([&](auto reply) {
            volume_.createSymbolicLink(fskit::FSFileName(name), fsItem(directory), attributes,
                                       fskit::FSFileName(contents), std::move(reply));
        });
    }

    NameAnswer createLink(const Item& item, std::string_view name, const Item& directory) override {
        return nameOf([&](auto reply) {
            volume_.createLink(fsItem(item), fskit::FSFileName(name), fsItem(directory), std::move(reply));
        });
    }

    Error removeItem(const Item& item, std::string_view name, const Item& directory) override {
        return errorOf([&](auto reply) {
            volume_.removeItem(fsItem(item), fskit::FSFileName(name), fsItem(directory), std::move(reply));
        });
    }

    NameAnswer renameItem(const Item& item, const Item& sourceDirectory, std::string_view sourceName,
                          std::string_view newName, const Item& destinationDirectory, const Item& overItem) override {
        return nameOf([&](auto reply) {
            volume_.renameItem(fsItem(item), fsItem(sourceDirectory), fskit::FSFileName(sourceName),
                               fskit::FSFileName(newName), fsItem(destinationDirectory), fsItem(overItem),
                               std::move(reply));
        });
    }

    Item makeItem(const std::string& path, bool isDirectory, std::int64_t size,
                  std::optional<foundation::Date> modifiedAt) override {
        const FSItemPtr item = std::make_shared<kemvi::KemviItem>(path, kemvi::KemviItem::identifierFor(path),
                                                                  isDirectory, size, modifiedAt);
        return item;
    }

    Item makeForeignItem() override { return FSItemPtr(std::make_shared<ForeignItem>()); }

    const kemvi::KemviItem& facts(const Item& item) override {
        return dynamic_cast<const kemvi::KemviItem&>(*fsItem(item));
    }

private:
    kemvi::KemviVolume volume_;
};

} // namespace

std::unique_ptr<VolumeUnderTest> makeVolumeUnderTest(std::shared_ptr<kemvi::HelperClient> client) {
    return std::make_unique<CoreVolume>(std::move(client));
}

} // namespace volumesuite
