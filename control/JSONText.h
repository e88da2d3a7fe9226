#pragma once

#include "helper/JSONValue.h"

#include <string>

namespace control {

/// The value as JSON, in one line; members in the order in which the object keeps them.
std::string jsonText(const kemvi::JSONValue& value);

} // namespace control
