#pragma once

#import <FSKit/FSKit.h>

#import "hosts/macos/ItemTable.h"

#include "fskit/FSVolume.h"

#include <memory>

NS_ASSUME_NONNULL_BEGIN

/// The platform's object for one volume of the core: every operation is handed on and its answer handed back. Safe on
/// any thread.
@interface KemviVolume : FSVolume <FSVolumeOperations, FSVolumePathConfOperations, FSVolumeOpenCloseOperations,
                                   FSVolumeReadWriteOperations>

/// `volume` must have all four families of operations; the process ends if it has not.
- (instancetype)initWithVolume:(std::shared_ptr<fskit::FSVolume>)volume NS_DESIGNATED_INITIALIZER;

/// A volume with nothing behind it.
- (instancetype)initWithVolumeID:(FSVolumeIdentifier*)volumeID volumeName:(FSFileName*)volumeName;

/// The objects that this volume has handed out.
@property(nonatomic, readonly) std::shared_ptr<macoshost::ItemTable> items;

@end

NS_ASSUME_NONNULL_END
