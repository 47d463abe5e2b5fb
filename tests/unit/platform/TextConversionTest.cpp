#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "platform/TextConversion.h"

using u16 = std::basic_string<char16_t>;

TEST(TextConversion, WideningSignExtendsAndNarrowingKeepsTheLowByte) {
    u16 wide;
    FromChar8("a\xE9z", wide);
    EXPECT_EQ(wide, u"a\xFFE9z");

    std::string narrow;
    FromChar16(wide.c_str(), narrow);
    EXPECT_EQ(narrow, "a\xE9z");

    // U+0141 narrows to 'A'; a unit with low byte 0 stays as an embedded 0.
    FromChar16(u"\x0141\x0100x", narrow);
    EXPECT_EQ(narrow, std::string("A\0x", 3));

    // The output is replaced, not appended to.
    FromChar8("", wide);
    EXPECT_TRUE(wide.empty());
}

// Directive lines are read as UTF-8 and names written out as UTF-8; bytes that
// are not UTF-8 pass both ways as the unit-for-byte conversions take them.
TEST(TextConversion, Utf8WhereNamesMeetFilesAndPeople) {
    const std::string line = "ascii then \xC3\x9C \xE5\x90\x8D \xF0\x9D\x92\xB3 | \xC0\xAF \xED\xA0\x80 \xE9 \xE5\x90";
    char16_t wide[64];
    const size_t units = CopyUtf8To16(line.c_str(), line.size(), wide);
    // Well-formed sequences, then an overlong '/', an encoded surrogate, a
    // Latin-1 byte and a sequence cut short, each byte for itself.
    const u16 expected = u"ascii then \x00DC \x540D \xD835\xDCB3 | \xFFC0\xFFAF \xFFED\xFFA0\xFF80 \xFFE9 \xFFE5\xFF90";
    EXPECT_EQ(u16(wide, units), expected);
    EXPECT_EQ(wide[units], 0);
    std::string narrow;
    FromChar16Utf8(wide, narrow);
    EXPECT_EQ(narrow, line);
    // A lone surrogate is written as U+FFFD.
    FromChar16Utf8(u"\xD800x", narrow);
    EXPECT_EQ(narrow, "\xEF\xBF\xBDx");
}

TEST(TextConversion, NullSourceThrowsLikeTheStringClass) {
    std::string narrow;
    u16 wide;
    EXPECT_THROW(FromChar16(nullptr, narrow), std::logic_error);
    EXPECT_THROW(FromChar8(nullptr, wide), std::logic_error);
}

// Whole widening copies, and those with no room at all, are proven through
// snprintf_u16 (FormattedOutput); the bound is proven here with room for one.
TEST(TextConversion, BoundedCopiesKeepAtMostNMinusOneUnits) {
    char16_t wide[2] = {u'#', u'#'};
    CopyChar8To16("abc", wide, 1);
    EXPECT_EQ(wide[0], 0);
    // Lines long enough to be widened in blocks, whole and cut inside a block.
    const std::string line =
        "0123456789abcdef\xE9"
        "0123456789abcdef\xE9tail";
    for (size_t room : {line.size() + 1, size_t{30}}) {
        char16_t copied[64];
        CopyChar8To16(line.c_str(), copied, room);
        u16 expected;
        FromChar8(line.substr(0, room - 1).c_str(), expected);
        EXPECT_EQ(u16(copied), expected) << room;
    }

    char narrow[8];
    std::fill(std::begin(narrow), std::end(narrow), '#');
    CopyChar16To8(u"0123456789", narrow, 4);
    EXPECT_EQ(std::string(narrow), "012");
    EXPECT_EQ(narrow[4], '#');
    CopyChar16To8(u"\x0141\xFFE9", narrow, 8);
    EXPECT_EQ(std::string(narrow), "A\xE9");
}
