#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace control {

/// The shortest text that reads back as the same number; "null" for what JSON has no number for.
std::string numberText(double value);

/// The members of a JSON object in the making, in the order in which they are added; each key is to be added once. Text
/// that is not UTF-8 gets U+FFFD for the bytes that are not. Not thread-safe.
class Members {
public:
    Members& add(std::string_view key, std::string_view text);

    Members& add(std::string_view key, const std::string& text) { return add(key, std::string_view(text)); }

    Members& add(std::string_view key, const char* text) { return add(key, std::string_view(text)); }

    Members& add(std::string_view key, bool value);

    Members& add(std::string_view key, int value) { return add(key, std::int64_t{value}); }

    Members& add(std::string_view key, unsigned value) { return add(key, std::uint64_t{value}); }

    Members& add(std::string_view key, std::int64_t value);
    Members& add(std::string_view key, std::uint64_t value);
    /// As numberText writes it.
    Members& add(std::string_view key, double value);
    Members& add(std::string_view key, const Members& object);
    Members& add(std::string_view key, const std::vector<std::string>& texts);
    Members& add(std::string_view key, const std::vector<Members>& objects);
    Members& addNull(std::string_view key);
    /// `json` is a JSON value as it stands, without a line break.
    Members& addJSON(std::string_view key, std::string_view json);

    /// All members of another object behind these.
    Members& append(const Members& more);

    bool empty() const { return text_.empty(); }

    /// The object, in one line without a line break.
    std::string json() const { return "{" + text_ + "}"; }

private:
    std::string text_; // what stands between the braces
};

} // namespace control
