#pragma once

#include "fskit/FSVolume.h"
#include "helper/HelperClient.h"
#include "volume/KemviItem.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace volumesuite {

using Error = std::optional<foundation::NSError>;

/// An item as the volume under test hands it out: opaque, compared by identity. Null is no item.
using Item = std::shared_ptr<void>;

struct ItemAnswer {
    Item item;
    std::optional<std::string> name; // its bytes
    Error error;
};

struct NameAnswer {
    std::optional<std::string> name;
    Error error;
};

struct AttributesAnswer {
    std::optional<fskit::FSItemAttributes> attributes;
    Error error;
};

struct CountAnswer {
    std::size_t count = 0;
    Error error;
    std::string bytes; // of a read: the whole buffer afterwards, which was filled with dots before
};

struct PackedEntry {
    std::string name;
    fskit::FSItemType type = fskit::FSItemType::unknown;
    std::uint64_t itemID = 0;
    std::uint64_t nextCookie = 0;
    std::optional<fskit::FSItemAttributes> attributes;
};

struct Listing {
    std::uint64_t verifier = 0;
    Error error;
    std::vector<PackedEntry> entries;
};

struct ListingRequest {
    std::uint64_t cookie = fskit::FSDirectoryCookieInitial;
    std::uint64_t verifier = fskit::FSDirectoryVerifierInitial;
    bool withAttributes = false;
    std::size_t capacity = 1000; // entries that the packer takes; an offer after a refusal fails the test
};

/// A volume behind whatever interface the host of the day has: the operations of fskit in synchronous form. An
/// implementation waits for the reply and fails the running test if it does not come exactly once. Operations are as
/// thread-safe as the volume's.
class VolumeUnderTest {
public:
    virtual ~VolumeUnderTest() = default;

    virtual std::string name() = 0;
    virtual std::int64_t maximumLinkCount() = 0;
    virtual std::int64_t maximumNameLength() = 0;
    virtual bool restrictsOwnershipChanges() = 0;
    virtual bool truncatesLongNames() = 0;
    virtual fskit::FSVolumeSupportedCapabilities supportedVolumeCapabilities() = 0;
    virtual fskit::FSStatFSResult volumeStatistics() = 0;

    virtual Error mount() = 0;
    virtual ItemAnswer activate() = 0; // without a name
    virtual Error synchronize() = 0;
    virtual Error deactivate() = 0;
    virtual void unmount() = 0;

    virtual AttributesAnswer getAttributes(const Item& item) = 0;
    virtual AttributesAnswer setAttributes(fskit::FSItemSetAttributesRequest& request, const Item& item) = 0;
    virtual ItemAnswer lookupItem(std::string_view name, const Item& directory) = 0;
    virtual Listing enumerateDirectory(const Item& directory, const ListingRequest& request) = 0;
    virtual NameAnswer readSymbolicLink(const Item& item) = 0;
    virtual Error reclaimItem(const Item& item) = 0;

    virtual Error openItem(const Item& item, fskit::FSVolumeOpenModes modes) = 0;
    virtual Error closeItem(const Item& item, fskit::FSVolumeOpenModes keptModes) = 0;
    virtual CountAnswer read(const Item& item, std::int64_t offset, std::int64_t length, std::size_t bufferSize) = 0;
    virtual CountAnswer write(std::string_view contents, const Item& item, std::int64_t offset) = 0;

    virtual ItemAnswer createItem(std::string_view name, fskit::FSItemType type, const Item& directory,
                                  fskit::FSItemSetAttributesRequest& attributes) = 0;
    virtual ItemAnswer createSymbolicLink(std::string_view name, const Item& directory, std::string_view contents) = 0;
    virtual NameAnswer createLink(const Item& item, std::string_view name, const Item& directory) = 0;
    virtual Error removeItem(const Item& item, std::string_view name, const Item& directory) = 0;
    virtual NameAnswer renameItem(const Item& item, const Item& sourceDirectory, std::string_view sourceName,
                                  std::string_view newName, const Item& destinationDirectory, const Item& overItem) = 0;

    /// An item of the volume's class with these facts, as if the volume had handed it out.
    virtual Item makeItem(const std::string& path, bool isDirectory, std::int64_t size,
                          std::optional<foundation::Date> modifiedAt) = 0;
    /// An item of another class.
    virtual Item makeForeignItem() = 0;
    /// What the volume knows behind an item that it handed out.
    virtual const kemvi::KemviItem& facts(const Item& item) = 0;
};

/// Makes a volume named "Kemvi" over `client`, which may be null. Each executable that runs the suite defines it.
std::unique_ptr<VolumeUnderTest> makeVolumeUnderTest(std::shared_ptr<kemvi::HelperClient> client);

} // namespace volumesuite
