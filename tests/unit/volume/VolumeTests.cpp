#include "foundation/PosixErrno.h"
#include "volume/KemviVolume.h"

#include <gtest/gtest.h>

// What a volume without a client does with handles that are open all the same, and what stops the process.
namespace {

using Error = std::optional<foundation::NSError>;
using Direction = kemvi::HandleTable::Direction;
using Modes = fskit::FSVolumeOpenModes;

const Error noDevice = foundation::NSError::posix(foundation::posixErrno::ENXIO_);

class OrphanedHandles : public testing::Test {
protected:
    OrphanedHandles() {
        handles_->share(Direction::reading, item_->identifier(), {1, item_->path()});
        handles_->share(Direction::writing, item_->identifier(), {2, item_->path()});
    }

    std::size_t openHandles() const {
        return handles_->all(Direction::reading).size() + handles_->all(Direction::writing).size();
    }

    template <typename Operation>
    Error errorOf(Operation operation) {
        Error answer;
        operation(fskit::ErrorReply([&](Error error) { answer = std::move(error); }));
        return answer;
    }

    template <typename Operation>
    Error countErrorOf(Operation operation) {
        Error answer;
        operation(fskit::CountReply([&](std::size_t count, Error error) {
            EXPECT_EQ(count, 0U);
            answer = std::move(error);
        }));
        return answer;
    }

    const std::shared_ptr<kemvi::HandleTable> handles_ = std::make_shared<kemvi::HandleTable>();
    kemvi::KemviVolume volume_{fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("Kemvi"),
                               nullptr, handles_};
    std::shared_ptr<kemvi::KemviItem> item_ =
        std::make_shared<kemvi::KemviItem>("/a", kemvi::KemviItem::identifierFor("/a"), false, 10, std::nullopt);
};

TEST_F(OrphanedHandles, cannotBeFlushed) {
    EXPECT_EQ(errorOf([&](auto reply) { volume_.synchronize(fskit::FSSyncFlags::wait, std::move(reply)); }), noDevice);
}

TEST_F(OrphanedHandles, areDroppedAtTheEnd) {
    EXPECT_EQ(errorOf([&](auto reply) { volume_.deactivate(fskit::FSDeactivateOptions::none, std::move(reply)); }),
              std::nullopt);
    EXPECT_EQ(openHandles(), 0U);
}

TEST_F(OrphanedHandles, cannotBeGivenBackButAreForgotten) {
    const auto close = [&](auto reply) { volume_.closeItem(item_, Modes::none, std::move(reply)); };
    EXPECT_EQ(errorOf(close), noDevice);
    EXPECT_EQ(openHandles(), 1U);
    EXPECT_EQ(errorOf(close), noDevice);
    EXPECT_EQ(openHandles(), 0U);
    EXPECT_EQ(errorOf(close), std::nullopt);
}

TEST_F(OrphanedHandles, areFoundByOpeningButNotUsable) {
    EXPECT_EQ(errorOf([&](auto reply) { volume_.openItem(item_, Modes::readWrite, std::move(reply)); }), std::nullopt);
    std::byte memory[4];
    fskit::FSMutableFileDataBuffer buffer(memory);
    EXPECT_EQ(countErrorOf([&](auto reply) { volume_.read(item_, 0, 4, buffer, std::move(reply)); }), noDevice);
    EXPECT_EQ(countErrorOf([&](auto reply) { volume_.write(memory, item_, 0, std::move(reply)); }), noDevice);
}

TEST_F(OrphanedHandles, keepTheirItemFromBeingRemoved) {
    EXPECT_EQ(errorOf([&](auto reply) { volume_.removeItem(item_, {}, nullptr, std::move(reply)); }), noDevice);
    EXPECT_EQ(openHandles(), 1U);
}

class NoPacker final : public fskit::FSDirectoryEntryPacker {
public:
    bool packEntry(const fskit::FSFileName&, fskit::FSItemType, fskit::FSItemID, fskit::FSDirectoryCookie,
                   const fskit::FSItemAttributes*) override {
        return false;
    }
};

TEST(VolumeDeathTest, stopsForACookieThatIsNoPosition) {
    kemvi::KemviVolume volume(fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("Kemvi"));
    const auto directory =
        std::make_shared<kemvi::KemviItem>("/", fskit::FSItemID::rootDirectory, true, 0, std::nullopt);
    NoPacker packer;
    EXPECT_DEATH(volume.enumerateDirectory(directory, 0x8000000000000000, 1, nullptr, packer,
                                           fskit::VerifierReply([](std::uint64_t, const Error&) {})),
                 "cookie is not a position");
}

TEST(VolumeDeathTest, stopsForARequestedSizeThatIsNoSignedCount) {
    // The client is never spoken to: the size is looked at before anything is asked.
    kemvi::KemviVolume volume(fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("Kemvi"),
                              std::make_shared<kemvi::HelperClient>("helper.js", std::map<std::string, std::string>()));
    const auto file = std::make_shared<kemvi::KemviItem>("/a", fskit::FSItemID{3}, false, 0, std::nullopt);
    fskit::FSItemSetAttributesRequest request;
    request.setSize(0x8000000000000000);
    EXPECT_DEATH(
        volume.setAttributes(
            request, file, fskit::AttributesReply([](const std::optional<fskit::FSItemAttributes>&, const Error&) {})),
        "does not fit a signed");
}

} // namespace
