#include <gtest/gtest.h>

#include <string>

#include "platform/RegexUtils.h"

TEST(RegexUtils, MatchCoversTheWholeText) {
    EXPECT_TRUE(RegexUtils::match(u"Api12", u"^Api[0-9]+$"));
    EXPECT_TRUE(RegexUtils::match(u"Api12", u"Api[0-9]+"));
    EXPECT_FALSE(RegexUtils::match(u"Api12", u"Api[0-9]")); // a partial match is no match
    EXPECT_FALSE(RegexUtils::match(u"MyApi12", u"Api[0-9]+"));
    EXPECT_TRUE(RegexUtils::match(u"", u""));
    EXPECT_TRUE(RegexUtils::match(u"shop", u"sh(o|a)p"));

    EXPECT_TRUE(RegexUtils::match("Api12", "Api\\d+"));
    EXPECT_FALSE(RegexUtils::match("Api12x", "Api\\d+"));
}

TEST(RegexUtils, InvalidPatternNeverMatches) {
    EXPECT_FALSE(RegexUtils::isValid(u"(unclosed"));
    EXPECT_FALSE(RegexUtils::match(u"(unclosed", u"(unclosed"));
    EXPECT_FALSE(RegexUtils::isValid(u"[z-a]"));
    EXPECT_FALSE(RegexUtils::isValid("*"));
    EXPECT_FALSE(RegexUtils::match("a", "*"));

    // Back-references need backtracking: such a pattern is refused.
    EXPECT_FALSE(RegexUtils::isValid("(a)\\1"));

    EXPECT_TRUE(RegexUtils::isValid(u"^Api[0-9]+$"));
    EXPECT_TRUE(RegexUtils::isValid(u""));
    EXPECT_TRUE(RegexUtils::isValid("a|b"));
}

TEST(RegexUtils, NestedRepetitionDecidesWithoutBacktracking) {
    // A backtracking engine takes time exponential in the text for these.
    const std::string text(64, 'a');
    EXPECT_FALSE(RegexUtils::match(text.c_str(), "(.*)*x"));
    EXPECT_FALSE(RegexUtils::match(text.c_str(), "(a|aa)+b"));
    EXPECT_TRUE(RegexUtils::match((text + "x").c_str(), "(.*)*x"));
}
