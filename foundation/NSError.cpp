#include "foundation/NSError.h"

namespace foundation {

NSError NSError::posix(std::int32_t darwinErrno) {
    return NSError{std::string(NSPOSIXErrorDomain), darwinErrno, std::nullopt, {}};
}

NSError NSError::posix(std::int32_t darwinErrno, std::string message) {
    return NSError{std::string(NSPOSIXErrorDomain), darwinErrno, std::move(message), {}};
}

std::string NSError::description() const {
    if (!debugText.empty())
        return debugText;
    if (localizedDescription && !localizedDescription->empty())
        return *localizedDescription;
    return domain + " error " + std::to_string(code);
}

} // namespace foundation
