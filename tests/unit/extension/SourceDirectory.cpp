#include "SourceDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <sys/stat.h>

namespace extensiontests {

SourceDirectory::SourceDirectory() : savedPath_(std::getenv("PATH") ? std::getenv("PATH") : "") {
    std::string pattern = std::filesystem::temp_directory_path() / "kemvi-extension-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("no temporary directory");
    path_ = pattern;
    std::filesystem::permissions(path_, std::filesystem::perms(0755));
    std::filesystem::create_directory(path("bin"));
    write("bin/node", "#!/bin/sh\nexec /bin/sh \"$@\"\n");
    std::filesystem::permissions(path("bin/node"), std::filesystem::perms(0755));
    setenv("PATH", (path("bin") + ":" + savedPath_).c_str(), 1);
}

SourceDirectory::~SourceDirectory() {
    setenv("PATH", savedPath_.c_str(), 1);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void SourceDirectory::write(std::string_view name, std::string_view contents) const {
    std::ofstream(path(name), std::ios::binary) << contents;
}

std::string SourceDirectory::read(std::string_view name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void SourceDirectory::makeNamedPipe(std::string_view name) const {
    if (mkfifo(path(name).c_str(), 0600) != 0)
        throw std::runtime_error("no named pipe");
}

void SourceDirectory::configure(std::string_view helperScript) const {
    write("helper.sh", helperScript);
    write("mount-config.json", R"({"driveId":"drive-7","kemviHome":")" + path_ + R"(","repoRoot":")" + path_ +
                                   R"(","helperPath":")" + path("helper.sh") + R"("})");
}

const char* const answerFunction = R"sh(
id=0
answer() {
    IFS= read -r request || exit 0
    id=$((id + 1))
    printf '{"id":"%s",%s}\n' "$id" "$1"
}
)sh";

std::string agreeableHelper() {
    return std::string(answerFunction) + "while :; do answer '\"ok\":true'; done\n";
}

} // namespace extensiontests
