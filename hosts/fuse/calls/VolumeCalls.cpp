#include "hosts/fuse/calls/VolumeCalls.h"

#include "hosts/fuse/calls/Await.h"
#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/mounting/MountError.h"

#include <cerrno>
#include <climits>
#include <new>
#include <utility>

namespace fusehost {

using foundation::NSError;
using fskit::FSItemAttributes;
using fskit::FSItemPtr;
using fskit::FSVolumeOpenModes;
using OptionalError = std::optional<NSError>;

namespace {

/// The name as the volume stores it, where it says so and the name is whole.
std::string storedName(const std::optional<fskit::FSFileName>& stored, const std::string& asked) {
    return stored && stored->isWhole() ? stored->data() : asked;
}

} // namespace

VolumeCalls::VolumeCalls(std::shared_ptr<fskit::FSVolume> volume, StateExplanation explain)
    : VolumeCalls(std::move(volume), std::move(explain), {}) {}

VolumeCalls::VolumeCalls(std::shared_ptr<fskit::FSVolume> volume, StateExplanation explain, EndTest isEnd)
    : failures_(std::make_shared<FailureLog>(std::move(explain))), isEnd_(std::move(isEnd)) {
    use(std::move(volume));
}

void VolumeCalls::use(std::shared_ptr<fskit::FSVolume> volume) {
    auto* const operations = dynamic_cast<fskit::FSVolumeOperations*>(volume.get());
    auto* const openClose = dynamic_cast<fskit::FSVolumeOpenCloseOperations*>(volume.get());
    auto* const readWrite = dynamic_cast<fskit::FSVolumeReadWriteOperations*>(volume.get());
    if (operations == nullptr || openClose == nullptr || readWrite == nullptr)
        throw MountError("the volume does not offer the operations that a mount needs");
    const std::int64_t limit = operations->maximumNameLength();
    maximumNameLength_ = limit < 0 ? NAME_MAX : static_cast<std::size_t>(limit);
    operations_ = operations;
    openClose_ = openClose;
    readWrite_ = readWrite;
    volume_ = std::move(volume);
}

void VolumeCalls::replace(std::shared_ptr<fskit::FSVolume> volume) {
    use(std::move(volume));
    hasEnded_ = false;
    failures_->forgetState();
}

// As a KernelError, so that whoever asked undoes what it has done before, as for any other failure.
void VolumeCalls::failUnexpectedly() {
    std::string text = "an exception of an unknown kind";
    try {
        throw;
    } catch (const KernelError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw KernelError(ENOMEM);
    } catch (const std::exception& failure) {
        text = failure.what();
    } catch (...) {
    }
    throw KernelError(NSError{"unexpected", 0, std::nullopt, std::move(text)}, failures_);
}

template <typename... Args, typename Start>
std::tuple<Args...> VolumeCalls::ask(Start&& start) {
    try {
        return await<Args...>(std::forward<Start>(start));
    } catch (...) {
        failUnexpectedly();
    }
}

void VolumeCalls::check(const OptionalError& error) {
    if (error)
        throw failureOf(*error);
}

KernelError VolumeCalls::failureOf(const NSError& error) {
    const bool isEnd = isEnd_ && error.origin && isEnd_(*error.origin);
    if (isEnd)
        hasEnded_ = true;
    return KernelError(error, isEnd ? nullptr : failures_);
}

FSItemPtr VolumeCalls::activate() {
    const fskit::FSTaskOptions options;
    const auto [mountError] = ask<OptionalError>([&](auto reply) { operations_->mount(options, std::move(reply)); });
    check(mountError);
    auto [root, error] =
        ask<FSItemPtr, OptionalError>([&](auto reply) { operations_->activate(options, std::move(reply)); });
    check(error);
    return root;
}

void VolumeCalls::end() {
    ask<>([&](auto reply) { operations_->unmount(std::move(reply)); });
    const auto [error] = ask<OptionalError>(
        [&](auto reply) { operations_->deactivate(fskit::FSDeactivateOptions::none, std::move(reply)); });
    check(error);
}

FSItemAttributes VolumeCalls::attributesOf(const FSItemPtr& item) {
    if (auto known = item->knownAttributes())
        return *known;
    return getAttributes(item);
}

SoughtItem VolumeCalls::seek(const FSItemPtr& directory, const std::string& name) {
    auto [item, stored, error] = ask<FSItemPtr, std::optional<fskit::FSFileName>, OptionalError>(
        [&](auto reply) { operations_->lookupItem(fskit::FSFileName(name), directory, std::move(reply)); });
    if (error) {
        KernelError failure = failureOf(*error);
        if (failure.number() == ENOENT)
            return {std::nullopt, std::move(failure)};
        throw failure;
    }
    try {
        FSItemAttributes attributes = attributesOf(item);
        return {FoundItem{std::move(item), storedName(stored, name), attributes}};
    } catch (const KernelError& failure) {
        if (failure.number() == ENOENT)
            return {std::nullopt, failure}; // gone meanwhile
        throw;
    }
}

FoundItem VolumeCalls::lookup(const FSItemPtr& directory, const std::string& name) {
    return seek(directory, name).orThrow();
}

FSItemAttributes VolumeCalls::getAttributes(const FSItemPtr& item) {
    const fskit::FSItemGetAttributesRequest everything;
    const auto [attributes, error] = ask<std::optional<FSItemAttributes>, OptionalError>(
        [&](auto reply) { operations_->getAttributes(everything, item, std::move(reply)); });
    check(error);
    return attributes.value_or(FSItemAttributes());
}

FSItemAttributes VolumeCalls::setAttributes(const FSItemPtr& item, fskit::FSItemSetAttributesRequest& request) {
    ++changes_;
    const auto [attributes, error] = ask<std::optional<FSItemAttributes>, OptionalError>(
        [&](auto reply) { operations_->setAttributes(request, item, std::move(reply)); });
    check(error);
    return attributes.value_or(FSItemAttributes());
}

void VolumeCalls::enumerate(const FSItemPtr& directory, fskit::FSDirectoryEntryPacker& packer) {
    const fskit::FSItemGetAttributesRequest everything;
    const auto [verifier, error] = ask<fskit::FSDirectoryVerifier, OptionalError>([&](auto reply) {
        operations_->enumerateDirectory(directory, fskit::FSDirectoryCookieInitial, fskit::FSDirectoryVerifierInitial,
                                        &everything, packer, std::move(reply));
    });
    check(error);
}

FoundItem VolumeCalls::create(const FSItemPtr& directory, const std::string& name, fskit::FSItemType type) {
    ++changes_;
    fskit::FSItemSetAttributesRequest none;
    auto [item, stored, error] = ask<FSItemPtr, std::optional<fskit::FSFileName>, OptionalError>(
        [&](auto reply) { operations_->createItem(fskit::FSFileName(name), type, directory, none, std::move(reply)); });
    check(error);
    FSItemAttributes attributes = attributesOf(item);
    return {std::move(item), storedName(stored, name), attributes};
}

void VolumeCalls::remove(const FSItemPtr& item, const FSItemPtr& directory, const std::string& name) {
    ++changes_;
    const auto [error] = ask<OptionalError>(
        [&](auto reply) { operations_->removeItem(item, fskit::FSFileName(name), directory, std::move(reply)); });
    check(error);
}

void VolumeCalls::rename(const FSItemPtr& item, const FSItemPtr& from, const std::string& oldName, const FSItemPtr& to,
                         const std::string& newName) {
    ++changes_;
    const auto [stored, error] = ask<std::optional<fskit::FSFileName>, OptionalError>([&](auto reply) {
        // No item to be replaced is named: the volume would remove it first, and it would be lost if the rename fails.
        operations_->renameItem(item, from, fskit::FSFileName(oldName), fskit::FSFileName(newName), to, nullptr,
                                std::move(reply));
    });
    check(error);
}

FoundItem VolumeCalls::createSymbolicLink(const FSItemPtr& directory, const std::string& name,
                                          const std::string& contents) {
    ++changes_;
    fskit::FSItemSetAttributesRequest none;
    auto [item, stored, error] = ask<FSItemPtr, std::optional<fskit::FSFileName>, OptionalError>([&](auto reply) {
        operations_->createSymbolicLink(fskit::FSFileName(name), directory, none, fskit::FSFileName(contents),
                                        std::move(reply));
    });
    check(error);
    FSItemAttributes attributes = attributesOf(item);
    return {std::move(item), storedName(stored, name), attributes};
}

void VolumeCalls::createLink(const FSItemPtr& item, const FSItemPtr& directory, const std::string& name) {
    ++changes_;
    const auto [stored, error] = ask<std::optional<fskit::FSFileName>, OptionalError>(
        [&](auto reply) { operations_->createLink(item, fskit::FSFileName(name), directory, std::move(reply)); });
    check(error);
}

std::string VolumeCalls::readSymbolicLink(const FSItemPtr& item) {
    const auto [contents, error] = ask<std::optional<fskit::FSFileName>, OptionalError>(
        [&](auto reply) { operations_->readSymbolicLink(item, std::move(reply)); });
    check(error);
    return contents ? contents->data() : std::string();
}

void VolumeCalls::reclaim(const FSItemPtr& item) {
    const auto [error] = ask<OptionalError>([&](auto reply) { operations_->reclaimItem(item, std::move(reply)); });
    check(error);
}

void VolumeCalls::open(const FSItemPtr& item, FSVolumeOpenModes modes) {
    const auto [error] = ask<OptionalError>([&](auto reply) { openClose_->openItem(item, modes, std::move(reply)); });
    check(error);
}

void VolumeCalls::close(const FSItemPtr& item, FSVolumeOpenModes keeping) {
    const auto closeOnce = [&] {
        const auto [error] =
            ask<OptionalError>([&](auto reply) { openClose_->closeItem(item, keeping, std::move(reply)); });
        return error;
    };
    const OptionalError error = closeOnce();
    if (error)
        closeOnce(); // a failure ends the first attempt at the mode that failed; the other one is still open
    check(error);
}

std::size_t VolumeCalls::read(const FSItemPtr& item, std::int64_t offset, std::span<std::byte> into) {
    fskit::FSMutableFileDataBuffer buffer(into);
    const auto [count, error] = ask<std::size_t, OptionalError>([&](auto reply) {
        readWrite_->read(item, offset, static_cast<std::int64_t>(into.size()), buffer, std::move(reply));
    });
    check(error);
    return count;
}

std::size_t VolumeCalls::write(const FSItemPtr& item, std::int64_t offset, std::span<const std::byte> contents) {
    ++changes_;
    const auto [count, error] = ask<std::size_t, OptionalError>(
        [&](auto reply) { readWrite_->write(contents, item, offset, std::move(reply)); });
    check(error);
    return count;
}

void VolumeCalls::synchronize() {
    ++changes_;
    const auto [error] =
        ask<OptionalError>([&](auto reply) { operations_->synchronize(fskit::FSSyncFlags::wait, std::move(reply)); });
    check(error);
}

} // namespace fusehost
