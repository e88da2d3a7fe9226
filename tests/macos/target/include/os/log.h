// The part of the platform's unified logging that the core uses.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
typedef struct os_log_s* os_log_t;
typedef uint8_t os_log_type_t;

enum {
    OS_LOG_TYPE_DEFAULT = 0x00,
    OS_LOG_TYPE_INFO = 0x01,
    OS_LOG_TYPE_DEBUG = 0x02,
    OS_LOG_TYPE_ERROR = 0x10,
    OS_LOG_TYPE_FAULT = 0x11,
};

os_log_t os_log_create(const char* subsystem, const char* category);
void kemvi_check_os_log(os_log_t log, os_log_type_t type, const char* format, ...);
#ifdef __cplusplus
}
#endif

#define os_log_with_type(log, type, format, ...) kemvi_check_os_log(log, type, format, ##__VA_ARGS__)
