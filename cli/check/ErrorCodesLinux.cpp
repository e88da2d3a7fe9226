#include "cli/check/ErrorCodes.h"

#include <cstring>
#include <functional>
#include <set>
#include <string>

namespace cli::check {

bool isPosixCode(std::string_view code) {
    static const auto codes = [] {
        std::set<std::string, std::less<>> names{"EWOULDBLOCK", "ENOTSUP", "EDEADLOCK"}; // second names of others
        for (int number = 1; number < 256; ++number)
            if (const char* name = ::strerrorname_np(number))
                names.insert(name);
        return names;
    }();
    return codes.contains(code);
}

} // namespace cli::check
