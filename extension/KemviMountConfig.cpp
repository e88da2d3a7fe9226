#include "extension/KemviMountConfig.h"

#include "foundation/JSON.h"

#ifdef __APPLE__
#include <crt_externs.h>
#else
#include <unistd.h> // environ
#endif

namespace kemvi {
namespace {

char** processEnvironment() {
#ifdef __APPLE__
    return *_NSGetEnviron(); // a bundle cannot link against `environ`
#else
    return environ;
#endif
}

} // namespace

KemviMountConfig KemviMountConfig::decode(std::string_view bytes) {
    const foundation::JSONStringMembers members(bytes);
    KemviMountConfig config;
    config.driveId = members.string("driveId");
    config.kemviHome = members.string("kemviHome");
    config.repoRoot = members.string("repoRoot");
    config.helperPath = members.string("helperPath");
    return config;
}

std::map<std::string, std::string> KemviMountConfig::helperEnvironment() const {
    std::map<std::string, std::string> environment;
    for (char** entry = processEnvironment(); entry && *entry; ++entry) {
        const std::string_view text(*entry);
        const std::size_t equals = text.find('=');
        if (equals != 0 && equals != std::string_view::npos) // of a name given twice the first counts, as for getenv
            environment.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    environment["KEMVI_DRIVE_ID"] = driveId;
    environment["KEMVI_HOME"] = kemviHome;
    environment["KEMVI_REPO_ROOT"] = repoRoot;
    return environment;
}

} // namespace kemvi
