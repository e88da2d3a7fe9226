#include "fskit/FSFileName.h"

#include "foundation/Utf8.h"

namespace fskit {

std::optional<std::string_view> FSFileName::string() const {
    if (!foundation::isValidUtf8(data_))
        return std::nullopt;
    return std::string_view(data_);
}

} // namespace fskit
