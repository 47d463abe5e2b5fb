#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "platform/Environment.h"

using u16 = std::basic_string<char16_t>;

TEST(Environment, WgetenvWidensAndKeepsEarlierPointersForTheSameValue) {
    unsetenv("TARN_PAL_GET");
    EXPECT_EQ(_wgetenv(u"TARN_PAL_GET"), nullptr);

    setenv("TARN_PAL_GET", "caf\xE9", 1);
    const char16_t* first = _wgetenv(u"TARN_PAL_GET");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(u16(first), u"caf\xFFE9");
    const char16_t* second = _wgetenv(u"TARN_PAL_GET");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(u16(first), u"caf\xFFE9");
    EXPECT_EQ(u16(second), u"caf\xFFE9");

    // A changed value replaces the cached one.
    setenv("TARN_PAL_GET", "", 1);
    const char16_t* empty = _wgetenv(u"TARN_PAL_GET");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(u16(empty), u"");
    unsetenv("TARN_PAL_GET");
    EXPECT_EQ(_wgetenv(u"TARN_PAL_GET"), nullptr);
}

TEST(Environment, WputenvSplitsAtTheFirstEquals) {
    EXPECT_EQ(_wputenv(u"TARN_PAL_PUT=B=C"), 0);
    EXPECT_STREQ(std::getenv("TARN_PAL_PUT"), "B=C");
    EXPECT_EQ(_wputenv(u"TARN_PAL_PUT="), 0);
    EXPECT_STREQ(std::getenv("TARN_PAL_PUT"), "");
    unsetenv("TARN_PAL_PUT_NONE");
    EXPECT_EQ(_wputenv(u"TARN_PAL_PUT_NONE"), 1);
    EXPECT_EQ(std::getenv("TARN_PAL_PUT_NONE"), nullptr);
    // setenv's own failure comes back: an empty name.
    EXPECT_EQ(_wputenv(u"=x"), -1);
    unsetenv("TARN_PAL_PUT");
}

TEST(Environment, GetEnvironmentVariableReturnsTheFullLengthEvenWhenCut) {
    unsetenv("TARN_PAL_VAR");
    char16_t buffer[4] = {u'#', u'#', u'#', u'#'};
    EXPECT_EQ(GetEnvironmentVariableW(u"TARN_PAL_VAR", buffer, 4), 0u);
    EXPECT_EQ(buffer[0], u'#');

    EXPECT_EQ(SetEnvironmentVariableW(u"TARN_PAL_VAR", u"abcdef"), TRUE);
    EXPECT_STREQ(std::getenv("TARN_PAL_VAR"), "abcdef");
    EXPECT_EQ(GetEnvironmentVariableW(u"TARN_PAL_VAR", buffer, 4), 6u);
    EXPECT_EQ(u16(buffer), u"abc");
    unsetenv("TARN_PAL_VAR");
}
