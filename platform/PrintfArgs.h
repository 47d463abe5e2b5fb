// The walk over a variadic argument list that replaces 16-bit string arguments
// by 8-bit copies before libc formats them. It reads and writes the va_list
// structure and the argument save areas directly: x86-64 System V and AArch64
// (AAPCS64) only.
#pragma once

#include <cstdarg>
#include <string>

#include "platform/CharPointers.h"

#if !defined(__x86_64__) && !defined(__aarch64__)
#error "The argument walk is written for the x86-64 System V and the AArch64 va_list only."
#endif

// True when cursor (on a '%') starts a conversion; cursor then stands on the
// character before the conversion character, specifier after the '%'.
bool ParsePrintfFormatSpec(const char*& cursor, char& conversion, const char*& specifier);
// Address of the current general-purpose argument slot.
void** GetArgPointer(va_list& args);
// Steps over one argument of the given conversion.
void NextPrintfArg(va_list& args, char conversion);
// Narrow the 16-bit string arguments in place: %s of a 16-bit format, %S of an
// 8-bit one. The caller's list itself is not advanced.
void PatchPrintfArgs(CharPointers& pointers, const char16_t* format, va_list args);
void PatchPrintfArgs8(CharPointers& pointers, const char* format, va_list args);
// Turns every bare "%S" into "%s".
void FixCharFormat(std::string& format);
