#include "platform/TextConversion.h"

#include <algorithm>
#include <cstdint>
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

// Widens whole blocks of sixteen bytes in vector registers, sign-extending
// (a large directive file is widened line by line); with asciiOnly it stops at
// the first block that holds a byte from 0x80 up. Returns the bytes widened.
size_t widenBlocks(const char* src, size_t length, char16_t* dst, bool asciiOnly) {
    using Bytes = signed char __attribute__((vector_size(16)));
    using Units = short __attribute__((vector_size(32)));
    size_t i = 0;
    for (; i + sizeof(Bytes) <= length; i += sizeof(Bytes)) {
        uint64_t halves[2];
        std::memcpy(halves, src + i, sizeof(halves));
        if (asciiOnly && ((halves[0] | halves[1]) & 0x8080808080808080ull) != 0) break;
        Bytes bytes;
        std::memcpy(&bytes, src + i, sizeof(bytes));
        const Units units = __builtin_convertvector(bytes, Units);
        std::memcpy(dst + i, &units, sizeof(units));
    }
    return i;
}

// The well-formed UTF-8 sequence at text, as Unicode bounds it (no overlong
// forms, no surrogates, nothing above U+10FFFF): its length, or 0.
size_t utf8Sequence(const unsigned char* text, size_t length, char32_t* code) {
    const unsigned char lead = text[0];
    size_t size = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    }
    if (size == 0 || size > length || text[1] < low || text[1] > high) return 0;
    char32_t value = lead & (0x7F >> size);
    for (size_t i = 1; i < size; ++i) {
        if (i > 1 && (text[i] < 0x80 || text[i] > 0xBF)) return 0;
        value = value << 6 | (text[i] & 0x3F);
    }
    *code = value;
    return size;
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
    const size_t length = strnlen(src, n - 1);
    size_t i = widenBlocks(src, length, dst, false);
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

void AppendUtf8(const char16_t*& src, std::string& out) {
    char32_t code = *src++;
    if (code >= 0xD800 && code <= 0xDBFF && *src >= 0xDC00 && *src <= 0xDFFF) {
        code = 0x10000 + ((code - 0xD800) << 10) + (*src++ - 0xDC00);
    } else if (code >= 0xD800 && code <= 0xDFFF) {
        code = 0xFFFD;
    }
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | code >> 6));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | code >> 12));
        out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | code >> 18));
        out.push_back(static_cast<char>(0x80 | (code >> 12 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

void FromChar16Utf8(const char16_t* src, std::string& out) {
    requireText(src);
    out.clear();
    while (*src != 0) {
        if (*src < 0x80 || *src >= 0xFF80) {
            out.push_back(static_cast<char>(*src++ & 0xFF));
        } else {
            AppendUtf8(src, out);
        }
    }
}

std::u16string Utf16FromUtf8(const std::string& bytes) {
    std::u16string text(bytes.size(), u'\0');
    text.resize(CopyUtf8To16(bytes.c_str(), bytes.size(), text.data()));
    return text;
}

std::u16string Utf16FromUtf8(const char16_t* text) {
    std::string bytes;
    FromChar16Utf8(text, bytes);
    return Utf16FromUtf8(bytes);
}

size_t CopyUtf8To16(const char* src, size_t length, char16_t* dst) {
    requireText(src);
    size_t i = widenBlocks(src, length, dst, true);
    size_t units = i;
    const auto* bytes = reinterpret_cast<const unsigned char*>(src);
    while (i < length) {
        char32_t code = 0;
        const size_t size = bytes[i] < 0x80 ? 0 : utf8Sequence(bytes + i, length - i, &code);
        if (size == 0) {
            dst[units++] = static_cast<char16_t>(static_cast<signed char>(src[i++]));
        } else if (code >= 0x10000) {
            dst[units++] = static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
            dst[units++] = static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
            i += size;
        } else {
            dst[units++] = static_cast<char16_t>(code);
            i += size;
        }
    }
    dst[units] = 0;
    return units;
}
