#include <gtest/gtest.h>
#include <set>
#include <string>
#include <utility>

#include "platform/Text16.h"
#include "support/RealAssemblies.h"

using u16 = std::basic_string<char16_t>;

TEST(Text16, ComparisonsRunOverTheFirstArgumentAndCaseFoldsAsciiLowBytes) {
    struct Case {
        int (*compare)(const char16_t*, const char16_t*);
        const char16_t* a;
        const char16_t* b;
        int sign;
    };
    const Case cases[] = {
        {strcmp_u16, u"abc", u"abcd", 0}, {strcmp_u16, u"abcd", u"abc", 1}, {strcmp_u16, u"", u"anything", 0},
        {strcmp_u16, u"abd", u"abc", 1}, {strcmp_u16, u"abb", u"abc", -1},
        // Units compare unsigned: 0xFFE9 is above 'z'.
        {strcmp_u16, u"\xFFE9", u"z", 1}, {strcmp_u16, u"z", u"\xFFE9", -1},
        {strcasecmp_u16, u"TRUE", u"true", 0}, {strcasecmp_u16, u"tr", u"true", 0},
        {strcasecmp_u16, u"", u"true", 0}, {strcasecmp_u16, u"trued", u"true", 1},
        {strcasecmp_u16, u"abc", u"abd", -1},
        // Only the low byte takes part: U+0141 is 'A', and so equals 'a'.
        {strcasecmp_u16, u"\x0141", u"A", 0}, {strcasecmp_u16, u"\x0141", u"a", 0},
        // No folding beyond ASCII: the Latin-1 pair 0xC9/0xE9 stays apart.
        {strcasecmp_u16, u"\x00C9", u"\x00E9", -1},
    };
    for (const Case& c : cases) {
        int result = c.compare(c.a, c.b);
        // strcmp_u16 answers exactly -1, 0 or 1; the case-blind one only by sign.
        EXPECT_EQ(c.compare == strcmp_u16 ? result : (result > 0) - (result < 0), c.sign)
            << RealAssemblies::narrow(c.a) << " ? " << RealAssemblies::narrow(c.b);
    }
    const char16_t a[] = {u'a', 0, u'x'};
    const char16_t b[] = {u'a', 0, u'y'};
    EXPECT_EQ(strncmp_u16(a, b, 2), 0);
    EXPECT_EQ(strncmp_u16(a, b, 3), -1) << "read through the terminators";
    EXPECT_EQ(strncmp_u16(u"abc", u"xyz", 0), 0);
    EXPECT_EQ(strncasecmp_u16(u"ABCx", u"abcy", 3), 0);
    EXPECT_NE(strncasecmp_u16(u"ABCx", u"abcy", 4), 0);
}

TEST(Text16, WcslessMakesAStringAndItsExtensionsEquivalent) {
    std::set<const char16_t*, wcsless> keys;
    keys.insert(u"abcd");
    auto found = keys.find(u"abc");
    ASSERT_NE(found, keys.end());
    EXPECT_EQ(u16(*found), u"abcd");
    EXPECT_NE(keys.find(u"abcdef"), keys.end());
    EXPECT_EQ(keys.find(u"abd"), keys.end());
    // An extension is not inserted next to its prefix: the two are one key.
    EXPECT_FALSE(keys.insert(u"ab").second);
    EXPECT_TRUE(keys.insert(u"b").second);
    EXPECT_EQ(keys.size(), 2u);
}

TEST(Text16, CopiesAlwaysTerminateAndNeverPad) {
    char16_t buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(strncpy_u16(buffer, u"abcdef", 4), buffer);
    EXPECT_EQ(u16(buffer), u"abc");
    EXPECT_EQ(buffer[4], u'#');

    std::fill(std::begin(buffer), std::end(buffer), u'#');
    strncpy_u16(buffer, u"ab", 6);
    EXPECT_EQ(u16(buffer), u"ab");
    EXPECT_EQ(buffer[3], u'#');

    strncpy_u16(buffer, u"abc", 1);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(buffer[1], u'b');

    // n of 0 wraps to the largest count: the whole source is copied.
    strncpy_u16(buffer, u"abcdefg", 0);
    EXPECT_EQ(u16(buffer), u"abcdefg");

    // Null arguments leave the text as it is.
    EXPECT_EQ(strcat_u16(buffer, nullptr), buffer);
    EXPECT_EQ(strcat_u16(nullptr, u"q"), nullptr);
    EXPECT_EQ(u16(buffer), u"abcdefg");
}

TEST(Text16, StrchrNeverFindsTheTerminatorButStrrchrDoes) {
    const char16_t* text = u"abcabc";
    EXPECT_EQ(strchr_u16(text, u'b'), text + 1);
    EXPECT_EQ(strchr_u16(text, u'z'), nullptr);
    EXPECT_EQ(strchr_u16(text, 0), nullptr);
    EXPECT_EQ(strrchr_u16(text, u'b'), text + 4);
    EXPECT_EQ(strrchr_u16(text, 0), text + 6);
    // A unit absent from the string that starts at index 2: the walk leaves
    // the string and stops at the first one in memory below it.
    const char16_t storage[] = {u'x', u'y', u'a', u'b', 0};
    EXPECT_EQ(strrchr_u16(storage + 2, u'x'), storage);
    EXPECT_EQ(strrchr_u16(storage + 2, u'y'), storage + 1);
}

TEST(Text16, StrstrEmptyNeedleMatchesOnlyANonEmptyHaystack) {
    const char16_t* haystack = u"hello world";
    EXPECT_EQ(strstr_u16(haystack, u"world"), haystack + 6);
    EXPECT_EQ(strstr_u16(haystack, u"worlds"), nullptr);
    EXPECT_EQ(strstr_u16(haystack, u""), haystack);
    EXPECT_EQ(strstr_u16(u"", u""), nullptr);
    EXPECT_EQ(strstr_u16(u"", u"a"), nullptr);
}

TEST(Text16, AtoiAndIsdigitLookAtLowBytes) {
    EXPECT_EQ(atoi_u16(u"12ab"), 12);
    EXPECT_EQ(atoi_u16(u" -3"), -3);
    EXPECT_EQ(atoi_u16(u"ab"), 0);
    // U+0134 has the low byte '4'.
    EXPECT_EQ(atoi_u16(u"1\x0134"), 14);

    for (char16_t digit : {u'7', u'\x0137', u'\x4530'}) EXPECT_TRUE(isdigit_u16(digit)) << int(digit);
    for (char16_t other : {u'\x0660', u'\0', u'a'}) EXPECT_FALSE(isdigit_u16(other)) << int(other);
}

TEST(Text16, StrtokWalksOverDelimitersNotTokens) {
    // A string that begins with an ordinary unit gives an empty token, that
    // unit overwritten; the next call loses 'b' the same way. A run of
    // delimiters comes back as a token, losing the unit behind it; then only
    // the terminator is left.
    char16_t text[] = u"ab,c";
    const std::pair<long, u16> tokens[] = {{0, u""}, {1, u""}, {2, u","}, {4, u""}};
    char16_t* from = text;
    for (const auto& [at, token] : tokens) {
        char16_t* found = strtok_u16(std::exchange(from, nullptr), u",");
        ASSERT_EQ(found, text + at);
        EXPECT_EQ(u16(found), token) << "token at " << at;
    }
    EXPECT_EQ(strtok_u16(nullptr, u","), nullptr);

    char16_t onlyDelimiters[] = u";;";
    EXPECT_EQ(strtok_u16(onlyDelimiters, u";"), onlyDelimiters);
    EXPECT_EQ(u16(onlyDelimiters), u";;");
    EXPECT_EQ(strtok_u16(nullptr, u";"), nullptr);
}
