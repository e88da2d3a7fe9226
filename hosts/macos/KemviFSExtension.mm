#import "hosts/macos/KemviFSExtension.h"

#include "extension/ToldFileSystem.h"
#include "foundation/StandardErrorPipe.h"
#include "helper/StandardErrorLog.h"
#include "volume/KemviVolume.h"

#include <csignal>

@implementation KemviFSExtension

- (instancetype)init {
    if ((self = [super init])) {
        // A helper that goes away while a request is written to it is an error of that request, not the end of this
        // process.
        std::signal(SIGPIPE, SIG_IGN);
        // The system starts extensions so, and with it a helper's words would be lost. Whoever started this process
        // with a standard error of their own, as a debugger does, reads there.
        if (foundation::standardErrorLeadsNowhere())
            kemvi::logStandardError();
    }
    return self;
}

- (std::shared_ptr<fskit::FSUnaryFileSystem>)fileSystem {
    return std::make_shared<kemvi::ToldFileSystem>();
}

- (std::shared_ptr<fskit::FSVolume>)volumeWithID:(const fskit::FSVolumeIdentifier&)volumeID
                                      volumeName:(const fskit::FSFileName&)volumeName {
    return std::make_shared<kemvi::KemviVolume>(volumeID, volumeName);
}

@end
