#include <cstdarg>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/PrintfArgs.h"

TEST(PrintfArgs, ParseStopsBeforeTheConversionCharacter) {
    const char* format = "%-20S tail";
    const char* cursor = format;
    char conversion = 0;
    const char* specifier = nullptr;
    EXPECT_TRUE(ParsePrintfFormatSpec(cursor, conversion, specifier));
    EXPECT_EQ(conversion, 'S');
    EXPECT_EQ(specifier, format + 1);
    EXPECT_EQ(cursor, format + 3);

    format = "%s";
    cursor = format;
    EXPECT_TRUE(ParsePrintfFormatSpec(cursor, conversion, specifier));
    EXPECT_EQ(conversion, 's');
    EXPECT_EQ(cursor, format);

    // Length modifiers are skipped; 'C' is not a conversion, so the scan runs
    // on to the next one.
    format = "%ld";
    cursor = format;
    EXPECT_TRUE(ParsePrintfFormatSpec(cursor, conversion, specifier));
    EXPECT_EQ(conversion, 'd');
    format = "%C%d";
    cursor = format;
    EXPECT_TRUE(ParsePrintfFormatSpec(cursor, conversion, specifier));
    EXPECT_EQ(conversion, 'd');
    EXPECT_EQ(cursor, format + 2);
}

TEST(PrintfArgs, ParseRefusesTextAndPercentPercent) {
    const char* format = "x%";
    const char* cursor = format;
    char conversion = '?';
    const char* specifier = nullptr;
    EXPECT_FALSE(ParsePrintfFormatSpec(cursor, conversion, specifier));
    EXPECT_EQ(cursor, format);
    EXPECT_EQ(conversion, '?');

    format = "%%d";
    cursor = format;
    EXPECT_FALSE(ParsePrintfFormatSpec(cursor, conversion, specifier));
    EXPECT_EQ(cursor, format + 1);
    EXPECT_EQ(conversion, '%');
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
    for (int& value : values) {
        want.push_back(&value);
    }
    // Five general registers remain after the kinds string, eight vector
    // registers; ten doubles and twelve pointers go past both.
    auto seen = walk("pfpfpfpfpfpfppfpfpfpfp", &values[0], 1.0, &values[1], 2.0, &values[2], 3.0, &values[3], 4.0,
                     &values[4], 5.0, &values[5], 6.0, &values[6], &values[7], 7.0, &values[8], 8.0, &values[9], 9.0,
                     &values[10], 10.0, &values[11]);
    EXPECT_EQ(seen, want);
}
