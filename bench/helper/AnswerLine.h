#pragma once

#include "foundation/ByteBuffer.h"
#include "foundation/FileHandle.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace bench {

/// Puts one answer together and sends it.
class AnswerLine {
public:
    /// Begins an answer of success.
    void begin(std::string_view id);
    /// Puts an answer of failure in place of whatever was begun.
    void fail(std::string_view id, std::string_view code, std::string_view message);

    AnswerLine& raw(std::string_view text);
    AnswerLine& quoted(std::string_view text);
    AnswerLine& number(std::int64_t value);
    /// Base64 without escaped slashes, which the protocol allows in answers.
    AnswerLine& base64(std::span<const std::byte> data);

    /// False if nobody reads any more.
    bool send(foundation::FileHandle& output);

private:
    foundation::ByteBuffer text_;
};

} // namespace bench
