#pragma once

#include "foundation/ByteBuffer.h"
#include "foundation/FileHandle.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kemvi::kit {

/// Puts one answer together and sends it, a long one in pieces. Not thread-safe.
class AnswerLine {
public:
    explicit AnswerLine(foundation::FileHandle& output) : output_(output) {}

    /// Begins an answer of success: `id` and "ok". Each of these takes the place of what was begun and not yet sent.
    void begin(std::string_view id);

    /// Begins one of which parts may be sent before it is known how it ends: "ok" comes last. `opening` is what stands
    /// before the value's parts, `closing` what stands behind them.
    void beginParts(std::string_view id, std::string_view opening, std::string_view closing);

    AnswerLine& raw(std::string_view json);
    /// Throws std::invalid_argument if `text` is not UTF-8.
    AnswerLine& quoted(std::string_view text);
    AnswerLine& number(std::uint64_t value);
    AnswerLine& base64(std::span<const std::byte> data);

    /// Sends what there is, if that is much. To be called between the parts.
    void sendIfLong();

    /// Ends what was begun, with success, and sends it.
    void end();

    /// Ends with an error instead. No `code` if it is empty.
    void fail(std::string_view id, std::string_view code, std::string_view message);
    /// The same for an id that stands in quotes already.
    void failQuoted(std::string_view quotedId, std::string_view code, std::string_view message);

    /// False once nobody reads the answers any more.
    bool isHeard() const { return isHeard_; }

private:
    void error(std::string_view code, std::string_view message);
    void send();

    foundation::FileHandle& output_;
    foundation::ByteBuffer text_;
    std::string closing_; // of an answer in parts
    bool partlySent_ = false;
    bool isHeard_ = true;
};

} // namespace kemvi::kit
