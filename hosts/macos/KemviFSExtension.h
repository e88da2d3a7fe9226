#pragma once

#import <Foundation/Foundation.h>

#include "fskit/FSUnaryFileSystem.h"

#include <memory>

NS_ASSUME_NONNULL_BEGIN

/// The extension's entry: the one place of this host that knows which file system it puts in front of the platform.
@interface KemviFSExtension : NSObject

/// A new file system each time it is read.
@property(nonatomic, readonly) std::shared_ptr<fskit::FSUnaryFileSystem> fileSystem;

/// A volume that no load made, and that has nothing behind it.
- (std::shared_ptr<fskit::FSVolume>)volumeWithID:(const fskit::FSVolumeIdentifier&)volumeID
                                      volumeName:(const fskit::FSFileName&)volumeName;

@end

NS_ASSUME_NONNULL_END
