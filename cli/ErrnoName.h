#pragma once

#include <string>

namespace cli {

/// "ENOENT"; the number itself for one that has no name.
std::string errnoName(int number);

} // namespace cli
