#import "hosts/macos/KemviItem.h"

#include "foundation/Log.h"
#include "hosts/macos/ItemTable.h"

@implementation KemviItem {
    fskit::FSItemPtr _core;
    std::shared_ptr<macoshost::ItemTable> _table;
}

- (instancetype)initWithCore:(fskit::FSItemPtr)core table:(std::shared_ptr<macoshost::ItemTable>)table {
    if ((self = [super init])) {
        _core = std::move(core);
        _table = std::move(table);
    }
    return self;
}

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wobjc-designated-initializers"

- (instancetype)init {
    foundation::fatalError("init() is not implemented for KemviItem");
}

#pragma clang diagnostic pop

- (void)dealloc {
    if (_table)
        _table->forget(_core.get());
}

- (fskit::FSItemPtr)core {
    return _core;
}

@end

namespace macoshost {

fskit::FSItemPtr coreItem(FSItem* item) {
    if (!item)
        return nullptr;
    if ([item isKindOfClass:[KemviItem class]])
        return static_cast<KemviItem*>(item).core;
    return std::make_shared<fskit::FSItem>();
}

} // namespace macoshost
