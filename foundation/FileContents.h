#pragma once

#include <string>

namespace foundation {

// Codes of the Cocoa domain for files that cannot be read.
namespace cocoaError {
inline constexpr int fileReadUnknown = 256;
inline constexpr int fileReadNoPermission = 257;
inline constexpr int fileReadNoSuchFile = 260;
} // namespace cocoaError

/// The bytes of a whole regular file. Throws NSErrorException in the Cocoa domain with one of the codes above and a
/// description that names the file; anything but a regular file is refused rather than waited for.
std::string contentsOfFile(const std::string& path);

} // namespace foundation
