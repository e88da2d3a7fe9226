#pragma once

#include "foundation/JSON.h"
#include "helper/JSONValue.h"

#include <functional>
#include <string>
#include <string_view>

namespace recording {

/// A number as JSON: whole ones without a fraction, as far as a double is exact.
std::string numberText(double number);

/// A value as JSON text, in one line.
std::string jsonText(const kemvi::JSONValue& value);

/// What becomes of a string: `key` is the name of the member that it is the value of, or that holds the array it is in.
using StringRule = std::function<std::string(std::string_view key, std::string_view text)>;

/// Appends a value as JSON text, every string in it, at any depth, as `rule` says.
void appendJSON(std::string& json, std::string_view key, foundation::JSONElement& value, const StringRule& rule);

} // namespace recording
