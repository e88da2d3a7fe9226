#pragma once

#include "helper/JSONValue.h"

#include <string_view>

namespace cli {

/// The JSON object that a line is. Throws foundation::DecodingError.
kemvi::JSONObject objectOfLine(std::string_view line);

} // namespace cli
