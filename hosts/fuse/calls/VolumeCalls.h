#pragma once

#include "fskit/FSUnaryFileSystem.h"
#include "fskit/FSVolume.h"
#include "hosts/fuse/calls/FailureLog.h"
#include "hosts/fuse/calls/KernelError.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <utility>

namespace fusehost {

/// An item with the attributes that belong to it and its name as the volume stores it.
struct FoundItem {
    fskit::FSItemPtr item;
    std::string name;
    fskit::FSItemAttributes attributes;
};

/// What has a name, or why nothing has. A name that is not there is the commonest failure of all, and often no failure
/// to who asks, so it is handed on as a value.
struct SoughtItem {
    std::optional<FoundItem> found;
    KernelError missing{ENOENT}; // of the name, where nothing was found

    FoundItem orThrow() && {
        if (!found)
            throw missing;
        return std::move(*found);
    }
};

/// Whether a failure of that origin shows that a volume answers no more, and never will. Any thread; returns soon.
using EndTest = std::function<bool(const foundation::ErrorOrigin&)>;

/// The operations of one volume as plain calls: each waits for the volume's reply and returns its value, or throws
/// KernelError, which knows what is to be logged of it. Safe on any thread, as the volume's operations are.
///
/// A volume keeps what is open by identifier, which items that are not the same may share: it is for the caller to see
/// that of those one at a time is open.
class VolumeCalls {
public:
    /// Throws MountError if the volume lacks an operation family that a host needs.
    explicit VolumeCalls(std::shared_ptr<fskit::FSVolume> volume, StateExplanation explain = {});
    /// The same where somebody looks after the volume's end, whose task it is then to tell the log of it.
    VolumeCalls(std::shared_ptr<fskit::FSVolume> volume, StateExplanation explain, EndTest isEnd);

    /// Puts another volume in the place of this one, which nobody asks anything any more. Not while an operation is
    /// under way on another thread. Throws as the constructor does; then all is as it was.
    void replace(std::shared_ptr<fskit::FSVolume> volume);

    /// Whether a failure has shown that the volume answers no more: then it never will again.
    bool hasEnded() const { return hasEnded_; }

    /// How many operations so far may have changed something: a request that has not added to it can be carried out
    /// once more.
    std::uint64_t changes() const { return changes_; }

    /// Mounts and activates. Returns the root item.
    fskit::FSItemPtr activate();
    /// Unmounts and deactivates; blocks until the volume has let go of everything.
    void end();

    /// Throws any failure but ENOENT.
    SoughtItem seek(const fskit::FSItemPtr& directory, const std::string& name);
    /// ENOENT if there is no such name.
    FoundItem lookup(const fskit::FSItemPtr& directory, const std::string& name);
    fskit::FSItemAttributes getAttributes(const fskit::FSItemPtr& item);
    /// The attributes after the change.
    fskit::FSItemAttributes setAttributes(const fskit::FSItemPtr& item, fskit::FSItemSetAttributesRequest& request);
    void enumerate(const fskit::FSItemPtr& directory, fskit::FSDirectoryEntryPacker& packer);

    FoundItem create(const fskit::FSItemPtr& directory, const std::string& name, fskit::FSItemType type);
    void remove(const fskit::FSItemPtr& item, const fskit::FSItemPtr& directory, const std::string& name);
    void rename(const fskit::FSItemPtr& item, const fskit::FSItemPtr& from, const std::string& oldName,
                const fskit::FSItemPtr& to, const std::string& newName);
    FoundItem createSymbolicLink(const fskit::FSItemPtr& directory, const std::string& name,
                                 const std::string& contents);
    void createLink(const fskit::FSItemPtr& item, const fskit::FSItemPtr& directory, const std::string& name);
    std::string readSymbolicLink(const fskit::FSItemPtr& item);
    void reclaim(const fskit::FSItemPtr& item);

    void open(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes modes);
    /// Closes every mode but `keeping`, all of them also when one fails. Throws the first failure.
    void close(const fskit::FSItemPtr& item, fskit::FSVolumeOpenModes keeping);
    /// Bytes read, at most the size of `into`; 0 at the end of the file.
    std::size_t read(const fskit::FSItemPtr& item, std::int64_t offset, std::span<std::byte> into);
    std::size_t write(const fskit::FSItemPtr& item, std::int64_t offset, std::span<const std::byte> contents);
    void synchronize();

    fskit::FSStatFSResult statistics() const { return operations_->volumeStatistics(); }

    /// Bytes; the volume's limit for one name.
    std::size_t maximumNameLength() const { return maximumNameLength_; }

private:
    void check(const std::optional<foundation::NSError>& error);
    /// What the volume's error is; notes it if that is the volume's end.
    KernelError failureOf(const foundation::NSError& error);
    /// For the exception being handled, which no volume should throw.
    [[noreturn]] void failUnexpectedly();
    /// Starts one operation and waits for the values of its reply. Whatever it throws is a KernelError.
    template <typename... Args, typename Start>
    std::tuple<Args...> ask(Start&& start);
    fskit::FSItemAttributes attributesOf(const fskit::FSItemPtr& item);

    void use(std::shared_ptr<fskit::FSVolume> volume);

    std::shared_ptr<fskit::FSVolume> volume_;
    fskit::FSVolumeOperations* operations_ = nullptr;
    fskit::FSVolumeOpenCloseOperations* openClose_ = nullptr;
    fskit::FSVolumeReadWriteOperations* readWrite_ = nullptr;
    std::size_t maximumNameLength_ = 0;
    const std::shared_ptr<FailureLog> failures_;
    const EndTest isEnd_;
    std::atomic<bool> hasEnded_{false};
    std::atomic<std::uint64_t> changes_{0};
};

} // namespace fusehost
