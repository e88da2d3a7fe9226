#pragma once

#include "control/Members.h"

#include <string>
#include <string_view>

namespace control {

/// The version of what is spoken, in the first line from a server. It changes when a program that knows the former
/// could misunderstand; operations and members are added without.
inline constexpr int channelVersion = 1;

// Lines of the channel, each with its line break.
std::string greetingLine(std::string_view version, std::string_view mountPoint);
std::string successLine(const Members& members);
std::string refusalLine(std::string_view code, std::string_view message);

} // namespace control
