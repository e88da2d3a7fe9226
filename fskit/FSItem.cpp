#include "fskit/FSItem.h"

namespace fskit {

FSItem::~FSItem() = default;

} // namespace fskit
