// The directive language: how a line is taken apart, and the table of
// keywords with what each does to the directive controller.
//
// A line is "Keyword: arg1 arg2 arg3 ...". The keyword is what stands before
// the first colon (colons at the start skipped), trimmed; the arguments are
// the next tokens delimited by blanks, tabs and line ends, in which colons are
// ordinary characters. A keyword names the first table entry that it is a
// leading part of, in table order, and whose minimum of arguments the line
// reaches: "Skip: A" acts as SkipAssembly. Anything else is ignored silently.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/CorTypes.h"

class DirectiveController;

// One line taken apart in place.
struct DirectiveLine {
    // Trimmed and not empty, of keywordLength units.
    char16_t* keyword = nullptr;
    uint32_t keywordLength = 0;
    // Arguments 1 to 3, then a fourth token that only the labelled form reads;
    // null where the line has none.
    char16_t* arguments[4] = {};
    // 0 to 3: the fourth token does not count.
    int count = 0;
    // The units of each argument.
    uint32_t lengths[4] = {};

    std::u16string_view argument(int i) const { return {arguments[i], lengths[i]}; }
};

class DirectiveKeywords {
public:
    // What a keyword does; null for a keyword that is recognised and ignored.
    using Apply = HRESULT (*)(DirectiveController& controller, const DirectiveLine& line);

    struct Keyword {
        const char16_t* name;
        int minimum;
        Apply apply;
    };

    // False for a comment (a '#' as the very first unit) and for a line
    // without a keyword.
    static bool parse(char16_t* line, DirectiveLine& parsed);
    // The same for a line whose length is known: a zero unit ends it there,
    // and none comes before.
    static bool parse(char16_t* line, size_t length, DirectiveLine& parsed);
    // The entry that the line's keyword names; null if none does.
    static const Keyword* find(const DirectiveLine& line);
    // The fewest arguments that a keyword with this name needs, whatever the
    // line has; -1 for a keyword that names no entry.
    static int minimumFor(const char16_t* keyword);
};
