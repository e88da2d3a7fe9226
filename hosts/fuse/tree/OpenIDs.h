#pragma once

#include <cstdint>

namespace fusehost {

/// What the kernel calls an open file: one number for all descriptors that came of one open. ("Handle" is what the
/// volume and its helper have opened; several open files may share one.)
enum class OpenFileID : std::uint64_t {};

/// What the kernel calls an open directory.
enum class OpenDirectoryID : std::uint64_t {};

} // namespace fusehost
