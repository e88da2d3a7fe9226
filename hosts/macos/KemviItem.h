#pragma once

#import <FSKit/FSKit.h>

#include "fskit/FSVolume.h"

#include <memory>

NS_ASSUME_NONNULL_BEGIN

namespace macoshost {
class ItemTable;
}

/// The platform's object for one item of the core, made by an ItemTable. Immutable; safe on any thread.
@interface KemviItem : FSItem

@property(nonatomic, readonly) fskit::FSItemPtr core;

/// `table` is told when this object goes.
- (instancetype)initWithCore:(fskit::FSItemPtr)core
                       table:(std::shared_ptr<macoshost::ItemTable>)table NS_DESIGNATED_INITIALIZER;

/// Ends the process: an item without a core has no meaning.
- (instancetype)init;

@end

namespace macoshost {

/// The core's item behind `item`; for an item of another class one that no volume knows, so that the core refuses it;
/// null for nil.
fskit::FSItemPtr coreItem(FSItem* _Nullable item);

} // namespace macoshost

NS_ASSUME_NONNULL_END
