#import "hosts/macos/KemviFSExtension.h"

#include "extension/KemviFSExtension.h"
#include "volume/KemviVolume.h"

#include <csignal>

@implementation KemviFSExtension {
    kemvi::KemviFSExtension _core;
}

- (instancetype)init {
    // A helper that goes away while a request is written to it is an error of that request, not the end of this
    // process.
    if ((self = [super init]))
        std::signal(SIGPIPE, SIG_IGN);
    return self;
}

- (std::shared_ptr<fskit::FSUnaryFileSystem>)fileSystem {
    return _core.fileSystem();
}

- (std::shared_ptr<fskit::FSVolume>)volumeWithID:(const fskit::FSVolumeIdentifier&)volumeID
                                      volumeName:(const fskit::FSFileName&)volumeName {
    return std::make_shared<kemvi::KemviVolume>(volumeID, volumeName);
}

@end
