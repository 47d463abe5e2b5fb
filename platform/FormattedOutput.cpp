#include "platform/FormattedOutput.h"

#include <alloca.h>
#include <string>

#include "platform/CappedLog.h"
#include "platform/PrintfArgs.h"
#include "platform/TextConversion.h"

// Each function narrows the 16-bit string arguments in place in the save areas
// of its own va_list, then hands that list to libc with a format in which every
// bare %S has become %s. The narrowed copies live until the function returns.

namespace {

std::string finalFormat16(const char16_t* format) {
    std::string narrow;
    FromChar16(format, narrow);
    FixCharFormat(narrow);
    return narrow;
}

std::string finalFormat8(const char* format) {
    std::string copy(format);
    FixCharFormat(copy);
    return copy;
}

}  // namespace

int fprintf_u16(FILE* stream, const char16_t* format, ...) {
    if (stream == nullptr) {
        return 0;
    }
    if (!CappedLog::admits(stream)) {
        return 0;
    }
    va_list args;
    va_start(args, format);
    CharPointers pointers;
    PatchPrintfArgs(pointers, format, args);
    int result = std::vfprintf(stream, finalFormat16(format).c_str(), args);
    va_end(args);
    CappedLog::wrote(stream, result);
    return result;
}

int snprintf_u16(char16_t* dst, unsigned long n, const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    CharPointers pointers;
    PatchPrintfArgs(pointers, format, args);
    auto* narrow = static_cast<char*>(alloca(n));
    int result = std::vsnprintf(narrow, n, finalFormat16(format).c_str(), args);
    va_end(args);
    CopyChar8To16(narrow, dst, n);
    return result;
}

int vfprintf_8(FILE* stream, const char* format, va_list args) {
    if (stream == nullptr) {
        return 0;
    }
    if (!CappedLog::admits(stream)) {
        return 0;
    }
    CharPointers pointers;
    PatchPrintfArgs8(pointers, format, args);
    const int result = std::vfprintf(stream, finalFormat8(format).c_str(), args);
    CappedLog::wrote(stream, result);
    return result;
}

int fprintf_8(FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = vfprintf_8(stream, format, args);
    va_end(args);
    return result;
}

int printf_8(const char* format, ...) {
    va_list args;
    va_start(args, format);
    CharPointers pointers;
    PatchPrintfArgs8(pointers, format, args);
    int result = std::vprintf(finalFormat8(format).c_str(), args);
    va_end(args);
    return result;
}

int sprintf_8(char* dst, const char* format, ...) {
    va_list args;
    va_start(args, format);
    CharPointers pointers;
    PatchPrintfArgs8(pointers, format, args);
    int result = std::vsprintf(dst, finalFormat8(format).c_str(), args);
    va_end(args);
    return result;
}
