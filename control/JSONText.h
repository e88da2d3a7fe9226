#pragma once

#include "helper/JSONValue.h"

#include <string>
#include <string_view>

namespace control {

/// The value as JSON, in one line; members in the order in which the object keeps them.
std::string jsonText(const kemvi::JSONValue& value);

/// The object that one line holds. Throws foundation::DecodingError if it holds none.
kemvi::JSONObject parsedObject(std::string_view line);

} // namespace control
