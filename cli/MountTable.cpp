#include "cli/MountTable.h"

#include "cli/CommandError.h"
#include "foundation/Error.h"
#include "foundation/FileContents.h"

#include <algorithm>
#include <charconv>

namespace cli {

namespace {

std::vector<std::string_view> splitAt(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        const auto end = std::min(text.find(separator), text.size());
        pieces.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pieces;
}

/// The kernel writes space, tab, line break and backslash as a backslash and three octal digits.
std::string withoutOctalEscapes(std::string_view text) {
    const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
            isOctal(text[i + 3])) {
            plain += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::optional<unsigned> decimal(std::string_view text) {
    unsigned value = 0;
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

/// "id parent major:minor root mountpoint options [tags...] - type source superoptions"
std::optional<MountEntry> parseLine(std::string_view line) {
    const auto fields = splitAt(line, ' ');
    const auto dash = std::find(fields.begin(), fields.end(), "-");
    if (dash - fields.begin() < 6 || fields.end() - dash < 3) {
        return std::nullopt;
    }
    const auto device = splitAt(fields[2], ':');
    if (device.size() != 2) {
        return std::nullopt;
    }
    const auto major = decimal(device[0]);
    const auto minor = decimal(device[1]);
    if (!major || !minor) {
        return std::nullopt;
    }
    return MountEntry{*major, *minor, withoutOctalEscapes(fields[4]), withoutOctalEscapes(dash[1]),
                      withoutOctalEscapes(dash[2])};
}

} // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text) {
    std::vector<MountEntry> table;
    for (const auto line : splitAt(text, '\n')) {
        if (auto entry = parseLine(line)) {
            table.push_back(std::move(*entry));
        }
    }
    return table;
}

std::vector<MountEntry> readMountTable() {
    try {
        return parseMountInfo(foundation::contentsOfFile("/proc/self/mountinfo"));
    } catch (const foundation::Error& error) {
        throw CommandError(ExitCode::failure, "mount table", error.description());
    }
}

std::optional<MountEntry> findMount(const std::vector<MountEntry>& table, std::string_view mountPoint) {
    const auto found = std::find_if(table.rbegin(), table.rend(),
                                    [&](const MountEntry& entry) { return entry.mountPoint == mountPoint; });
    return found == table.rend() ? std::nullopt : std::optional(*found);
}

} // namespace cli
