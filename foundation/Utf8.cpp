#include "foundation/Utf8.h"

#include <simdjson.h>

namespace foundation {

bool isValidUtf8(std::string_view text) {
    return simdjson::validate_utf8(text.data(), text.size());
}

} // namespace foundation
