#pragma once

#include "foundation/ByteBuffer.h"
#include "foundation/JSON.h"
#include "foundation/NSError.h"
#include "helper/JSONValue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kemvi {

/// The base64 text of an answer, left where it arrived: it shares the line that it is part of.
struct PayloadText {
    std::shared_ptr<const foundation::ByteBuffer> line;
    std::string_view text;
};

/// One answer of the helper.
struct HelperResponse {
    /// Why the helper could not do what was asked.
    struct Failure {
        std::string message;
        std::optional<std::string> code; // symbolic errno name such as "ENOENT"
        std::optional<std::string> name; // the helper's own name for the kind of error; used by nothing

        /// The errno (a macOS number; EIO for an absent or unknown code) with the message as localised description.
        foundation::NSError posixError() const;

        const std::string& description() const { return message; }

        friend bool operator==(const Failure&, const Failure&) = default;
    };

    std::string id;
    bool ok = false;
    std::optional<JSONValue> result;
    std::optional<PayloadText> dataBase64;
    std::optional<Failure> error;

    /// Takes in a result in place of the field, whatever its type; called once more if the line turns out to have
    /// another one, which then counts.
    using ResultHandler = std::function<void(foundation::JSONElement&)>;

    /// Decodes the bytes of one line, byte 10 excluded. Throws foundation::DecodingError. With a handler the field
    /// `result` stays absent.
    static HelperResponse decode(const std::shared_ptr<const foundation::ByteBuffer>& line,
                                 foundation::JSONReader& reader, const ResultHandler& onResult = {});

    /// The same for a line whose payload is to be decoded from base64 at once: a long payload is not looked at, which
    /// the decoding then does anyway. If the payload turns out to be valid base64 the response is what `decode` would
    /// have returned, because characters of base64 are plain characters of a JSON string. If not, nothing in the
    /// response may be believed and the line is to be given to `decode`.
    static HelperResponse decodeTrustingBase64(const std::shared_ptr<const foundation::ByteBuffer>& line,
                                               foundation::JSONReader& reader);
};

} // namespace kemvi
