#include <gtest/gtest.h>
#include <string>

#include "platform/BoundedCopy.h"

TEST(BoundedCopy, CopiesWhenTheTerminatorFits) {
    char16_t wide[4] = {u'#', u'#', u'#', u'#'};
    EXPECT_EQ(wcscpy_s(wide, 4, u"abc"), 0);
    EXPECT_EQ(std::basic_string<char16_t>(wide), u"abc");
    char narrow[3] = {'#', '#', '#'};
    EXPECT_EQ(strcpy_s(narrow, 3, "ab"), 0);
    EXPECT_EQ(std::string(narrow), "ab");
    EXPECT_EQ(strcpy_s(narrow, 1, ""), 0);
    EXPECT_EQ(narrow[0], '\0');
}

TEST(BoundedCopyDeathTest, AnythingThatDoesNotFitEndsTheProcess) {
    char16_t wide[8];
    char narrow[8];
    EXPECT_DEATH(wcscpy_s(wide, 3, u"abc"), "Assertion `false' failed");
    EXPECT_DEATH(wcscpy_s(wide, 0, u""), "Assertion `false' failed");
    EXPECT_DEATH(wcscpy_s(nullptr, 8, u"a"), "Assertion `false' failed");
    EXPECT_DEATH(wcscpy_s(wide, 8, nullptr), "Assertion `false' failed");
    EXPECT_DEATH(strcpy_s(narrow, 5, "abcde"), "Assertion `false' failed");
    EXPECT_DEATH(strcpy_s(narrow, 8, nullptr), "Assertion `false' failed");
    EXPECT_DEATH(_invalid_parameter(nullptr, nullptr, nullptr, 0, 0), "Assertion `false' failed");
}
