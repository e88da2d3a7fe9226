#include "foundation/URL.h"

namespace foundation {

URL::~URL() = default;

} // namespace foundation
