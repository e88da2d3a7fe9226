#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cli {

/// What is wrong with a path of the served tree as somebody names it ("notes/todo.txt", with or without a slash in
/// front), in words for the user; nothing if it can be meant. It need not lead anywhere.
std::optional<std::string> problemOfServedPath(std::string_view path);

} // namespace cli
