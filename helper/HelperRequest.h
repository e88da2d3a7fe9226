#pragma once

#include "foundation/ByteBuffer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kemvi {

/// One request to the helper. Fields that are absent do not appear on the line.
struct HelperRequest {
    std::string id; // decimal text of the client's request counter
    std::string op;
    std::optional<std::string> path;
    std::optional<std::string> oldPath;
    std::optional<std::string> newPath;
    std::optional<std::vector<std::string>> flags;
    std::optional<std::int64_t> handle;
    std::optional<std::int64_t> offset; // bytes
    std::optional<std::int64_t> length; // bytes
    /// The base64 text as it stands on the line, with its slashes escaped already. It is not copied and must live until
    /// the request has been written.
    std::optional<std::string_view> dataBase64;
    std::optional<std::int64_t> mode;
    std::optional<std::string> mtime;
};

/// Turns requests into lines. Keeps its working memory between requests; not thread-safe.
class HelperRequestEncoder {
public:
    /// The pieces of one line, to be sent one after another; a line without payload is all head. Views into the encoder
    /// and the request, valid until either changes.
    struct Line {
        std::string_view head;
        std::string_view payload;
        std::string_view tail;
    };

    /// One compact JSON object and byte 10: `id` and `op`, then each field that is present in the record's order; every
    /// slash escaped, characters outside ASCII as they are. Throws foundation::EncodingError for a string that is not
    /// UTF-8.
    Line encode(const HelperRequest& request);

private:
    foundation::ByteBuffer text_;
};

} // namespace kemvi
