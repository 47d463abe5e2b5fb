#include <gtest/gtest.h>

#include <string>

#include "platform/RegexUtils.h"

// Whole-name matching is checked through the profile rules that use it.
TEST(RegexUtils, InvalidPatternNeverMatches) {
    EXPECT_FALSE(RegexUtils::isValid(u"(unclosed"));
    EXPECT_FALSE(RegexUtils::match(u"(unclosed", u"(unclosed"));
    EXPECT_FALSE(RegexUtils::isValid(u"[z-a]"));
    EXPECT_FALSE(RegexUtils::match("a", "*"));
    // Back-references need backtracking: such a pattern is refused.
    EXPECT_FALSE(RegexUtils::isValid("(a)\\1"));
    EXPECT_TRUE(RegexUtils::isValid(u"^Api[0-9]+$"));
}

TEST(RegexUtils, NestedRepetitionDecidesWithoutBacktracking) {
    // A backtracking engine takes time exponential in the text for these.
    const std::string text(64, 'a');
    EXPECT_FALSE(RegexUtils::match(text.c_str(), "(.*)*x"));
    EXPECT_FALSE(RegexUtils::match(text.c_str(), "(a|aa)+b"));
    EXPECT_TRUE(RegexUtils::match((text + "x").c_str(), "(.*)*x"));
}
