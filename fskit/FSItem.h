#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string_view>

namespace fskit {

/// Identifies an item within its volume. 0 to 2 are reserved.
enum class FSItemID : std::uint64_t { invalid = 0, parentOfRoot = 1, rootDirectory = 2 };

enum class FSItemType : std::int64_t {
    unknown = 0,
    file = 1,
    directory = 2,
    symlink = 3,
    fifo = 4,
    charDevice = 5,
    blockDevice = 6,
    socket = 7
};

/// Bits of an attribute set.
enum class FSItemAttribute : std::int64_t {
    none = 0,
    type = 1 << 0,
    mode = 1 << 1,
    linkCount = 1 << 2,
    uid = 1 << 3,
    gid = 1 << 4,
    flags = 1 << 5,
    size = 1 << 6,
    allocSize = 1 << 7,
    fileID = 1 << 8,
    parentID = 1 << 9,
    accessTime = 1 << 10,
    modifyTime = 1 << 11,
    changeTime = 1 << 12,
    birthTime = 1 << 13,
    backupTime = 1 << 14,
    addedTime = 1 << 15,
    supportsLimitedXAttrs = 1 << 16,
    inhibitKernelOffloadedIO = 1 << 17
};

constexpr FSItemAttribute operator|(FSItemAttribute a, FSItemAttribute b) {
    return static_cast<FSItemAttribute>(static_cast<std::int64_t>(a) | static_cast<std::int64_t>(b));
}

constexpr FSItemAttribute operator&(FSItemAttribute a, FSItemAttribute b) {
    return static_cast<FSItemAttribute>(static_cast<std::int64_t>(a) & static_cast<std::int64_t>(b));
}

/// True if `set` holds every bit of `attribute`.
constexpr bool contains(FSItemAttribute set, FSItemAttribute attribute) {
    return (set & attribute) == attribute;
}

/// An attribute record: values with a validity bit each. Setting a value makes it valid; the getters of values that
/// are not valid return 0. A plain value, not synchronised.
class FSItemAttributes {
public:
    void invalidateAllProperties() { *this = FSItemAttributes(); }

    bool isValid(FSItemAttribute attribute) const { return contains(valid_, attribute); }

    FSItemAttribute validAttributes() const { return valid_; }

    FSItemType type() const { return type_; }

    /// Permission bits and, as set by the volume, the file-type bits of st_mode.
    std::uint32_t mode() const { return mode_; }

    std::uint32_t linkCount() const { return linkCount_; }

    std::uint32_t uid() const { return uid_; }

    std::uint32_t gid() const { return gid_; }

    std::uint32_t flags() const { return flags_; }

    /// Bytes.
    std::uint64_t size() const { return size_; }

    /// Bytes of storage.
    std::uint64_t allocSize() const { return allocSize_; }

    FSItemID fileID() const { return fileID_; }

    FSItemID parentID() const { return parentID_; }

    bool supportsLimitedXAttrs() const { return supportsLimitedXAttrs_; }

    bool inhibitKernelOffloadedIO() const { return inhibitKernelOffloadedIO_; }

    timespec accessTime() const { return accessTime_; }

    timespec modifyTime() const { return modifyTime_; }

    timespec changeTime() const { return changeTime_; }

    timespec birthTime() const { return birthTime_; }

    timespec backupTime() const { return backupTime_; }

    timespec addedTime() const { return addedTime_; }

    void setType(FSItemType value) { set(type_, value, FSItemAttribute::type); }

    void setMode(std::uint32_t value) { set(mode_, value, FSItemAttribute::mode); }

    void setLinkCount(std::uint32_t value) { set(linkCount_, value, FSItemAttribute::linkCount); }

    void setUid(std::uint32_t value) { set(uid_, value, FSItemAttribute::uid); }

    void setGid(std::uint32_t value) { set(gid_, value, FSItemAttribute::gid); }

    void setFlags(std::uint32_t value) { set(flags_, value, FSItemAttribute::flags); }

    void setSize(std::uint64_t value) { set(size_, value, FSItemAttribute::size); }

    void setAllocSize(std::uint64_t value) { set(allocSize_, value, FSItemAttribute::allocSize); }

    void setFileID(FSItemID value) { set(fileID_, value, FSItemAttribute::fileID); }

    void setParentID(FSItemID value) { set(parentID_, value, FSItemAttribute::parentID); }

    void setSupportsLimitedXAttrs(bool value) {
        set(supportsLimitedXAttrs_, value, FSItemAttribute::supportsLimitedXAttrs);
    }

    void setInhibitKernelOffloadedIO(bool value) {
        set(inhibitKernelOffloadedIO_, value, FSItemAttribute::inhibitKernelOffloadedIO);
    }

    void setAccessTime(timespec value) { set(accessTime_, value, FSItemAttribute::accessTime); }

    void setModifyTime(timespec value) { set(modifyTime_, value, FSItemAttribute::modifyTime); }

    void setChangeTime(timespec value) { set(changeTime_, value, FSItemAttribute::changeTime); }

    void setBirthTime(timespec value) { set(birthTime_, value, FSItemAttribute::birthTime); }

    void setBackupTime(timespec value) { set(backupTime_, value, FSItemAttribute::backupTime); }

    void setAddedTime(timespec value) { set(addedTime_, value, FSItemAttribute::addedTime); }

private:
    template <typename T>
    void set(T& field, T value, FSItemAttribute attribute) {
        field = value;
        valid_ = valid_ | attribute;
    }

    FSItemAttribute valid_ = FSItemAttribute::none;
    FSItemType type_ = FSItemType::unknown;
    std::uint32_t mode_ = 0;
    std::uint32_t linkCount_ = 0;
    std::uint32_t uid_ = 0;
    std::uint32_t gid_ = 0;
    std::uint32_t flags_ = 0;
    std::uint64_t size_ = 0;
    std::uint64_t allocSize_ = 0;
    FSItemID fileID_ = FSItemID::invalid;
    FSItemID parentID_ = FSItemID::invalid;
    bool supportsLimitedXAttrs_ = false;
    bool inhibitKernelOffloadedIO_ = false;
    timespec accessTime_{};
    timespec modifyTime_{};
    timespec changeTime_{};
    timespec birthTime_{};
    timespec backupTime_{};
    timespec addedTime_{};
};

/// Attributes to be changed: the valid ones of the record. The volume adds each one that it has applied to the
/// consumed set.
class FSItemSetAttributesRequest : public FSItemAttributes {
public:
    FSItemAttribute consumedAttributes() const { return consumed_; }

    void setConsumedAttributes(FSItemAttribute value) { consumed_ = value; }

    bool wasAttributeConsumed(FSItemAttribute attribute) const { return contains(consumed_, attribute); }

private:
    FSItemAttribute consumed_ = FSItemAttribute::none;
};

/// The attributes that a caller would like to have; a volume may return more.
class FSItemGetAttributesRequest {
public:
    FSItemAttribute wantedAttributes() const { return wanted_; }

    void setWantedAttributes(FSItemAttribute value) { wanted_ = value; }

    bool isAttributeWanted(FSItemAttribute attribute) const { return contains(wanted_, attribute); }

private:
    FSItemAttribute wanted_ = FSItemAttribute::none;
};

/// A file or directory as a volume knows it. Opaque to the host; volumes subclass it.
class FSItem {
public:
    FSItem() = default;
    virtual ~FSItem();
    FSItem(const FSItem&) = delete;
    FSItem& operator=(const FSItem&) = delete;

    /// The attributes that were known when the item was made, if the volume keeps them with the item. This spares a
    /// host the request for attributes right after a lookup or a creation. Safe on any thread.
    virtual std::optional<FSItemAttributes> knownAttributes() const { return std::nullopt; }

    /// The file id of the item's attribute records; `invalid` where the volume does not keep it with the item. Items
    /// that are not the same may share it. Safe on any thread.
    virtual FSItemID identifier() const { return FSItemID::invalid; }

    /// Whether the size in the attribute records is how many bytes there are. Where it is not, only reading to the end
    /// tells. Of an item that was made of a listing it is not said. Safe on any thread.
    virtual bool isSizeKnown() const { return true; }

    /// Whether one may stand for the other in every request. Safe on any thread.
    virtual bool isSame(const FSItem& other) const { return this == &other; }

    /// Whether the member of this directory that is reported under that identifier is the one that `member` makes of
    /// its name. Safe on any thread.
    virtual bool hasMember(std::string_view /*name*/, FSItemID /*identifier*/) const { return false; }

    /// The item of a member of this directory, made from what a listing said of it, where the volume can make one
    /// without asking anybody. This spares a host the lookup of what it has just been told of. To be used where
    /// `hasMember` says that this is the member. Safe on any thread.
    virtual std::shared_ptr<FSItem> member(std::string_view /*name*/, FSItemType /*type*/,
                                           std::uint64_t /*size*/) const {
        return nullptr;
    }
};

} // namespace fskit
