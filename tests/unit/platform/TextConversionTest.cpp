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

    char narrow[8];
    std::fill(std::begin(narrow), std::end(narrow), '#');
    CopyChar16To8(u"0123456789", narrow, 4);
    EXPECT_EQ(std::string(narrow), "012");
    EXPECT_EQ(narrow[4], '#');
    CopyChar16To8(u"\x0141\xFFE9", narrow, 8);
    EXPECT_EQ(std::string(narrow), "A\xE9");
}
