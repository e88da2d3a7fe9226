#include "foundation/PosixErrno.h"

#include <cerrno>

namespace foundation {
namespace {

struct Pair {
    std::int32_t darwin;
    int platform;
};

// EOPNOTSUPP comes after ENOTSUP: the two share one number on Linux, and ENOTSUP is the one the core uses.
constexpr Pair pairs[] = {
    {posixErrno::EPERM_, EPERM},     {posixErrno::ENOENT_, ENOENT},       {posixErrno::EINTR_, EINTR},
    {posixErrno::EIO_, EIO},         {posixErrno::ENXIO_, ENXIO},         {posixErrno::E2BIG_, E2BIG},
    {posixErrno::ENOEXEC_, ENOEXEC}, {posixErrno::EBADF_, EBADF},         {posixErrno::ENOMEM_, ENOMEM},
    {posixErrno::EACCES_, EACCES},   {posixErrno::EBUSY_, EBUSY},         {posixErrno::EEXIST_, EEXIST},
    {posixErrno::EXDEV_, EXDEV},     {posixErrno::ENODEV_, ENODEV},       {posixErrno::ENOTDIR_, ENOTDIR},
    {posixErrno::EISDIR_, EISDIR},   {posixErrno::EINVAL_, EINVAL},       {posixErrno::ENFILE_, ENFILE},
    {posixErrno::EMFILE_, EMFILE},   {posixErrno::EFBIG_, EFBIG},         {posixErrno::ENOSPC_, ENOSPC},
    {posixErrno::EROFS_, EROFS},     {posixErrno::EMLINK_, EMLINK},       {posixErrno::EPIPE_, EPIPE},
    {posixErrno::ERANGE_, ERANGE},   {posixErrno::EAGAIN_, EAGAIN},       {posixErrno::ENOTSUP_, ENOTSUP},
    {posixErrno::ELOOP_, ELOOP},     {posixErrno::ETIMEDOUT_, ETIMEDOUT}, {posixErrno::ENAMETOOLONG_, ENAMETOOLONG},
    {posixErrno::EDQUOT_, EDQUOT},   {posixErrno::ENOTEMPTY_, ENOTEMPTY}, {posixErrno::ESTALE_, ESTALE},
    {posixErrno::ENOSYS_, ENOSYS},   {posixErrno::EOVERFLOW_, EOVERFLOW}, {posixErrno::EOPNOTSUPP_, EOPNOTSUPP},
};

} // namespace

std::int32_t darwinErrno(int platformErrno) {
    for (const Pair& pair : pairs)
        if (pair.platform == platformErrno)
            return pair.darwin;
    return posixErrno::EIO_;
}

int platformErrno(std::int32_t darwinErrno) {
    for (const Pair& pair : pairs)
        if (pair.darwin == darwinErrno)
            return pair.platform;
    return EIO;
}

} // namespace foundation
