#include "cli/control/InvalidateOperation.h"

#include "cli/control/ServedPath.h"
#include "foundation/ControlCharacters.h"

#include <memory>
#include <utility>

namespace cli {

namespace {

/// Throws control::Refusal unless the request says what is meant.
std::vector<std::string> pathsOf(const control::Request& request) {
    auto paths = request.texts("paths").value_or(std::vector<std::string>());
    if (request.isSet("all") == !paths.empty())
        throw control::Refusal("badMember", "expected either \"paths\", of which there is one at least, or \"all\"");
    if (paths.empty())
        return {"/"};
    for (const std::string& path : paths)
        if (const auto problem = problemOfServedPath(path))
            throw control::Refusal("badMember", "paths: \"" + foundation::escapedControls(path) + "\" " + *problem);
    return paths;
}

} // namespace

void addInvalidateOperation(control::ControlServer& server, fusehost::FuseHost& host) {
    server.handle("invalidate", {"paths", "all"}, [&host](const control::Request& request, control::Reply& reply) {
        auto paths = pathsOf(request);
        const auto later = std::make_shared<control::Reply>(std::move(reply));
        host.invalidate(std::move(paths), [later](std::optional<std::size_t> forgotten) {
            if (forgotten)
                later->succeed(control::Members().add("forgotten", std::uint64_t{*forgotten}));
            else
                later->refuse("ending", "the mount ended before it was done, or could not do it, which its log tells");
        });
    });
}

} // namespace cli
