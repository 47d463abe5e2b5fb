#include <gtest/gtest.h>

#include "platform/Glob.h"
#include "support/RealAssemblies.h"

TEST(Glob, OnlyStarIsAWildcardAndThePiecesKeepTheirPlaceAndOrder)
{
    struct Case {
        const char16_t* pattern;
        const char16_t* text;
        bool matches;
    };
    const Case cases[] = {
        // A suffix, case-sensitive.
        {u"*.fmd", u"a.fmd", true}, {u"*.fmd", u".fmd", true}, {u"*.fmd", u"a.fmd.bak", false},
        {u"*.fmd", u"fmd", false}, {u"*.fmd", u"a.FMD", false},
        {u"*", u"", true}, {u"*", u"anything at all", true},
        // Without a star the one piece is both first and last.
        {u"abc", u"abc", true}, {u"abc", u"abcXabc", true}, {u"abc", u"abcX", false},
        {u"abc", u"Xabc", false}, {u"abc", u"ab", false},
        {u"abc*", u"abc", true}, {u"abc*", u"abcdef", true}, {u"abc*", u"xabc", false},
        {u"a*b*c", u"abc", true}, {u"a*b*c", u"aXXbYYc", true}, {u"a*b*c", u"acb", false},
        {u"a*b*c", u"aXc", false}, {u"*x*y*", u"1x2y3", true}, {u"*x*y*", u"1y2x3", false},
        // The first and last pieces may overlap.
        {u"ab*b", u"ab", true}, {u"ab*ab", u"ab", true}, {u"ab*ab", u"a", false},
        {u"a?[bc]", u"a?[bc]", true}, {u"a?[bc]", u"axb", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Glob(c.pattern).match(c.text), c.matches)
            << RealAssemblies::narrow(c.pattern) << " ~ " << RealAssemblies::narrow(c.text);
    }
}

TEST(Glob, CopiesMatchAlikeAndKeepThePattern)
{
    Glob original(u"Billing*.dll");
    Glob copy(original);
    Glob assigned(u"other");
    assigned = original;
    for (const Glob* glob : {&original, &copy, &assigned}) {
        EXPECT_EQ(glob->pattern(), u"Billing*.dll");
        EXPECT_TRUE(glob->match(u"Billing.Core.dll"));
        EXPECT_FALSE(glob->match(u"other"));
    }
    EXPECT_TRUE(Glob(std::basic_string<char16_t>(u"*.fml")).match(u"list.fml"));
}
