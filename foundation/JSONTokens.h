#pragma once

#include "foundation/JSON.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

/// The strict grammar of one JSON text, token by token. The text is indexed with vector code first (which also checks
/// UTF-8 and control characters in strings); every token is then checked as it is taken. Nothing is taken unseen, so a
/// text whose end was reached is valid as a whole.
struct JSONReader::Tokens {
    Tokens();
    ~Tokens();
    Tokens(const Tokens&) = delete;
    Tokens& operator=(const Tokens&) = delete;

    /// Stands at the first token of `text`. Throws if the text is empty or cannot be split into tokens.
    void begin(std::string_view text);
    /// Throws if anything is left.
    void expectEnd();

    /// The type of the value at which we stand; throws if there is none.
    JSONType nextType();
    void takeNull();
    bool takeBoolean();
    /// The text of a number, grammar checked.
    std::string_view takeNumberText();
    std::optional<double> takeNumber();
    std::string_view takeString();

    /// Begins an array or object with its opening character.
    void enter(char opening);
    /// Right after `enter`: takes the closing character if it follows.
    bool leaveIfEmpty(char closing);
    /// After a value: true if a comma follows, false at the closing character; takes either.
    bool nextItem(char closing);
    /// The key of a member and the colon.
    std::string_view takeKey();

private:
    struct Index;

    char peek() const;
    std::string_view token() const;
    void unescape(std::string_view body);
    char32_t takeEscapedCodePoint(std::string_view body, std::size_t& at) const;
    [[noreturn]] void fail(std::string_view problem) const;

    std::unique_ptr<Index> index_; // where tokens begin
    std::string_view text_;
    std::size_t next_ = 0; // number of the token at which we stand
    int depth_ = 0;
    std::string unescaped_; // the last string that had escapes
};

} // namespace foundation
