// The methods refused their precompiled code, as every search asks for them:
// by module and row, each module's apart.
#include <gtest/gtest.h>

#include "hub/MethodsByModule.h"

TEST(MethodsByModule, KeepsEachModulesRowsApart) {
    MethodsByModule set;
    const ModuleID first = 0x7f0010, second = 0x7f0020;
    EXPECT_TRUE(set.insert(first, 0x06000041));
    EXPECT_FALSE(set.insert(first, 0x06000041));
    EXPECT_TRUE(set.insert(second, 0x06000041));
    EXPECT_TRUE(set.insert(second, 0x06012345));
    EXPECT_EQ(set.size(), 3u);
    EXPECT_TRUE(set.contains(first, 0x06000041));
    EXPECT_FALSE(set.contains(first, 0x06000040));
    EXPECT_FALSE(set.contains(first, 0x06012345));
    EXPECT_FALSE(set.contains(0x7f0030, 0x06000041));

    // A module that unloads takes its methods along, and only its own.
    set.eraseModule(second);
    EXPECT_EQ(set.size(), 1u);
    EXPECT_FALSE(set.contains(second, 0x06012345));
    EXPECT_TRUE(set.contains(first, 0x06000041));
}
