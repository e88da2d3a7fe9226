#pragma once

#include "foundation/ByteBuffer.h"
#include "foundation/JSON.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kemvi::kit {

/// A string member of a request.
struct TextField {
    bool isGiven = false; // and a string
    std::string text;
};

/// One request line as it came. Members of another type than theirs count as not given; the operations check those that
/// they use. Of a key that comes twice the last counts. Not thread-safe.
class Request {
public:
    /// The bytes of a write.
    enum class Payload { absent, given, notText, notBase64 };

    TextField id;
    TextField op;
    TextField path;
    TextField oldPath;
    TextField newPath;
    TextField mtime;
    std::optional<std::int64_t> numberAsId; // in place of a string; a mistake, which is answered under it
    std::optional<std::int64_t> handle;     // whole numbers from 0 to 2^53 - 1
    std::optional<std::int64_t> offset;
    std::optional<std::int64_t> length;
    std::optional<std::int64_t> mode;
    bool hasFlags = false; // they are an array of strings
    std::string unknownFlag;
    bool reads = false; // among the flags
    bool writes = false;
    bool creates = false;
    bool truncates = false;
    Payload payload = Payload::absent;

    /// Decoded; valid until the next line is read.
    std::span<const std::byte> data() const { return std::as_bytes(std::span(data_.data(), data_.size())); }

    /// Reads a line, behind which `copySlack` bytes can be read, in place of what was read before. Throws
    /// foundation::DecodingError if it is no JSON object.
    void read(std::string_view line);

private:
    /// A payload without escapes, and where it was taken out: an empty string is left there. There may be strings of
    /// the same name deeper in the line.
    struct Cut {
        const char* place = nullptr;
        std::string_view payload;
    };

    void clear();
    void readMembers(std::string_view text, const Cut& cut);
    bool readCuttingPayload(std::string_view line);
    void take(std::string_view key, foundation::JSONElement& value, const Cut& cut);
    void takeFlags(foundation::JSONElement& value);
    void takePayload(foundation::JSONElement& value, const Cut& cut);
    void decode(std::string_view base64);
    TextField* textField(std::string_view key);
    std::optional<std::int64_t>* numberField(std::string_view key);

    foundation::JSONReader reader_;
    foundation::ByteBuffer rest_;    // of a line whose payload was cut out
    foundation::ByteBuffer payload_; // without escapes
    foundation::ByteBuffer data_;
};

/// The id of a line that is no JSON object, in quotes as it stands there, if the line begins with it.
std::optional<std::string_view> idAtFront(std::string_view line);

} // namespace kemvi::kit
