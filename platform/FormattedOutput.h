// Formatted output in which one call can mix 8-bit and 16-bit string arguments.
// In a 16-bit format %s takes a const char16_t* and %S a const char*; in an
// 8-bit format %s takes a const char* and %S a const char16_t*. A bare %S only:
// width or precision must not be combined with it. All output is 8-bit, and
// every function returns what the underlying libc function returns; the file
// writers write nothing to a null stream (a log that is not open), nor to a
// log at its limit (see CappedLog), and return 0.
#pragma once

#include <cstdarg>
#include <cstdio>

int fprintf_u16(FILE* stream, const char16_t* format, ...);
// Writes at most n-1 units and a terminator to dst.
int snprintf_u16(char16_t* dst, unsigned long n, const char16_t* format, ...);
int vfprintf_8(FILE* stream, const char* format, va_list args);
int fprintf_8(FILE* stream, const char* format, ...);
int printf_8(const char* format, ...);
int sprintf_8(char* dst, const char* format, ...);
