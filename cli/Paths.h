#pragma once

#include "foundation/RealPath.h"

#include <filesystem>
#include <optional>
#include <string>

namespace cli {

/// `path` made absolute against the working directory, without "." and ".." and without a slash at the end. Touches no
/// file.
std::string absolutePath(const std::string& path);

/// The real path of `path`'s parent directory with the last component appended as it stands. The last component is
/// never looked at, so that asking about a mount point whose file system hangs does not hang. Nothing if the parent
/// does not exist.
std::optional<std::string> realParentPath(const std::string& path);

using foundation::isWithin;
using foundation::realPath;

/// Where `program` is found along PATH, as execvp would look for it.
std::optional<std::string> findInPath(const std::string& program);

/// The folder of the helpers that ship with the command: beside the sources when run from the build tree, under share/
/// when installed. Nothing if neither is there. It may be one that the caller may not look into.
std::optional<std::filesystem::path> shippedHelpers();

/// A program that ships with the command and is not run by hand: under libexec/ when installed, beside the command in
/// the build tree. Nothing if it is not there.
std::optional<std::filesystem::path> shippedProgram(const std::string& name);

} // namespace cli
