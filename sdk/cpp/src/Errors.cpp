#include "Errors.h"

#include "kemvi/helper.h"

#include <cerrno>
#include <cstring>
#include <system_error>

namespace kemvi {
namespace kit {
namespace {

struct Name {
    int number;
    const char* text;
};

// Those that reach the program as they are, and others that people look for in a log.
constexpr Name names[] = {
    {ENOENT, "ENOENT"},       {EEXIST, "EEXIST"},   {EINVAL, "EINVAL"}, {EISDIR, "EISDIR"},
    {ENOTDIR, "ENOTDIR"},     {EACCES, "EACCES"},   {EPERM, "EPERM"},   {ENOTEMPTY, "ENOTEMPTY"},
    {EROFS, "EROFS"},         {EIO, "EIO"},         {EBADF, "EBADF"},   {EBUSY, "EBUSY"},
    {ENOSPC, "ENOSPC"},       {EDQUOT, "EDQUOT"},   {EFBIG, "EFBIG"},   {ELOOP, "ELOOP"},
    {EXDEV, "EXDEV"},         {EMFILE, "EMFILE"},   {ENFILE, "ENFILE"}, {ENAMETOOLONG, "ENAMETOOLONG"},
    {ENOMEM, "ENOMEM"},       {EMLINK, "EMLINK"},   {ENXIO, "ENXIO"},   {EAGAIN, "EAGAIN"},
    {ESTALE, "ESTALE"},       {ENODEV, "ENODEV"},   {ENOSYS, "ENOSYS"}, {ETIMEDOUT, "ETIMEDOUT"},
    {EOVERFLOW, "EOVERFLOW"}, {ETXTBSY, "ETXTBSY"}, {EINTR, "EINTR"},   {EOPNOTSUPP, "EOPNOTSUPP"},
    {E2BIG, "E2BIG"},         {ERANGE, "ERANGE"},   {EPIPE, "EPIPE"},   {ECONNREFUSED, "ECONNREFUSED"},
};

bool isName(const std::string& code) {
    for (const Name& name : names)
        if (code == name.text)
            return true;
    return false;
}

bool isPosix(const std::error_code& code) {
    return code.category() == std::generic_category() || code.category() == std::system_category();
}

} // namespace

std::string errorName(int number) {
    for (const Name& name : names)
        if (name.number == number)
            return name.text;
    return "EIO";
}

Failure currentFailure() {
    try {
        throw;
    } catch (const PosixError& error) {
        if (isName(error.code()))
            return {error.code(), error.what()};
        return {"", "\"" + error.code() + "\" is not the name of a POSIX error that the kit knows: " + error.what()};
    } catch (const std::system_error& error) {
        return {isPosix(error.code()) ? errorName(error.code().value()) : "", error.what()};
    } catch (const std::exception& error) {
        return {"", error.what()};
    } catch (...) {
        return {"", "something was thrown that is no std::exception"};
    }
}

} // namespace kit

PosixError::PosixError(int number, const std::string& message) : PosixError(kit::errorName(number), message) {}

PosixError PosixError::last(const std::string& what) {
    const int number = errno;
    return {number, std::generic_category().message(number) + ": " + what};
}

} // namespace kemvi
