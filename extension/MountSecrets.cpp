#include "extension/MountSecrets.h"

#include "foundation/Descriptor.h"
#include "foundation/RealPath.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kemvi {
namespace {

using foundation::isWithin;
using foundation::realPath;

std::string contentsOf(const foundation::Descriptor& file, const std::string& path) {
    std::string contents;
    char bytes[4096];
    ssize_t count = 0;
    while ((count = ::read(file.number(), bytes, sizeof bytes)) > 0)
        contents.append(bytes, static_cast<std::size_t>(count));
    if (count < 0)
        throw SettingsError(path, "cannot be read: " + std::generic_category().message(errno));
    return contents;
}

/// What is checked is what is read: the file is open by then.
void checkIsSecret(const foundation::Descriptor& file, const std::string& path) {
    struct stat status {};

    if (::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode))
        throw SettingsError(path, "is no file; expected lines of NAME=VALUE");
    if (status.st_uid != ::geteuid() && status.st_uid != 0)
        throw SettingsError(path, "belongs to another user; expected you, or root");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw SettingsError(path, "is open to others, and holds secrets; run: chmod 600 " + path);
}

} // namespace

std::string secretsPath(const std::string& source) {
    return (std::filesystem::path(source) / "mount-secrets.env").string();
}

HelperSettings secretsOf(const std::string& source, const std::string& served) {
    const std::string path = secretsPath(source);
    const foundation::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen() && errno == ENOENT)
        return {};
    if (!file.isOpen())
        throw SettingsError(path, "cannot be read: " + std::generic_category().message(errno));
    checkIsSecret(file, path);
    if (!served.empty() && isWithin(realPath(path).value_or(path), realPath(served).value_or(served)))
        throw SettingsError(path,
                            "lies in the directory that \"repoRoot\" names, where the mount may show it; name another "
                            "directory, with kemvi init --force --repo-root DIR");
    HelperSettings settings;
    const std::string contents = contentsOf(file, path);
    std::string_view rest = contents;
    for (int number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (line.empty() || line.front() == '#')
            continue;
        try {
            settings.push_back(helperSetting(line, path + ": line " + std::to_string(number)));
        } catch (const SettingsError&) { // which would tell what stands there
            throw SettingsError(path + ": line " + std::to_string(number),
                                "expected NAME=VALUE, \"#\" and a remark, or nothing; a name has letters, digits and "
                                "\"_\", begins with no digit, and not with KEMVI_ (but KEMVI_STORE_)");
        }
    }
    return settings;
}

} // namespace kemvi
