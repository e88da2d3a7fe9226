#include "hosts/fuse/kernel/CallerNames.h"

#include "foundation/Error.h"
#include "foundation/FileContents.h"

#include <charconv>
#include <string_view>

namespace fusehost {
namespace {

/// What stands behind "label:" and a tab, to the end of the line.
std::string_view field(std::string_view status, std::string_view label) {
    const std::size_t at = status.find(label);
    if (at == std::string_view::npos)
        return {};
    const std::string_view rest = status.substr(at + label.size());
    return rest.substr(0, rest.find('\n'));
}

} // namespace

CallerName callerName(std::uint32_t thread) {
    CallerName caller{{}, thread};
    if (thread == 0)
        return caller;
    try {
        const std::string status = foundation::contentsOfFile("/proc/" + std::to_string(thread) + "/status");
        caller.name = field(status, "Name:\t");
        const std::string_view process = field(status, "\nTgid:\t");
        std::from_chars(process.data(), process.data() + process.size(), caller.process);
    } catch (const foundation::Error&) {
        // Gone, or of another namespace: it is known by its number alone.
    }
    return caller;
}

} // namespace fusehost
