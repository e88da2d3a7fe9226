#pragma once

#include "helper/JSONValue.h"

#include <string_view>

namespace cli {

/// Writes text to standard output. Throws CommandError if not all of it could be written, but for a reader that has
/// gone (head): that ends the process quietly, as a pipe's end does.
void print(std::string_view text);

/// The members of an answer without the one that says that it is one.
kemvi::JSONObject withoutOk(const kemvi::JSONObject& answer);

} // namespace cli
