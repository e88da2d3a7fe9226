#pragma once

#include "fskit/FSResource.h"
#include "fskit/FSVolume.h"
#include "fskit/Reply.h"

#include <memory>

namespace fskit {

using ProbeReply = Reply<std::optional<FSProbeResult>, std::optional<foundation::NSError>>;
using VolumeReply = Reply<std::shared_ptr<FSVolume>, std::optional<foundation::NSError>>;

/// A file system each volume of which is made from one resource. Operations may be called on any thread.
class FSUnaryFileSystemOperations {
public:
    virtual ~FSUnaryFileSystemOperations();
    virtual void probeResource(const std::shared_ptr<FSResource>& resource, ProbeReply reply) = 0;
    virtual void loadResource(const std::shared_ptr<FSResource>& resource, const FSTaskOptions& options,
                              VolumeReply reply) = 0;
    virtual void unloadResource(const std::shared_ptr<FSResource>& resource, const FSTaskOptions& options,
                                ErrorReply reply) = 0;
};

class FSUnaryFileSystem : public FSUnaryFileSystemOperations {};

} // namespace fskit
