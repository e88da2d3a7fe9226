#pragma once

#include "fskit/FSUnaryFileSystem.h"

#include <memory>

namespace kemvi {

/// The extension's file system for a host that has no command in front of it, which would read what is set for the
/// helper. A load puts that into this process's environment until the helper has been started, so that the helper
/// inherits it: the configuration's "helperEnvironment"; what mount-secrets.env holds; KEMVI_SOURCE, the source
/// directory; and, since a helper may not be allowed to read there, KEMVI_COMMAND, the "helperCommand" as JSON, for the
/// script `program`.
///
/// What is set and cannot be fails the load with the error that names it, before any helper is started. A configuration
/// that is missing or none is left to the file system beneath, as is everything else. Safe on any thread.
class ToldFileSystem final : public fskit::FSUnaryFileSystem {
public:
    ToldFileSystem();

    void probeResource(const std::shared_ptr<fskit::FSResource>& resource, fskit::ProbeReply reply) override;
    void loadResource(const std::shared_ptr<fskit::FSResource>& resource, const fskit::FSTaskOptions& options,
                      fskit::VolumeReply reply) override;
    void unloadResource(const std::shared_ptr<fskit::FSResource>& resource, const fskit::FSTaskOptions& options,
                        fskit::ErrorReply reply) override;

private:
    const std::shared_ptr<fskit::FSUnaryFileSystem> beneath_;
};

} // namespace kemvi
