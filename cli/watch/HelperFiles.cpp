#include "cli/watch/HelperFiles.h"

#include "cli/HelperScript.h"
#include "cli/Paths.h"
#include "cli/watch/ImportScanner.h"
#include "cli/watch/PythonFiles.h"
#include "foundation/Descriptor.h"

#include <array>
#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

constexpr std::size_t mostFiles = 10'000; // a script that imports more is none that somebody writes
constexpr std::size_t longestScript = std::size_t{16} * 1024 * 1024;

bool isFile(const filesystem::path& path) {
    std::error_code error;
    return filesystem::is_regular_file(path, error);
}

struct Contents {
    ContentsMark mark;
    std::string begin; // all of it where it is not longer than a script can be
};

/// Nothing if there is no such file.
std::optional<Contents> readContents(const std::string& path) {
    constexpr std::uint64_t offsetBasis = 0xcbf29ce484222325;
    constexpr std::uint64_t prime = 0x100000001b3;
    const foundation::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));

    struct stat found {};

    if (!file.isOpen() || ::fstat(file.number(), &found) != 0 || !S_ISREG(found.st_mode))
        return std::nullopt;
    Contents contents{{0, offsetBasis}, {}};
    std::array<char, 65536> bytes{};
    for (;;) {
        const auto count = ::read(file.number(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return contents;
        const std::string_view part(bytes.data(), static_cast<std::size_t>(count));
        for (const char byte : part)
            contents.mark.hash = (contents.mark.hash ^ static_cast<unsigned char>(byte)) * prime;
        contents.mark.size += part.size();
        if (contents.mark.size <= longestScript)
            contents.begin += part;
    }
}

bool mayBeScript(const filesystem::path& path, const Contents& contents) {
    const auto extension = path.extension();
    return extension != ".json" && extension != ".node" && extension != ".wasm" &&
           contents.mark.size <= longestScript && contents.begin.find('\0') == std::string::npos;
}

/// The value of two hexadecimal digits, or nothing.
std::optional<char> byteOf(std::string_view digits) {
    int value = 0;
    constexpr int base = 16;
    for (const char digit : digits) {
        const auto place = std::string_view("0123456789abcdef").find(static_cast<char>(digit | 0x20));
        if (place == std::string_view::npos)
            return std::nullopt;
        value = value * base + static_cast<int>(place);
    }
    return digits.size() == 2 ? std::optional(static_cast<char>(value)) : std::nullopt;
}

/// A specifier is a URL: "./a%20b.mjs?again" is the file "a b.mjs".
std::string withoutURL(std::string_view specifier) {
    specifier = specifier.substr(0, specifier.find_first_of("?#"));
    std::string path;
    for (std::size_t at = 0; at < specifier.size(); ++at) {
        const auto byte = specifier[at] == '%' ? byteOf(specifier.substr(at + 1, 2)) : std::nullopt;
        path += byte.value_or(specifier[at]);
        if (byte)
            at += 2;
    }
    return path;
}

/// The file that a path stands for, which may lack its extension, as `require` and node itself have it. One that is not
/// there is waited for under its own name.
std::string completed(const filesystem::path& path) {
    if (isFile(path))
        return path;
    for (const char* ending : {".js", ".json", ".node", "/index.js"}) {
        filesystem::path longer = path;
        longer += ending;
        if (isFile(longer))
            return longer;
    }
    return path;
}

/// Nothing for the name of a package.
std::optional<std::string> importedFile(const filesystem::path& folder, std::string_view specifier) {
    constexpr std::string_view scheme = "file://";
    if (specifier.starts_with(scheme))
        specifier.remove_prefix(scheme.size());
    const bool isPath = specifier == "." || specifier == ".." || specifier.starts_with("./") ||
                        specifier.starts_with("../") || specifier.starts_with("/");
    if (!isPath || specifier.find('\0') != std::string_view::npos)
        return std::nullopt;
    const filesystem::path asItStands = (folder / specifier).lexically_normal();
    if (isFile(asItStands))
        return asItStands;
    return completed((folder / withoutURL(specifier)).lexically_normal());
}

/// Whether a program that is given this path runs what is there. Whatever else it is given may be data.
bool isScript(const std::string& path) {
    const auto extension = filesystem::path(path).extension();
    return extension == ".mjs" || extension == ".js" || extension == ".cjs" || foreignInterpreter(path).has_value();
}

bool isPython(const std::string& path) {
    return foreignInterpreter(path).value_or("").starts_with("python");
}

/// A file that is still to be looked at.
struct Found {
    std::string path;
    filesystem::path home; // the folder of the script that was started; empty for that script
};

/// What a script imports: `real` is its path, from where that is looked for.
std::vector<std::string> filesImportedBy(const filesystem::path& real, const std::string& script,
                                         const filesystem::path& home) {
    if (isPython(real.string()))
        return pythonFilesOf(script, real.parent_path(), home);
    std::vector<std::string> files;
    for (const std::string& specifier : importsOf(script))
        if (auto imported = importedFile(real.parent_path(), specifier))
            files.push_back(std::move(*imported));
    return files;
}

} // namespace

std::vector<std::string> helperRoots(const MountSource& source) {
    std::vector<std::string> roots{completed(filesystem::path(source.config.helperPath).lexically_normal())};
    for (std::size_t part = 0; part < source.command.size(); ++part) {
        const std::string& path = source.command[part];
        if (path.starts_with('/') && (part == 0 || isScript(path)))
            roots.push_back(filesystem::path(path).lexically_normal());
    }
    return roots;
}

HelperFiles helperFiles(const std::vector<std::string>& roots, const std::string& excluded,
                        const std::function<void(const std::string&)>& beforeReading) {
    HelperFiles files;
    std::deque<Found> toRead;
    for (const std::string& root : roots)
        toRead.push_back({root, {}});
    for (; !toRead.empty(); toRead.pop_front()) {
        const std::string& path = toRead.front().path;
        if (files.contains(path) || files.size() >= mostFiles || isWithin(path, excluded))
            continue;
        beforeReading(path);
        // node and Python know a script by its real path, from where what it imports is looked for.
        std::error_code error;
        const filesystem::path real = filesystem::canonical(path, error);
        if (!error && real != path)
            beforeReading(real);
        const auto contents = readContents(path);
        files[path] = contents ? std::optional(contents->mark) : std::nullopt;
        if (error || !contents || !mayBeScript(real, *contents))
            continue;
        const filesystem::path home = toRead.front().home.empty() ? real.parent_path() : toRead.front().home;
        for (std::string& imported : filesImportedBy(real, contents->begin, home))
            toRead.push_back({std::move(imported), home});
    }
    return files;
}

} // namespace cli
