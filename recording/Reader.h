#pragma once

#include "foundation/JSON.h"
#include "helper/JSONValue.h"
#include "recording/Header.h"
#include "recording/Input.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace recording {

/// One request to the helper and its answer, as they were recorded.
struct Exchange {
    std::int64_t at = 0;   // microseconds since the recording began
    std::int64_t took = 0; // microseconds
    kemvi::JSONObject request;
    std::optional<kemvi::JSONObject> answer; // nothing if there was none that could be read
    bool unreadable = false;                 // there was one all the same

    /// Members of the request; empty where they are absent or of another type.
    std::string op() const { return text("op"); }

    std::string text(std::string_view member) const;
    std::optional<std::int64_t> number(std::string_view member) const;

    bool succeeded() const;
    /// The code of the error that was answered; empty if there is none.
    std::string errorCode() const;
};

/// One request of the kernel, as the object of a trace.
struct KernelRequest {
    kemvi::JSONObject members;
};

/// How many lines were not recorded at this place.
struct Lost {
    std::uint64_t lines = 0;
};

using Entry = std::variant<Exchange, KernelRequest, Lost>;

/// Reads a recording, from its header to its end or to where it was cut. Lines of kinds that this version does not know
/// are passed over. Not thread-safe. All functions throw RecordingError.
class Reader {
public:
    explicit Reader(const std::string& path);

    const Header& header() const { return header_; }

    /// Nothing at the end.
    std::optional<Entry> next();

    /// Whether the recording breaks off: it ended within a line, or without its last one. Known once `next` has
    /// returned nothing.
    bool wasCut() const { return !ended_; }

    /// The number of the line that was read last; the header is 1.
    std::uint64_t line() const { return line_; }

private:
    std::optional<Entry> parse(std::string_view line);

    std::unique_ptr<Input> input_;
    Header header_;
    foundation::JSONReader json_;
    std::string text_;
    std::uint64_t line_ = 0;
    bool ended_ = false; // the last line was there
};

/// The bytes of base64 text; nothing if it is none.
std::optional<std::string> decodedPayload(std::string_view base64);

} // namespace recording
