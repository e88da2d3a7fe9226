#include "foundation/Utf8.h"

#include <simdjson.h>

namespace foundation {

bool isValidUtf8(std::string_view text) {
    return simdjson::validate_utf8(text.data(), text.size());
}

std::size_t utf8CharacterLength(std::string_view text) {
    for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length)
        if (isValidUtf8(text.substr(0, length)))
            return length;
    return 0;
}

} // namespace foundation
