#include "platform/TextConversion.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

// Same failure as the string class's own for a null pointer.
void requireText(const void* src) {
    if (src == nullptr) {
        throw std::logic_error("basic_string: construction from null is not valid");
    }
}

}  // namespace

void FromChar16(const char16_t* src, std::string& out) {
    requireText(src);
    const size_t length = std::char_traits<char16_t>::length(src);
    out.resize(length);
    for (size_t i = 0; i < length; ++i) {
        out[i] = static_cast<char>(src[i] & 0xFF);
    }
}

void FromChar8(const char* src, std::basic_string<char16_t>& out) {
    requireText(src);
    size_t length = std::strlen(src);
    out.resize(length);
    for (size_t i = 0; i < length; ++i) {
        // Through signed char: bytes from 0x80 up sign-extend.
        out[i] = static_cast<char16_t>(static_cast<signed char>(src[i]));
    }
}

void CopyChar8To16(const char* src, char16_t* dst, unsigned long n) {
    // No room even for the terminator: nothing is written.
    if (n == 0) {
        return;
    }
    requireText(src);
    // Measured first, the text is widened sixteen units at a time in vector
    // registers: a large directive file is widened line by line.
    using Bytes = signed char __attribute__((vector_size(16)));
    using Units = short __attribute__((vector_size(32)));
    const size_t length = strnlen(src, n - 1);
    size_t i = 0;
    for (; i + sizeof(Bytes) <= length; i += sizeof(Bytes)) {
        Bytes bytes;
        std::memcpy(&bytes, src + i, sizeof(bytes));
        const Units units = __builtin_convertvector(bytes, Units);
        std::memcpy(dst + i, &units, sizeof(units));
    }
    for (; i < length; ++i) {
        dst[i] = static_cast<char16_t>(static_cast<signed char>(src[i]));
    }
    dst[length] = 0;
}

void CopyChar16To8(const char16_t* src, char* dst, unsigned long n) {
    if (n == 0) {
        return;
    }
    requireText(src);
    unsigned long i = 0;
    for (; i + 1 < n && src[i] != 0; ++i) {
        dst[i] = static_cast<char>(src[i] & 0xFF);
    }
    dst[i] = 0;
}
