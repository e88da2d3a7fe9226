#pragma once

#include "foundation/DecodingError.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

enum class JSONType { null, boolean, number, string, array, object };

/// The strict grammar of one JSON text, token by token: what JSONReader is made of. The text is indexed with vector
/// code first, which also checks UTF-8 and control characters in strings; every token is then checked as it is taken.
/// Nothing is taken unseen, so a text whose end was reached is valid as a whole. All functions throw DecodingError
/// (dataCorrupted) for what the grammar does not know. Not thread-safe.
class JSONTokens {
public:
    JSONTokens();
    ~JSONTokens();
    JSONTokens(const JSONTokens&) = delete;
    JSONTokens& operator=(const JSONTokens&) = delete;

    /// Stands at the first token of `text`. Throws if the text is empty or cannot be split into tokens.
    void begin(std::string_view text);
    /// Throws if anything is left.
    void expectEnd() const;

    /// The type of the value at which we stand; throws if there is none.
    JSONType nextType() const {
        switch (const char c = peek()) {
        case '"': return JSONType::string;
        case '{': return JSONType::object;
        case '[': return JSONType::array;
        case 't':
        case 'f': return JSONType::boolean;
        case 'n': return JSONType::null;
        default:
            if (c != '-' && (c < '0' || c > '9'))
                fail("expected a value");
            return JSONType::number;
        }
    }

    /// Each of these may be called only at a value of its type.
    void takeNull();
    bool takeBoolean();
    /// The text of a number, grammar checked.
    std::string_view takeNumberText();
    /// Nothing for a number that is too large for a double.
    std::optional<double> takeNumber();

    /// The text with escapes resolved: inside the text being read or, if there were any, inside this object until the
    /// next string is taken.
    std::string_view takeString() {
        const std::string_view text = token();
        const std::string_view body = text.substr(1, text.size() - 2);
        if (hasEscapes_ && body.find('\\') != std::string_view::npos)
            return takeEscapedString(body);
        ++next_;
        return body;
    }

    /// The key of a member and the colon.
    std::string_view takeKey() {
        if (peek() != '"')
            fail("expected a key in quotes");
        const std::string_view key = takeString();
        if (peek() != ':')
            fail("expected a colon behind the key");
        ++next_;
        return key;
    }

    /// Begins an array or object with its opening character.
    void enter(char opening) {
        if (peek() != opening)
            fail("expected an array or an object");
        if (++depth_ > mostLevels)
            fail("arrays and objects are nested more than 512 levels deep");
        ++next_;
    }

    /// Right after `enter`: takes the closing character if it follows.
    bool leaveIfEmpty(char closing) {
        if (peek() != closing)
            return false;
        ++next_;
        --depth_;
        return true;
    }

    /// After a value: true if a comma follows, false at the closing character; takes either.
    bool nextItem(char closing) {
        const char c = peek();
        if (c != ',' && c != closing)
            fail(closing == ']' ? "expected a comma or the end of the array"
                                : "expected a comma or the end of the object");
        ++next_;
        if (c == closing)
            --depth_;
        return c == ',';
    }

private:
    class Index;

    static constexpr int mostLevels = 512;

    char peek() const { return next_ < count_ ? text_[offsets_[next_]] : '\0'; }

    // The token at which we stand, without the white space up to the next one.
    std::string_view token() const {
        const std::size_t start = offsets_[next_];
        std::size_t end = next_ + 1 < count_ ? offsets_[next_ + 1] : text_.size();
        while (text_[end - 1] == ' ' || text_[end - 1] == '\n' || text_[end - 1] == '\r' || text_[end - 1] == '\t')
            --end;
        return text_.substr(start, end - start);
    }

    std::string_view takeEscapedString(std::string_view body);
    char32_t takeEscapedCodePoint(std::string_view body, std::size_t& at) const;
    [[noreturn]] void fail(std::string_view problem) const;

    std::unique_ptr<Index> index_;
    std::string_view text_;
    const std::uint32_t* offsets_ = nullptr; // where tokens begin
    std::size_t count_ = 0;
    bool hasEscapes_ = false; // somewhere in the text; few texts have any
    std::size_t next_ = 0;    // number of the token at which we stand
    int depth_ = 0;
    std::string unescaped_; // the last string that had escapes
};

} // namespace foundation
