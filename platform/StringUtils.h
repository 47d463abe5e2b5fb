// In-place handling of 16-bit text buffers.
#pragma once

class StringUtils {
public:
    // Skips leading CR, LF, tab and blank, and overwrites trailing ones with 0.
    // Returns the first unit kept; the buffer is not moved.
    static char16_t* wcstrim(char16_t* s);

    // Removes every unit of set from s in place, zeroing what is freed behind
    // the new end. Returns s.
    static char16_t* wcsrem(char16_t* s, const char16_t* set);

    // Reentrant tokenizer. The caller passes the previous *context as s for
    // the next token (not null). Leading delimiters are skipped, the delimiter
    // behind a token is overwritten with 0, and a token that runs to the end
    // sets *context to null. Runs of delimiters yield no empty token.
    static char16_t* strtok_u16(char16_t* s, const char16_t* delims, char16_t** context);

    // Splits list (destroying it) at delims, trims each token and compares it
    // with value through strcmp_u16 or strcasecmp_u16, the token first. So a
    // token that is a leading part of value matches, and a blank token matches
    // every value.
    static bool findInList(char16_t* list, const char16_t* delims, const char16_t* value, bool caseSensitive);
};
