#pragma once

#include "foundation/DecodingError.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

enum class JSONType { null, boolean, number, string, array, object };

/// "null", "a boolean", "a number", "a string", "an array", "an object".
std::string_view jsonTypeName(JSONType type);

class JSONReader;

/// One value at the place where a JSONReader stands. Valid only inside the call it was handed to, and to be taken at
/// most once; a value that is not taken is still read to its end and checked. All functions throw DecodingError with
/// kind dataCorrupted where the text is not JSON.
class JSONElement {
public:
    using ElementHandler = std::function<void(JSONElement&)>;
    using MemberHandler = std::function<void(std::string_view key, JSONElement&)>;

    JSONType type() const { return type_; }

    /// Each of these takes the value and may be called only on a value of its type.
    bool boolean();
    /// The nearest double, whatever the length of the number; nothing if it is too large for one.
    std::optional<double> number();
    /// The text with escapes resolved. Without escapes it lies inside the text being read, otherwise inside the reader,
    /// until the next string or key is read. The same holds for the key that a MemberHandler gets.
    std::string_view string();
    void forEachElement(const ElementHandler& handler);
    void forEachMember(const MemberHandler& handler);

private:
    friend class JSONReader;

    JSONElement(JSONReader& reader, JSONType type) : reader_(reader), type_(type) {}

    void take();
    void skip();

    JSONReader& reader_;
    JSONType type_;
    bool taken_ = false;
};

/// Reads JSON texts. Everything in a text is checked, whether or not it is asked for: one top-level value with nothing
/// but white space (and a UTF-8 byte order mark in front) around it, valid UTF-8, at most 512 levels of arrays and
/// objects. Numbers may have any length. Keeps its working memory between texts. Not thread-safe.
class JSONReader {
public:
    JSONReader();
    ~JSONReader();
    JSONReader(const JSONReader&) = delete;
    JSONReader& operator=(const JSONReader&) = delete;

    /// Reads a text whose top level must be an object and hands its members to `handler` in the order of the text.
    /// Throws DecodingError: typeMismatch if the top level is something else (valueNotFound for null), dataCorrupted if
    /// the text is not JSON.
    void readObject(std::string_view text, const JSONElement::MemberHandler& handler);

private:
    friend class JSONElement;
    struct Tokens;

    std::unique_ptr<Tokens> tokens_;
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
