#include "foundation/JSONLibrary.h"

#include <simdjson.h>

namespace foundation {

std::string jsonLibraryVersion() {
    using namespace simdjson;
    return std::to_string(SIMDJSON_VERSION_MAJOR) + '.' + std::to_string(SIMDJSON_VERSION_MINOR) + '.' +
           std::to_string(SIMDJSON_VERSION_REVISION);
}

} // namespace foundation
