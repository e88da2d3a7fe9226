#pragma once

#include "foundation/ByteBuffer.h"
#include "foundation/JSON.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace bench {

/// The members of one request line; those that it lacks are empty or 0.
struct RequestFields {
    std::string id;
    std::string op;
    std::string path;
    std::string oldPath;
    std::string newPath;
    std::string mtime;
    bool writes = false; // among the flags of an open
    bool creates = false;
    bool truncates = false;
    std::int64_t handle = 0;
    std::int64_t offset = 0;
    std::int64_t length = 0;
    std::int64_t mode = 0;
    foundation::ByteBuffer data; // decoded

    /// Reads a line, behind which `payloadSlack` bytes can be read, in place of what was read before. Throws
    /// foundation::DecodingError, std::runtime_error.
    void read(std::string_view line, foundation::JSONReader& reader);

private:
    void take(std::string_view key, foundation::JSONElement& value);
    void takeFlags(foundation::JSONElement& value);
    void takeData(std::string_view escaped);
    std::string* textField(std::string_view key);
    std::int64_t* numberField(std::string_view key);

    foundation::ByteBuffer scratch_;
};

} // namespace bench
