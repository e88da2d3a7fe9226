#pragma once

#include <cstddef>

namespace fusehost {

/// What the file tree holds.
struct TreeGauges {
    std::size_t nodes = 0;
    std::size_t openFiles = 0;   // by programs
    std::size_t openItems = 0;   // in the volume
    std::size_t hiddenFiles = 0; // removed while open
};

} // namespace fusehost
