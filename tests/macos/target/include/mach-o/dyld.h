// How a program on macOS finds where it lies.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
int _NSGetExecutablePath(char* buffer, uint32_t* size);
#ifdef __cplusplus
}
#endif
