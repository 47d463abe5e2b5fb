#include <gtest/gtest.h>

#include "platform/Glob.h"

TEST(Glob, SuffixPatternMatchesOnlyTheEnding)
{
    Glob glob(u"*.fmd");
    EXPECT_TRUE(glob.match(u"a.fmd"));
    EXPECT_TRUE(glob.match(u".fmd"));
    EXPECT_FALSE(glob.match(u"a.fmd.bak"));
    EXPECT_FALSE(glob.match(u"fmd"));
    EXPECT_FALSE(glob.match(u"a.FMD")); // case-sensitive
}

TEST(Glob, StarAloneMatchesEverythingAndNothing)
{
    Glob glob(u"*");
    EXPECT_TRUE(glob.match(u""));
    EXPECT_TRUE(glob.match(u"anything at all"));
}

TEST(Glob, PatternWithoutStarMustStartAndEndTheText)
{
    Glob glob(u"abc");
    EXPECT_TRUE(glob.match(u"abc"));
    EXPECT_TRUE(glob.match(u"abcXabc")); // the one piece is first and last
    EXPECT_FALSE(glob.match(u"abcX"));
    EXPECT_FALSE(glob.match(u"Xabc"));
    EXPECT_FALSE(glob.match(u"ab"));
}

TEST(Glob, PrefixAndMiddlePieces)
{
    Glob prefix(u"abc*");
    EXPECT_TRUE(prefix.match(u"abc"));
    EXPECT_TRUE(prefix.match(u"abcdef"));
    EXPECT_FALSE(prefix.match(u"xabc"));

    Glob middle(u"a*b*c");
    EXPECT_TRUE(middle.match(u"abc"));
    EXPECT_TRUE(middle.match(u"aXXbYYc"));
    EXPECT_FALSE(middle.match(u"acb"));
    EXPECT_FALSE(middle.match(u"aXc")); // no b in between

    Glob twoMiddles(u"*x*y*");
    EXPECT_TRUE(twoMiddles.match(u"1x2y3"));
    EXPECT_FALSE(twoMiddles.match(u"1y2x3")); // order of pieces counts
}

TEST(Glob, PiecesMayOverlap)
{
    EXPECT_TRUE(Glob(u"ab*b").match(u"ab"));
    EXPECT_TRUE(Glob(u"ab*ab").match(u"ab"));
    EXPECT_FALSE(Glob(u"ab*ab").match(u"a"));
}

TEST(Glob, OnlyStarIsAWildcard)
{
    Glob glob(u"a?[bc]");
    EXPECT_TRUE(glob.match(u"a?[bc]"));
    EXPECT_FALSE(glob.match(u"axb"));
}

TEST(Glob, CopiesMatchAlikeAndKeepThePattern)
{
    Glob original(u"Billing*.dll");
    Glob copy(original);
    Glob assigned(u"other");
    assigned = original;
    EXPECT_EQ(original.pattern(), u"Billing*.dll");
    EXPECT_EQ(copy.pattern(), u"Billing*.dll");
    EXPECT_EQ(assigned.pattern(), u"Billing*.dll");
    for (const Glob* glob : {&original, &copy, &assigned}) {
        EXPECT_TRUE(glob->match(u"Billing.Core.dll"));
        EXPECT_FALSE(glob->match(u"other"));
    }
    const std::basic_string<char16_t> fromString(u"*.fml");
    EXPECT_TRUE(Glob(fromString).match(u"list.fml"));
}
