// String functions on 16-bit text. They are not their libc namesakes:
//  - strcmp_u16 and strcasecmp_u16 compare over the length of their first
//    argument only, so a string equals every string it is a prefix of;
//  - strncmp_u16 compares exactly n units and does not stop at a terminator;
//  - strchr_u16 never finds the terminator; strrchr_u16 has no not-found result;
//  - strncpy_u16 always terminates and never pads;
//  - strtok_u16 walks over delimiters (see Text16.cpp), with one process-wide
//    position that is not thread safe.
// Unit comparisons return exactly -1, 0 or 1 on unsigned units.
#pragma once

#include <cstddef>
#include <string>

size_t strlen_u16(const char16_t* s);
char16_t* strcpy_u16(char16_t* dst, const char16_t* src);
char16_t* strncpy_u16(char16_t* dst, const char16_t* src, size_t n);
char16_t* strcat_u16(char16_t* dst, const char16_t* src);
// Freed by the caller with free().
char16_t* strdup_u16(const char16_t* s);
const char16_t* strchr_u16(const char16_t* s, char16_t c);
const char16_t* strrchr_u16(const char16_t* s, char16_t c);
const char16_t* strstr_u16(const char16_t* haystack, const char16_t* needle);
int strncmp_u16(const char16_t* a, const char16_t* b, size_t n);
int strcmp_u16(const char16_t* a, const char16_t* b);
// Case-insensitive for ASCII only, over the narrowed bytes of both strings.
int strncasecmp_u16(const char16_t* a, const char16_t* b, size_t n);
int strcasecmp_u16(const char16_t* a, const char16_t* b);
int atoi_u16(const char16_t* s);
bool isdigit_u16(char16_t c);
char16_t* strtok_u16(char16_t* s, const char16_t* delims);

// Mutable twins of the searches, as libc's C++ overloads have them.
inline char16_t* strchr_u16(char16_t* s, char16_t c) {
    return const_cast<char16_t*>(strchr_u16(static_cast<const char16_t*>(s), c));
}
inline char16_t* strrchr_u16(char16_t* s, char16_t c) {
    return const_cast<char16_t*>(strrchr_u16(static_cast<const char16_t*>(s), c));
}
inline char16_t* strstr_u16(char16_t* haystack, const char16_t* needle) {
    return const_cast<char16_t*>(strstr_u16(static_cast<const char16_t*>(haystack), needle));
}

// Ordering of every set and map keyed by const char16_t*. Under it a string and
// each of its extensions are equivalent keys.
// Transparent, so that a tree of owned strings is searched with a plain pointer.
struct wcsless {
    using is_transparent = void;
    bool operator()(const char16_t* a, const char16_t* b) const { return strcmp_u16(a, b) < 0; }
    bool operator()(const std::u16string& a, const std::u16string& b) const { return strcmp_u16(a.c_str(), b.c_str()) < 0; }
    bool operator()(const std::u16string& a, const char16_t* b) const { return strcmp_u16(a.c_str(), b) < 0; }
    bool operator()(const char16_t* a, const std::u16string& b) const { return strcmp_u16(a, b.c_str()) < 0; }
};
