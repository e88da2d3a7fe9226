#include "foundation/Error.h"

#include "foundation/PosixErrno.h"

#include <new>

namespace foundation {

Error::~Error() = default;

const char* Error::what() const noexcept {
    try {
        what_ = description();
        return what_.c_str();
    } catch (...) {
        return "error without a description";
    }
}

NSError errorValue(const Error& error) {
    NSError value = error.nsError();
    if (value.debugText.empty())
        value.debugText = error.description();
    if (error.origin())
        value.origin = error.origin();
    return value;
}

NSError currentError() {
    try {
        throw;
    } catch (const Error& error) {
        return errorValue(error);
    } catch (const std::bad_alloc&) {
        return NSError::posix(posixErrno::ENOMEM_);
    } catch (const std::exception& error) {
        NSError value = NSError::posix(posixErrno::EIO_);
        value.debugText = error.what();
        return value;
    } catch (...) {
        return NSError::posix(posixErrno::EIO_);
    }
}

void throwPosix(std::int32_t darwinErrno) {
    throw NSErrorException(NSError::posix(darwinErrno));
}

} // namespace foundation
