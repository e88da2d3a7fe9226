#include "cli/ResidentMemory.h"

#include "foundation/Error.h"
#include "foundation/FileContents.h"

#include <charconv>
#include <string>
#include <unistd.h>

namespace cli {

std::optional<std::uint64_t> residentBytes(pid_t process) {
    try {
        const std::string figures = foundation::contentsOfFile("/proc/" + std::to_string(process) + "/statm");
        const std::size_t second = figures.find(' ') + 1; // of pages: in all, resident, ...
        std::uint64_t pages = 0;
        const auto end = figures.data() + figures.size();
        if (std::from_chars(figures.data() + second, end, pages).ec != std::errc())
            return std::nullopt;
        return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    } catch (const foundation::Error&) {
        return std::nullopt;
    }
}

} // namespace cli
