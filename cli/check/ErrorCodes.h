#pragma once

#include <string_view>

namespace cli::check {

/// True for the name of an error of this system, such as "ENOSPC". May be called from any thread.
bool isPosixCode(std::string_view code);

} // namespace cli::check
