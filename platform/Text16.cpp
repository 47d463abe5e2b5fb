#include "platform/Text16.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/TextConversion.h"

size_t strlen_u16(const char16_t* s) {
    size_t length = 0;
    while (s[length] != 0) {
        ++length;
    }
    return length;
}

char16_t* strcpy_u16(char16_t* dst, const char16_t* src) {
    std::memcpy(dst, src, (strlen_u16(src) + 1) * sizeof(char16_t));
    return dst;
}

char16_t* strncpy_u16(char16_t* dst, const char16_t* src, size_t n) {
    // n of 0 wraps to the largest count: the whole source is copied.
    size_t limit = n - 1;
    size_t length = strlen_u16(src);
    size_t count = length < limit ? length : limit;
    std::memcpy(dst, src, count * sizeof(char16_t));
    dst[count] = 0;
    return dst;
}

char16_t* strcat_u16(char16_t* dst, const char16_t* src) {
    if (dst != nullptr && src != nullptr) {
        strcpy_u16(dst + strlen_u16(dst), src);
    }
    return dst;
}

char16_t* strdup_u16(const char16_t* s) {
    size_t bytes = (strlen_u16(s) + 1) * sizeof(char16_t);
    auto* copy = static_cast<char16_t*>(std::malloc(bytes));
    std::memcpy(copy, s, bytes);
    return copy;
}

const char16_t* strchr_u16(const char16_t* s, char16_t c) {
    for (; *s != 0; ++s) {
        if (*s == c) {
            return s;
        }
    }
    return nullptr;
}

const char16_t* strrchr_u16(const char16_t* s, char16_t c) {
    // No lower bound: the walk goes on below s until c turns up. Callers make
    // sure that c is in the string.
    for (const char16_t* p = s + strlen_u16(s);; --p) {
        if (*p == c) {
            return p;
        }
    }
}

const char16_t* strstr_u16(const char16_t* haystack, const char16_t* needle) {
    size_t length = strlen_u16(needle);
    for (const char16_t* p = haystack; *p != 0; ++p) {
        if (strncmp_u16(p, needle, length) == 0) {
            return p;
        }
    }
    return nullptr;
}

int strncmp_u16(const char16_t* a, const char16_t* b, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) {
            return a[i] < b[i] ? -1 : 1;
        }
    }
    return 0;
}

// One pass over a: the comparison ends with a's terminator, so b may be longer.
int strcmp_u16(const char16_t* a, const char16_t* b) {
    for (; *a != 0; ++a, ++b) {
        if (*a != *b) {
            return *a < *b ? -1 : 1;
        }
    }
    return 0;
}

namespace {

// Narrowed, ASCII-folded, and padded with zeros to n bytes so that a
// comparison over n never leaves the buffer.
std::string foldedForCompare(const char16_t* s, size_t n) {
    std::string folded;
    FromChar16(s, folded);
    for (char& c : folded) {
        c = static_cast<char>(std::tolower(static_cast<signed char>(c)));
    }
    if (folded.size() < n) {
        folded.resize(n);
    }
    return folded;
}

}  // namespace

int strncasecmp_u16(const char16_t* a, const char16_t* b, size_t n) {
    std::string left = foldedForCompare(a, n);
    std::string right = foldedForCompare(b, n);
    return std::char_traits<char>::compare(left.data(), right.data(), n);
}

int strcasecmp_u16(const char16_t* a, const char16_t* b) {
    return strncasecmp_u16(a, b, strlen_u16(a));
}

int atoi_u16(const char16_t* s) {
    std::string narrow;
    FromChar16(s, narrow);
    return std::atoi(narrow.c_str());
}

bool isdigit_u16(char16_t c) {
    const char16_t unit[2] = {c, 0};
    std::string narrow;
    FromChar16(unit, narrow);
    return std::isdigit(static_cast<unsigned char>(narrow.c_str()[0])) != 0;
}

namespace {
char16_t* sTokenRemainder = nullptr;
}

char16_t* strtok_u16(char16_t* s, const char16_t* delims) {
    // Walks over delimiters, not over the token: see the header.
    char16_t* start = s != nullptr ? s : sTokenRemainder;
    if (start == nullptr) {
        return nullptr;
    }
    char16_t* cursor = start;
    while (*cursor != 0 && strchr_u16(delims, *cursor) != nullptr) {
        ++cursor;
    }
    if (*cursor == 0) {
        sTokenRemainder = nullptr;
    } else {
        *cursor = 0;
        sTokenRemainder = cursor + 1;
    }
    return start;
}
