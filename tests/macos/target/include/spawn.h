// The C library's posix_spawn and what macOS adds to it.
#pragma once

#include_next <spawn.h>

#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

#ifdef __cplusplus
extern "C" {
#endif
int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t*, int);
#ifdef __cplusplus
}
#endif
