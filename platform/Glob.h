// The '*' wildcard: a pattern is cut at every '*' into pieces, and a text
// matches when the first piece starts it, the middle pieces follow in order and
// the last piece ends it. '*' is the only wildcard; matching is case-sensitive.
//
// Pieces are not kept from overlapping: "abc" matches "abcXabc" (the one piece
// is first and last), and "ab*b" matches "ab". An empty pattern is not
// supported by the callers; here it has no pieces and matches only empty text.
#pragma once

#include <string>
#include <string_view>

class Glob {
public:
    explicit Glob(const char16_t* pattern);
    explicit Glob(const std::basic_string<char16_t>& pattern);
    Glob(const Glob& other);
    Glob& operator=(const Glob& other);
    ~Glob();

    bool match(std::u16string_view text) const;
    std::basic_string<char16_t> pattern() const { return patternText; }

private:
    void init();
    void clear();

    std::basic_string<char16_t> patternText;
    std::basic_string<char16_t>** pieces = nullptr;
    int pieceCount = 0;
};
