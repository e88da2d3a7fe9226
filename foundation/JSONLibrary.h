#pragma once

#include <string>

namespace foundation {

/// The version of the library that JSON is read with (simdjson), as "3.0.1".
std::string jsonLibraryVersion();

} // namespace foundation
