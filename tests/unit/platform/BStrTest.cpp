#include <cstring>
#include <gtest/gtest.h>

#include "platform/BStr.h"

TEST(BStr, LengthIsTheBytePrefixHalved) {
    alignas(4) char storage[4 + 12];
    UINT bytes = 10;
    std::memcpy(storage, &bytes, sizeof(bytes));
    std::memcpy(storage + 4, u"hello", 12);
    EXPECT_EQ(SysStringLen(reinterpret_cast<BSTR>(storage + 4)), 5u);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
}
