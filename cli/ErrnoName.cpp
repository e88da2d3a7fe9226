#include "cli/ErrnoName.h"

#include <cstring>

namespace cli {

std::string errnoName(int number) {
    const char* name = ::strerrorname_np(number);
    return name != nullptr ? name : std::to_string(number);
}

} // namespace cli
