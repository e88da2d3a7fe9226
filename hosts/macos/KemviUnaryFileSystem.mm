#import "hosts/macos/KemviUnaryFileSystem.h"

#import "hosts/macos/Answer.h"
#import "hosts/macos/KemviFSExtension.h"
#import "hosts/macos/KemviVolume.h"
#import "hosts/macos/Replies.h"
#import "hosts/macos/ToCore.h"
#import "hosts/macos/ToFSKit.h"

using macoshost::answering;
using macoshost::callCore;
using macoshost::MaybeError;
using macoshost::toCore;
using macoshost::toFSKit;

@implementation KemviUnaryFileSystem {
    std::shared_ptr<fskit::FSUnaryFileSystem> _fileSystem;
}

- (instancetype)init {
    return [self initWithFileSystem:[[KemviFSExtension alloc] init].fileSystem];
}

- (instancetype)initWithFileSystem:(std::shared_ptr<fskit::FSUnaryFileSystem>)fileSystem {
    if ((self = [super init]))
        _fileSystem = std::move(fileSystem);
    return self;
}

- (void)probeResource:(FSResource*)resource replyHandler:(void (^)(FSProbeResult*, NSError*))reply {
    callCore<fskit::ProbeReply>(
        [reply](const std::optional<fskit::FSProbeResult>& result, const MaybeError& error) {
            reply(toFSKit(result), toFSKit(error));
        },
        [&](fskit::ProbeReply answer) { _fileSystem->probeResource(toCore(resource), std::move(answer)); });
}

- (void)loadResource:(FSResource*)resource
             options:(FSTaskOptions*)options
        replyHandler:(void (^)(FSVolume*, NSError*))reply {
    callCore<fskit::VolumeReply>(
        [self, reply](const std::shared_ptr<fskit::FSVolume>& volume, const MaybeError& error) {
            if (!volume)
                return reply(nil, toFSKit(error));
            // The platform expects a loaded container to say so before the answer, and gives the load up with EAGAIN
            // if it does not. It stays so when the resource is unloaded: the next load of it finds it ready.
            self.containerStatus = FSContainerStatus.ready;
            reply([[KemviVolume alloc] initWithVolume:volume], toFSKit(error));
        },
        [&](fskit::VolumeReply answer) {
            _fileSystem->loadResource(toCore(resource), toCore(options), std::move(answer));
        });
}

- (void)unloadResource:(FSResource*)resource options:(FSTaskOptions*)options replyHandler:(void (^)(NSError*))reply {
    callCore<fskit::ErrorReply>(answering(reply), [&](fskit::ErrorReply answer) {
        _fileSystem->unloadResource(toCore(resource), toCore(options), std::move(answer));
    });
}

@end
