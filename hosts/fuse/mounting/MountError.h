#pragma once

#include <stdexcept>

namespace fusehost {

/// The mount itself failed. The text says why and what to do.
class MountError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace fusehost
