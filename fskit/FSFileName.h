#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fskit {

/// A file name: bytes, and their text where they are valid UTF-8. Bytes are cut at the first NUL. Immutable.
class FSFileName {
public:
    FSFileName() = default;

    explicit FSFileName(std::string_view bytes) : data_(bytes.substr(0, bytes.find('\0'))) {}

    /// The bytes, always present, without a terminating NUL.
    const std::string& data() const { return data_; }

    /// The text; absent when the bytes are not valid UTF-8.
    std::optional<std::string_view> string() const;

    friend bool operator==(const FSFileName&, const FSFileName&) = default;

private:
    std::string data_;
};

} // namespace fskit
