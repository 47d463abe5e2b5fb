#include "platform/StringUtils.h"

#include "platform/Text16.h"

namespace {

bool isTrimmed(char16_t c) {
    return c == u'\r' || c == u'\n' || c == u'\t' || c == u' ';
}

// Called for every unit of every directive line: the sets are a few units.
bool isIn(char16_t c, const char16_t* set) {
    if (c == 0) return false;
    for (; *set != 0; ++set) {
        if (*set == c) return true;
    }
    return false;
}

}  // namespace

char16_t* StringUtils::wcstrim(char16_t* s) {
    while (isTrimmed(*s)) {
        ++s;
    }
    size_t length = strlen_u16(s);
    while (length > 0 && isTrimmed(s[length - 1])) {
        s[--length] = 0;
    }
    return s;
}

char16_t* StringUtils::wcsrem(char16_t* s, const char16_t* set) {
    char16_t* to = s;
    char16_t* from = s;
    for (; *from != 0; ++from) {
        if (!isIn(*from, set)) {
            *to++ = *from;
        }
    }
    while (to < from) {
        *to++ = 0;
    }
    return s;
}

char16_t* StringUtils::strtok_u16(char16_t* s, const char16_t* delims, char16_t** context) {
    if (s == nullptr) {
        *context = nullptr;
        return nullptr;
    }
    // Every unit of a directive file passes here, and delimiters are low
    // units: one comparison turns most units away.
    char16_t highest = 0;
    for (const char16_t* delim = delims; *delim != 0; ++delim) {
        highest = *delim > highest ? *delim : highest;
    }
    const auto isDelimiter = [&](char16_t c) { return c <= highest && isIn(c, delims); };
    while (isDelimiter(*s)) {
        ++s;
    }
    if (*s == 0) {
        *context = nullptr;
        return nullptr;
    }
    char16_t* end = s;
    while (*end != 0 && !isDelimiter(*end)) {
        ++end;
    }
    if (*end == 0) {
        *context = nullptr;
    } else {
        *end = 0;
        *context = end + 1;
    }
    return s;
}

bool StringUtils::findInList(char16_t* list, const char16_t* delims, const char16_t* value, bool caseSensitive) {
    char16_t* context = nullptr;
    for (char16_t* token = strtok_u16(list, delims, &context); token != nullptr;
         token = strtok_u16(context, delims, &context)) {
        const char16_t* entry = wcstrim(token);
        const int difference = caseSensitive ? strcmp_u16(entry, value) : strcasecmp_u16(entry, value);
        if (difference == 0) {
            return true;
        }
    }
    return false;
}
