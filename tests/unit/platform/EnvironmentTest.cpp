#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/Environment.h"

using u16 = std::basic_string<char16_t>;

// A value handed out stays as it was when the variable changes and is read
// again (another thread may still be reading it); each text is kept once.
TEST(Environment, AValueHandedOutNeverChanges) {
    setenv("TARN_ENVIRONMENT_TEST", "first", 1);
    const char16_t* first = _wgetenv(u"TARN_ENVIRONMENT_TEST");
    setenv("TARN_ENVIRONMENT_TEST", "other", 1);
    const char16_t* other = _wgetenv(u"TARN_ENVIRONMENT_TEST");
    setenv("TARN_ENVIRONMENT_TEST", "first", 1);
    EXPECT_EQ(_wgetenv(u"TARN_ENVIRONMENT_TEST"), first);
    EXPECT_EQ(u16(first), u"first");
    EXPECT_EQ(u16(other), u"other");
    unsetenv("TARN_ENVIRONMENT_TEST");
    EXPECT_EQ(_wgetenv(u"TARN_ENVIRONMENT_TEST"), nullptr);
}
