#pragma once

#include "helper/JSONValue.h"

#include <string>
#include <string_view>

namespace fuzz {

/// JSON texts that stand for the very values, to read what was read once more.
std::string jsonText(std::string_view text);
std::string jsonText(const kemvi::JSONValue& value);

inline std::string jsonText(const std::string& text) {
    return jsonText(std::string_view(text));
}

} // namespace fuzz
