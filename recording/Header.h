#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace recording {

/// What a recording keeps of the bytes that were read and written: all, their number and SHA-256, or their number.
enum class Payloads { full, hash, none };

/// Whether names are as they were, or each replaced by one that tells nothing (Scrambler).
enum class Names { plain, scrambled };

struct Settings {
    Payloads payloads = Payloads::full;
    Names names = Names::plain;
};

/// "full", "hash", "none".
std::string_view text(Payloads payloads);
/// "plain", "scrambled".
std::string_view text(Names names);
std::optional<Payloads> payloadsNamed(std::string_view name);

/// The version of the format that is written and read.
inline constexpr int formatVersion = 1;

/// The first line of a recording.
struct Header {
    std::string kemvi;      // the version of the command that recorded
    std::string started;    // ISO 8601, UTC, microseconds
    std::string mountPoint; // empty where names are scrambled
    Settings settings;

    /// Without a line break.
    std::string line() const;

    /// Throws RecordingError for a line that is no header, or one of another version of the format.
    static Header parse(std::string_view line);
};

} // namespace recording
