#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The one of `known` that a misspelt word is most likely meant to be; nothing if none is near. One slip per three
/// letters is allowed: a letter too many, missing, wrong, or two exchanged.
std::optional<std::string> likelyMeant(std::string_view word, const std::vector<std::string>& known);

} // namespace cli
