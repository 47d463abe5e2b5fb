// Whole-text regular expressions, matched in time linear in the text (no
// backtracking): a pattern from a configuration file cannot stall a process.
// The grammar is RE2's, which lacks back-references and look-arounds; a
// pattern that does not compile never matches. Nothing is cached: every call
// compiles its pattern anew.
#pragma once

class RegexUtils {
public:
    // True if the whole text matches.
    static bool match(const char16_t* text, const char16_t* pattern);
    static bool match(const char* text, const char* pattern);

    static bool isValid(const char16_t* pattern);
    static bool isValid(const char* pattern);
};
