// Extended locale functions that libc++ expects of Apple's C library and musl does not declare.
#pragma once

#include <locale.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
float strtof_l(const char*, char**, locale_t);
double strtod_l(const char*, char**, locale_t);
long double strtold_l(const char*, char**, locale_t);
long long strtoll_l(const char*, char**, int, locale_t);
unsigned long long strtoull_l(const char*, char**, int, locale_t);
int sscanf_l(const char*, locale_t, const char*, ...);
int snprintf_l(char*, size_t, locale_t, const char*, ...);
int asprintf_l(char**, locale_t, const char*, ...);
#ifdef __cplusplus
}
#endif
