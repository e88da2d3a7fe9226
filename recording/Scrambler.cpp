#include "recording/Scrambler.h"

#include "recording/Sha256.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <sys/random.h>
#include <system_error>

namespace recording {
namespace {

constexpr std::array<std::size_t, 5> lengthClasses{12, 24, 48, 96, 192}; // bytes; of a name there are at most 255
constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz234567";
constexpr std::size_t keySize = 32;
constexpr std::string_view namesOfOurOwn = ".kemvi-hidden-"; // what the host makes in the served tree

// What stands behind the last dot of a name can be part of a person's name as well, so only what is known to say no
// more than the kind of a file is kept. Sorted.
constexpr auto commonExtensions = std::to_array<std::string_view>(
    {"7z",    "a",    "avi",   "bak",  "bash",   "bin", "bmp",  "bz2",  "c",      "cc",   "cfg",   "class",
     "cmake", "conf", "cpp",   "cs",   "css",    "csv", "dat",  "db",   "deb",    "diff", "doc",   "docx",
     "epub",  "exe",  "flac",  "gif",  "go",     "gz",  "h",    "hpp",  "htm",    "html", "idx",   "ini",
     "ipynb", "iso",  "jar",   "java", "jpeg",   "jpg", "js",   "json", "jsx",    "kt",   "lock",  "log",
     "lua",   "m",    "md",    "mjs",  "mk",     "mkv", "mov",  "mp3",  "mp4",    "o",    "odt",   "ogg",
     "pack",  "part", "patch", "pdf",  "php",    "pl",  "png",  "ppt",  "pptx",   "ps",   "py",    "pyc",
     "rb",    "rev",  "rpm",   "rs",   "sample", "sh",  "so",   "sql",  "sqlite", "svg",  "swift", "swp",
     "tar",   "tex",  "tgz",   "tif",  "tiff",   "tmp", "toml", "ts",   "tsx",    "txt",  "vim",   "wasm",
     "wav",   "webm", "webp",  "xls",  "xlsx",   "xml", "xz",   "yaml", "yml",    "zip",  "zsh",   "zst"});
static_assert(std::is_sorted(commonExtensions.begin(), commonExtensions.end()));

// The extension with its dot; empty if it is none that is kept.
std::string_view keptExtension(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == name.npos || dot == 0)
        return {};
    const std::string_view extension = name.substr(dot + 1);
    return std::binary_search(commonExtensions.begin(), commonExtensions.end(), extension) ? name.substr(dot)
                                                                                           : std::string_view();
}

std::size_t classOf(std::size_t length) {
    const auto found = std::lower_bound(lengthClasses.begin(), lengthClasses.end(), length);
    return found == lengthClasses.end() ? lengthClasses.back() : *found;
}

} // namespace

Scrambler::Scrambler() : key_(keySize, '\0') {
    if (::getrandom(key_.data(), key_.size(), 0) != static_cast<ssize_t>(key_.size()))
        throw std::system_error(errno, std::generic_category(), "a key for scrambling");
}

std::string Scrambler::name(std::string_view name) const {
    if (name.empty() || name == "." || name == ".." || name.starts_with(namesOfOurOwn))
        return std::string(name);
    const std::string_view extension = keptExtension(name);
    const std::string_view dot = name.starts_with('.') ? "." : "";
    const std::size_t length = classOf(name.size() - dot.size() - extension.size());
    // Twelve letters are 60 bits: two of a million names come out the same once in two million recordings. What the
    // extension is changes the rest, too, or names that differ in it alone would show that they do.
    std::string scrambled(dot);
    std::string block;
    while (scrambled.size() < dot.size() + length) {
        const Digest digest = sha256(std::array<std::string_view, 3>{key_, block, name});
        block.assign(digest.begin(), digest.end());
        for (std::size_t i = 0; i < digest.size() && scrambled.size() < dot.size() + length; ++i)
            scrambled += letters[digest.at(i) % letters.size()];
    }
    return scrambled.append(extension);
}

std::string Scrambler::path(std::string_view path) const {
    std::string scrambled;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        scrambled += name(path.substr(begin, end - begin));
        if (end < path.size())
            scrambled += '/';
        begin = end + 1;
    }
    return scrambled;
}

} // namespace recording
