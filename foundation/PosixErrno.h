#pragma once

#include <cstdint>

namespace foundation {

/// macOS errno numbers, used inside the core on every platform. The trailing underscore keeps the names clear of the
/// platform's macros of the same name, whose values differ on Linux.
namespace posixErrno {
inline constexpr std::int32_t EPERM_ = 1;
inline constexpr std::int32_t ENOENT_ = 2;
inline constexpr std::int32_t EINTR_ = 4;
inline constexpr std::int32_t EIO_ = 5;
inline constexpr std::int32_t ENXIO_ = 6;
inline constexpr std::int32_t E2BIG_ = 7;
inline constexpr std::int32_t ENOEXEC_ = 8;
inline constexpr std::int32_t EBADF_ = 9;
inline constexpr std::int32_t ENOMEM_ = 12;
inline constexpr std::int32_t EACCES_ = 13;
inline constexpr std::int32_t EBUSY_ = 16;
inline constexpr std::int32_t EEXIST_ = 17;
inline constexpr std::int32_t EXDEV_ = 18;
inline constexpr std::int32_t ENODEV_ = 19;
inline constexpr std::int32_t ENOTDIR_ = 20;
inline constexpr std::int32_t EISDIR_ = 21;
inline constexpr std::int32_t EINVAL_ = 22;
inline constexpr std::int32_t ENFILE_ = 23;
inline constexpr std::int32_t EMFILE_ = 24;
inline constexpr std::int32_t EFBIG_ = 27;
inline constexpr std::int32_t ENOSPC_ = 28;
inline constexpr std::int32_t EROFS_ = 30;
inline constexpr std::int32_t EMLINK_ = 31;
inline constexpr std::int32_t EPIPE_ = 32;
inline constexpr std::int32_t ERANGE_ = 34;
inline constexpr std::int32_t EAGAIN_ = 35;
inline constexpr std::int32_t ENOTSUP_ = 45;
inline constexpr std::int32_t ETIMEDOUT_ = 60;
inline constexpr std::int32_t ELOOP_ = 62;
inline constexpr std::int32_t ENAMETOOLONG_ = 63;
inline constexpr std::int32_t ENOTEMPTY_ = 66;
inline constexpr std::int32_t EDQUOT_ = 69;
inline constexpr std::int32_t ESTALE_ = 70;
inline constexpr std::int32_t ENOSYS_ = 78;
inline constexpr std::int32_t EOVERFLOW_ = 84;
inline constexpr std::int32_t EOPNOTSUPP_ = 102;
} // namespace posixErrno

/// The macOS number for an errno value of the platform the program runs on; EIO for one that has no entry above.
std::int32_t darwinErrno(int platformErrno);

/// The platform's errno value for a macOS number; the platform's EIO for one that has no entry above.
int platformErrno(std::int32_t darwinErrno);

} // namespace foundation
