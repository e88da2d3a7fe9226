#pragma once

#include "fskit/FSVolume.h"

#include <functional>
#include <type_traits>

namespace macostests {

/// How a core's operation may end that breaks its promises.
enum class Ending {
    answers,
    answersLater,
    throws,
    throwsAfterAnswering,
    dropsTheReply,
    dropsTheReplyInAnInnerException
};

/// A volume whose every operation ends in one way; what it throws is up to the test.
class MisbehavingVolume final : public fskit::FSVolume,
                                public fskit::FSVolumeOperations,
                                public fskit::FSVolumeOpenCloseOperations,
                                public fskit::FSVolumeReadWriteOperations {
public:
    MisbehavingVolume(Ending ending, std::function<void()> thrower)
        : FSVolume(fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("Kemvi")), ending_(ending),
          thrower_(std::move(thrower)) {}

    std::int64_t maximumLinkCount() const override { return 1; }

    std::int64_t maximumNameLength() const override { return 1; }

    bool restrictsOwnershipChanges() const override { return false; }

    bool truncatesLongNames() const override { return true; }

    fskit::FSVolumeSupportedCapabilities supportedVolumeCapabilities() const override { return {}; }

    fskit::FSStatFSResult volumeStatistics() const override { return {}; }

    void mount(const fskit::FSTaskOptions&, fskit::ErrorReply reply) override { end(std::move(reply)); }

    void unmount(fskit::Reply<> reply) override { end(std::move(reply)); }

    void activate(const fskit::FSTaskOptions&, fskit::ItemReply reply) override { end(std::move(reply)); }

    void deactivate(fskit::FSDeactivateOptions, fskit::ErrorReply reply) override { end(std::move(reply)); }

    void synchronize(fskit::FSSyncFlags, fskit::ErrorReply reply) override { end(std::move(reply)); }

    void getAttributes(const fskit::FSItemGetAttributesRequest&, const fskit::FSItemPtr&,
                       fskit::AttributesReply reply) override {
        end(std::move(reply));
    }

    void setAttributes(fskit::FSItemSetAttributesRequest&, const fskit::FSItemPtr&,
                       fskit::AttributesReply reply) override {
        end(std::move(reply));
    }

    void lookupItem(const fskit::FSFileName&, const fskit::FSItemPtr&, fskit::NamedItemReply reply) override {
        end(std::move(reply));
    }

    void reclaimItem(const fskit::FSItemPtr&, fskit::ErrorReply reply) override { end(std::move(reply)); }

    void readSymbolicLink(const fskit::FSItemPtr&, fskit::NameReply reply) override { end(std::move(reply)); }

    void createItem(const fskit::FSFileName&, fskit::FSItemType, const fskit::FSItemPtr&,
                    fskit::FSItemSetAttributesRequest&, fskit::NamedItemReply reply) override {
        end(std::move(reply));
    }

    void createSymbolicLink(const fskit::FSFileName&, const fskit::FSItemPtr&, fskit::FSItemSetAttributesRequest&,
                            const fskit::FSFileName&, fskit::NamedItemReply reply) override {
        end(std::move(reply));
    }

    void createLink(const fskit::FSItemPtr&, const fskit::FSFileName&, const fskit::FSItemPtr&,
                    fskit::NameReply reply) override {
        end(std::move(reply));
    }

    void removeItem(const fskit::FSItemPtr&, const fskit::FSFileName&, const fskit::FSItemPtr&,
                    fskit::ErrorReply reply) override {
        end(std::move(reply));
    }

    void renameItem(const fskit::FSItemPtr&, const fskit::FSItemPtr&, const fskit::FSFileName&,
                    const fskit::FSFileName&, const fskit::FSItemPtr&, const fskit::FSItemPtr&,
                    fskit::NameReply reply) override {
        end(std::move(reply));
    }

    void enumerateDirectory(const fskit::FSItemPtr&, fskit::FSDirectoryCookie, fskit::FSDirectoryVerifier,
                            const fskit::FSItemGetAttributesRequest*, fskit::FSDirectoryEntryPacker&,
                            fskit::VerifierReply reply) override {
        end(std::move(reply));
    }

    void openItem(const fskit::FSItemPtr&, fskit::FSVolumeOpenModes, fskit::ErrorReply reply) override {
        end(std::move(reply));
    }

    void closeItem(const fskit::FSItemPtr&, fskit::FSVolumeOpenModes, fskit::ErrorReply reply) override {
        end(std::move(reply));
    }

    void read(const fskit::FSItemPtr&, std::int64_t, std::int64_t, fskit::FSMutableFileDataBuffer& buffer,
              fskit::CountReply reply) override {
        memory = buffer.mutableBytes();
        end(std::move(reply));
    }

    void write(std::span<const std::byte> contents, const fskit::FSItemPtr&, std::int64_t,
               fskit::CountReply reply) override {
        memory = contents.data();
        end(std::move(reply));
    }

    const std::byte* memory = nullptr; // of the last read or write
    fskit::CountReply held;            // of the last read or write that answers later

private:
    template <typename... Args>
    void end(fskit::Reply<Args...> reply) {
        switch (ending_) {
        case Ending::answers: reply(Args{}...); break;
        case Ending::answersLater:
            if constexpr (std::is_same_v<fskit::Reply<Args...>, fskit::CountReply>)
                held = std::move(reply);
            break;
        case Ending::throws: thrower_(); break;
        case Ending::throwsAfterAnswering:
            reply(Args{}...);
            thrower_();
            break;
        case Ending::dropsTheReply: break;
        case Ending::dropsTheReplyInAnInnerException:
            try {
                const auto dropped = std::move(reply);
                thrower_();
            } catch (...) { // the caller never hears of it
            }
            break;
        }
    }

    Ending ending_;
    std::function<void()> thrower_;
};

} // namespace macostests
