#pragma once

#include "cli/MountSource.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What a file held, in short. Equal for equal contents.
struct ContentsMark {
    std::uint64_t size = 0;
    std::uint64_t hash = 0;

    friend bool operator==(const ContentsMark&, const ContentsMark&) = default;
};

/// The files that a helper is made of, by absolute path; nothing for one that is not there, or is no file, and that the
/// helper asks for all the same.
using HelperFiles = std::map<std::string, std::optional<ContentsMark>>;

/// What a source directory's helper begins with: its script and, where that runs a program (`helperCommand`), the
/// program and the scripts among its arguments, as far as they are absolute paths.
std::vector<std::string> helperRoots(const MountSource& source);

/// The roots and all that they import by relative or absolute path, or in Python from beside the script, and what that
/// imports. What lies in `excluded`, an absolute path, is left alone. `beforeReading` is called with each path before
/// its file is looked at; what it throws passes through.
HelperFiles helperFiles(const std::vector<std::string>& roots, const std::string& excluded,
                        const std::function<void(const std::string&)>& beforeReading);

} // namespace cli
