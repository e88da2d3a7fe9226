// The system's word on where a program lies, on Linux.
#include <climits>
#include <cstring>
#include <mach-o/dyld.h>
#include <string>
#include <unistd.h>

int _NSGetExecutablePath(char* buffer, uint32_t* size) {
    char path[PATH_MAX];
    const auto length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length < 0)
        return -1;
    const auto needed = static_cast<uint32_t>(length) + 1;
    const bool fits = needed <= *size;
    *size = needed;
    if (fits)
        std::string(path, static_cast<std::size_t>(length)).copy(buffer, needed);
    return fits ? 0 : -1;
}
