#pragma once

#include "fskit/FSUnaryFileSystem.h"
#include "helper/ExchangeObserver.h"
#include "helper/HelperObserver.h"

#include <memory>

namespace kemvi {

/// Makes a volume from a source directory: reads the directory's "mount-config.json", starts the helper named there and
/// checks that it answers. Keeps nothing of what it makes: each load starts a helper and makes a volume of
/// its own. Safe on any thread.
class KemviUnaryFileSystem final : public fskit::FSUnaryFileSystem {
public:
    KemviUnaryFileSystem();
    /// The same with somebody to be told of every helper that a load starts, and somebody (or null) of every exchange
    /// with one. Both must outlive the file system and its volumes.
    explicit KemviUnaryFileSystem(HelperObserver& observer, ExchangeObserver* exchanges = nullptr);

    /// Every resource is usable; it is not looked at. Replies before it returns.
    void probeResource(const std::shared_ptr<fskit::FSResource>& resource, fskit::ProbeReply reply) override;

    /// Blocks until the helper has answered, without a time limit, and replies before it returns. What fails is replied
    /// unchanged: EINVAL for a resource that is not a directory, the file-reading error, the decoding error, the launch
    /// error or the error of the first exchange.
    void loadResource(const std::shared_ptr<fskit::FSResource>& resource, const fskit::FSTaskOptions& options,
                      fskit::VolumeReply reply) override;

    /// Stops nothing; the volume does that itself. Replies no error from another thread.
    void unloadResource(const std::shared_ptr<fskit::FSResource>& resource, const fskit::FSTaskOptions& options,
                        fskit::ErrorReply reply) override;

private:
    KemviUnaryFileSystem(HelperObserver* observer, ExchangeObserver* exchanges);

    const fskit::FSContainerIdentifier containerID_;
    HelperObserver* const observer_;    // or null
    ExchangeObserver* const exchanges_; // or null
};

} // namespace kemvi
