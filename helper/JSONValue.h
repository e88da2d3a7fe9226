#pragma once

#include "foundation/JSON.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kemvi {

class JSONValue;

/// A map from string key to value that keeps no order of its own. Kept flat: results have few members per object and
/// tens of thousands of objects.
class JSONObject {
public:
    using Member = std::pair<std::string, JSONValue>;

    JSONObject();
    /// Of a key that occurs more than once the last value is kept.
    explicit JSONObject(std::vector<Member> members);

    /// The value of `key`, or nullptr.
    const JSONValue* find(std::string_view key) const;

    const std::vector<Member>& members() const { return members_; }

    friend bool operator==(const JSONObject& a, const JSONObject& b);

private:
    std::vector<Member> members_;
};

/// Any JSON value, as operations return them. Immutable once built.
class JSONValue {
public:
    using Array = std::vector<JSONValue>;

    struct Null {
        friend bool operator==(const Null&, const Null&) = default;
    };

    /// The cases, in the order of the alternatives of the storage.
    enum class Case { boolean, number, string, array, object, null };

    JSONValue() : storage_(Null{}) {}

    JSONValue(bool value) : storage_(value) {}

    JSONValue(double value) : storage_(value) {}

    JSONValue(std::string value) : storage_(std::move(value)) {}

    JSONValue(const char* value) : storage_(std::string(value)) {}

    JSONValue(Array value) : storage_(std::move(value)) {}

    JSONValue(JSONObject value) : storage_(std::move(value)) {}

    JSONValue(Null value) : storage_(value) {}

    /// Reads the value at which `element` stands. Throws DecodingError ("Unsupported JSON value" for a number that no
    /// double can hold).
    static JSONValue read(foundation::JSONElement& element);

    /// Reads a value that nobody wants, for the errors that `read` would throw.
    static void pass(foundation::JSONElement& element);
    /// Reads a number as `read` does.
    static double number(foundation::JSONElement& element);

    Case kind() const { return static_cast<Case>(storage_.index()); }

    /// The payload if the value is of that case, otherwise nullptr.
    const bool* asBool() const { return std::get_if<bool>(&storage_); }

    const double* asNumber() const { return std::get_if<double>(&storage_); }

    const std::string* asString() const { return std::get_if<std::string>(&storage_); }

    const Array* asArray() const { return std::get_if<Array>(&storage_); }

    const JSONObject* asObject() const { return std::get_if<JSONObject>(&storage_); }

    bool isNull() const { return std::holds_alternative<Null>(storage_); }

    /// Display text for logs; nothing parses it. Keys of objects are sorted, strings stand without quotes.
    std::string description() const;

    friend bool operator==(const JSONValue&, const JSONValue&) = default;

private:
    void assign(foundation::JSONElement& element);
    void assignArray(foundation::JSONElement& element);
    void assignObject(foundation::JSONElement& element);

    std::variant<bool, double, std::string, Array, JSONObject, Null> storage_;
};

} // namespace kemvi
