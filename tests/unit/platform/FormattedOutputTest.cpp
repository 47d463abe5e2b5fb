#include <cerrno>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "platform/FormattedOutput.h"
#include "support/CapturedStream.h"

TEST(FormattedOutput, EachFormatWidthTakesItsOwnStringWidthForLowerCaseS) {
    CapturedStream out;
    EXPECT_EQ(fprintf_8(out.get(), "a %S b %s\n", u"wide", "narrow"), 16);
    EXPECT_EQ(fprintf_u16(out.get(), u"a %s b %S\n", u"wide", "narrow"), 16);
    // Sixteen-bit arguments are written as UTF-8, a unit that stands for a
    // byte as that byte.
    fprintf_8(out.get(), "[%S]", u"\x0141\xFFE9z");
    EXPECT_EQ(out.text(), "a wide b narrow\na wide b narrow\n[\xC5\x81\xE9z]");
}

TEST(FormattedOutput, ManyMixedArgumentsSpillIntoTheStackInOrder) {
    // Ten integers and strings and twelve floating-point values: more than the
    // six general and eight vector registers, interleaved so that the stack
    // area holds both kinds.
    const float quarter = 0.25f;
#define MIXED_ARGUMENTS                                                                                               \
    1, u"w1", 1.5, "n1", 2, u"w2", 2.5, quarter, 3, 3.5, "n2", u"w3", 4.5, 1234567890123L, 5.5, 6.5, u"w4", 0xBEEF,  \
        7.5, "n3", 8.5e10, 9.5, 10.5, u"w5", 11.5, 'Q', -7
    const char* format8 = "%d %S %f %s %d %S %f %f %d %f %s %S %f %ld %f %f %S %x %f %s %e %f %g %S %f %c|%d";
    const char16_t* format16 = u"%d %s %f %S %d %s %f %f %d %f %S %s %f %ld %f %f %s %x %f %S %e %f %g %s %f %c|%d";
    const std::string want = "1 w1 1.500000 n1 2 w2 2.500000 0.250000 3 3.500000 n2 w3 4.500000 1234567890123 "
                             "5.500000 6.500000 w4 beef 7.500000 n3 8.500000e+10 9.500000 10.5 w5 11.500000 Q|-7";

    CapturedStream out8;
    fprintf_8(out8.get(), format8, MIXED_ARGUMENTS);
    EXPECT_EQ(out8.text(), want);
    CapturedStream out16;
    fprintf_u16(out16.get(), format16, MIXED_ARGUMENTS);
    EXPECT_EQ(out16.text(), want);
    char16_t wide[512];
    EXPECT_EQ(snprintf_u16(wide, 512, format16, MIXED_ARGUMENTS), static_cast<int>(want.size()));
    EXPECT_EQ(std::u16string(wide), std::u16string(want.begin(), want.end()));
    char narrow[512];
    sprintf_8(narrow, format8, MIXED_ARGUMENTS);
    EXPECT_EQ(std::string(narrow), want);
#undef MIXED_ARGUMENTS
}

TEST(FormattedOutput, SnprintfU16TruncatesAndReportsTheFullLength) {
    char16_t wide[6];
    std::fill(std::begin(wide), std::end(wide), u'#');
    EXPECT_EQ(snprintf_u16(wide, 4, u"%s-%d", u"abc", 42), 6);
    EXPECT_EQ(std::u16string(wide), u"abc");
    EXPECT_EQ(wide[4], u'#');
    // No room at all: the length still comes back, nothing is written.
    EXPECT_EQ(snprintf_u16(wide, 0, u"%s", u"xyz"), 3);
    EXPECT_EQ(std::u16string(wide), u"abc");
    // Output bytes from 0x80 up come back sign-extended.
    snprintf_u16(wide, 6, u"%S", "\xE9");
    EXPECT_EQ(wide[0], 0xFFE9);
}

TEST(FormattedOutput, PercentMTakesNoArgumentAndPercentPercentSIsPlainText) {
    CapturedStream out;
    errno = ENOENT;
    fprintf_8(out.get(), "%m %S|100%%S %S", u"after", u"x");
    EXPECT_EQ(out.text(), std::string(std::strerror(ENOENT)) + " after|100%s x");
}
