#include <cstdarg>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/PrintfArgs.h"

TEST(PrintfArgs, ParseStopsBeforeTheConversionAndRefusesTextAndPercentPercent) {
    struct Case {
        const char* format;
        bool parsed;
        char conversion;   // '?' where it stays untouched
        long cursorAt;     // where the cursor is left
        long specifierAt;  // -1: not checked
    };
    const Case cases[] = {
        {"%-20S tail", true, 'S', 3, 1},
        {"%s", true, 's', 0, -1},
        // Length modifiers are skipped; 'C' is not a conversion, so the scan
        // runs on to the next one.
        {"%ld", true, 'd', 1, -1},
        {"%C%d", true, 'd', 2, -1},
        {"x%", false, '?', 0, -1},
        {"%%d", false, '%', 1, -1},
    };
    for (const Case& c : cases) {
        const char* cursor = c.format;
        char conversion = '?';
        const char* specifier = nullptr;
        EXPECT_EQ(ParsePrintfFormatSpec(cursor, conversion, specifier), c.parsed) << c.format;
        EXPECT_EQ(conversion, c.conversion) << c.format;
        EXPECT_EQ(cursor - c.format, c.cursorAt) << c.format;
        if (c.specifierAt >= 0) {
            EXPECT_EQ(specifier - c.format, c.specifierAt) << c.format;
        }
    }
}

TEST(PrintfArgs, FixCharFormatRewritesOnlyBarePercentS) {
    std::string format = "%S and %S, %-20S, %%S, %s";
    FixCharFormat(format);
    EXPECT_EQ(format, "%s and %s, %-20S, %%s, %s");
}

namespace {

// Walks its own arguments: 'p' a pointer that must equal the next expected
// one, 'f' a double to step over.
std::vector<const void*> walk(const char* kinds, ...) {
    std::vector<const void*> seen;
    va_list args;
    va_start(args, kinds);
    for (const char* kind = kinds; *kind != 0; ++kind) {
        if (*kind == 'p') {
            seen.push_back(*GetArgPointer(args));
            NextPrintfArg(args, 's');
        } else {
            NextPrintfArg(args, 'f');
        }
    }
    va_end(args);
    return seen;
}

}  // namespace

TEST(PrintfArgs, WalkFindsPointersInRegistersAndOnTheStack) {
    int values[12];
    std::vector<const void*> want;
    for (int& value : values) want.push_back(&value);
    // Five general registers remain after the kinds string, eight vector
    // registers; ten doubles and twelve pointers go past both.
    auto seen = walk("pfpfpfpfpfpfppfpfpfpfp", &values[0], 1.0, &values[1], 2.0, &values[2], 3.0, &values[3], 4.0,
                     &values[4], 5.0, &values[5], 6.0, &values[6], &values[7], 7.0, &values[8], 8.0, &values[9], 9.0,
                     &values[10], 10.0, &values[11]);
    EXPECT_EQ(seen, want);
}
