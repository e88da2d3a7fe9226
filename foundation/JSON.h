#pragma once

#include "foundation/DecodingError.h"
#include "foundation/JSONTokens.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

/// "null", "a boolean", "a number", "a string", "an array", "an object".
std::string_view jsonTypeName(JSONType type);

/// One value at the place where a JSONReader stands. Valid only inside the call it was handed to, and to be taken at
/// most once; a value that is not taken is still read to its end and checked. All functions throw DecodingError with
/// kind dataCorrupted where the text is not JSON.
class JSONElement {
public:
    JSONElement(const JSONElement&) = delete;
    JSONElement& operator=(const JSONElement&) = delete;

    JSONType type() const { return type_; }

    /// Each of these takes the value and may be called only on a value of its type.
    bool boolean() { return take().takeBoolean(); }

    /// The nearest double, whatever the length of the number; nothing if it is too large for one.
    std::optional<double> number() { return take().takeNumber(); }

    /// The text with escapes resolved. Without escapes it lies inside the text being read, otherwise inside the reader,
    /// until the next string or key is read. The same holds for the key that a handler of members gets: look at it
    /// before you take the value.
    std::string_view string() { return take().takeString(); }

    /// Calls `handler(JSONElement&)` for each element of an array.
    template <typename Handler>
    void forEachElement(const Handler& handler) {
        JSONTokens& tokens = take();
        tokens.enter('[');
        for (bool more = !tokens.leaveIfEmpty(']'); more; more = tokens.nextItem(']')) {
            JSONElement element(tokens);
            handler(element);
            element.skip();
        }
    }

    /// Calls `handler(std::string_view key, JSONElement& value)` for each member of an object, in the order of the
    /// text.
    template <typename Handler>
    void forEachMember(const Handler& handler) {
        JSONTokens& tokens = take();
        tokens.enter('{');
        for (bool more = !tokens.leaveIfEmpty('}'); more; more = tokens.nextItem('}')) {
            const std::string_view key = tokens.takeKey();
            JSONElement value(tokens);
            handler(key, value);
            value.skip();
        }
    }

private:
    friend class JSONReader;

    explicit JSONElement(JSONTokens& tokens) : tokens_(tokens), type_(tokens.nextType()) {}

    JSONTokens& take() {
        taken_ = true;
        return tokens_;
    }

    void skip() {
        if (!taken_)
            skipUntaken();
    }

    void skipUntaken();

    JSONTokens& tokens_;
    JSONType type_;
    bool taken_ = false;
};

/// Reads JSON texts. Everything in a text is checked, whether or not it is asked for: one top-level value with nothing
/// but white space (and a UTF-8 byte order mark in front) around it, valid UTF-8, at most 512 levels of arrays and
/// objects. Numbers may have any length. Keeps its working memory between texts. Not thread-safe.
class JSONReader {
public:
    /// Reads a text whose top level must be an object and calls `handler(std::string_view key, JSONElement& value)` for
    /// each of its members, in the order of the text. Throws DecodingError: typeMismatch if the top level is something
    /// else (valueNotFound for null), dataCorrupted if the text is not JSON.
    template <typename Handler>
    void readObject(std::string_view text, const Handler& handler) {
        begin(text);
        JSONElement top(tokens_);
        if (top.type() != JSONType::object)
            refuse(top);
        top.forEachMember(handler);
        tokens_.expectEnd();
    }

private:
    void begin(std::string_view text);
    [[noreturn]] void refuse(JSONElement& top) const;

    JSONTokens tokens_;
};

/// The members of one JSON object, for records whose values are strings, such as a configuration file. Of a key that
/// occurs more than once the last value counts. Immutable.
class JSONStringMembers {
public:
    /// Throws DecodingError as JSONReader::readObject does.
    explicit JSONStringMembers(std::string_view text);

    /// The value of `key`. Throws DecodingError: keyNotFound, typeMismatch (valueNotFound for null).
    const std::string& string(std::string_view key) const;

private:
    struct Member {
        JSONType type;
        std::string text; // empty unless a string
    };

    std::map<std::string, Member, std::less<>> members_;
};

} // namespace foundation
