#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fskit {

/// A file name: bytes, and their text where they are valid UTF-8. Bytes are cut at the first NUL. Immutable.
class FSFileName {
public:
    FSFileName() = default;

    explicit FSFileName(std::string_view bytes)
        : data_(bytes.substr(0, bytes.find('\0'))), isWhole_(data_.size() == bytes.size()) {}

    /// The bytes, always present, without a terminating NUL.
    const std::string& data() const { return data_; }

    /// The text; absent when the bytes are not valid UTF-8.
    std::optional<std::string_view> string() const;

    /// False if the name was cut at a NUL, so that it is not the name it was made from.
    bool isWhole() const { return isWhole_; }

    friend bool operator==(const FSFileName& a, const FSFileName& b) { return a.data_ == b.data_; }

private:
    std::string data_;
    bool isWhole_ = true;
};

} // namespace fskit
