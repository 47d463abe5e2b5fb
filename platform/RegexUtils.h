// Whole-text regular expressions in the ECMAScript grammar of the standard
// library. Nothing is cached: every call compiles its pattern anew. A pattern
// that does not compile never matches.
#pragma once

class RegexUtils {
public:
    // True if the whole text matches. A std::regex_error, at compilation or
    // while matching, gives false; other exceptions pass on.
    static bool match(const char16_t* text, const char16_t* pattern);
    static bool match(const char* text, const char* pattern);

    static bool isValid(const char16_t* pattern);
    static bool isValid(const char* pattern);
};
