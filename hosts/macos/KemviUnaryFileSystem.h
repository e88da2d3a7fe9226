#pragma once

// Objective-C alone outside of C++, so that a Swift entry can make this class too.

#import <FSKit/FSKit.h>

#ifdef __cplusplus
#include "fskit/FSUnaryFileSystem.h"

#include <memory>
#endif

NS_ASSUME_NONNULL_BEGIN

/// The class that the system finds by name in the bundle's Info.plist and makes with `init`. Hands every call to the
/// core's file system. Safe on any thread.
@interface KemviUnaryFileSystem : FSUnaryFileSystem <FSUnaryFileSystemOperations>

/// Over the entry's file system.
- (instancetype)init;

#ifdef __cplusplus
- (instancetype)initWithFileSystem:(std::shared_ptr<fskit::FSUnaryFileSystem>)fileSystem NS_DESIGNATED_INITIALIZER;
#endif

@end

NS_ASSUME_NONNULL_END
