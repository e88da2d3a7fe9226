#include "cli/control/ServedPath.h"

#include "foundation/Utf8.h"

namespace cli {

namespace {

bool hasPart(std::string_view path, std::string_view wanted) {
    while (true) {
        const std::size_t slash = path.find('/');
        if (path.substr(0, slash) == wanted)
            return true;
        if (slash == std::string_view::npos)
            return false;
        path.remove_prefix(slash + 1);
    }
}

} // namespace

std::optional<std::string> problemOfServedPath(std::string_view path) {
    if (path.empty())
        return "is empty; \"/\" is the whole tree";
    if (!foundation::isValidUtf8(path))
        return "is not UTF-8, as every name of a served tree is";
    if (path.find('\0') != std::string_view::npos)
        return "holds a NUL, which no name can";
    for (const char* part : {"..", "."})
        if (hasPart(path, part))
            return "has the part \"" + std::string(part) + "\"; expected a path from the top of the mount";
    return std::nullopt;
}

} // namespace cli
