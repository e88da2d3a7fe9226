#pragma once

#include <string>

namespace kemvi::kit {

/// A line for people, on standard error.
void report(const std::string& text);

/// For the end of `serve`: from here on `changed` tells nobody.
void endNotices();

} // namespace kemvi::kit
