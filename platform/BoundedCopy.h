// Bounded copies. They never truncate: a null destination, a size of 0, a null
// source or a string that does not fit end the process through
// _invalid_parameter. The result is 0.
#pragma once

#include <cstdint>

int wcscpy_s(char16_t* dst, unsigned long size, const char16_t* src);
int strcpy_s(char* dst, unsigned long size, const char* src);

// Ends the process (RaiseException); the arguments are ignored.
[[noreturn]] void _invalid_parameter(const char16_t* expression, const char16_t* function,
                                     const char16_t* file, unsigned int line, uintptr_t reserved);
