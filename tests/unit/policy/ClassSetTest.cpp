#include <gtest/gtest.h>

#include <string>

#include "policy/ClassMethodMatcherMap.h"
#include "policy/ClassSet.h"
#include "policy/MethodMatcher.h"

TEST(ClassSet, QualifiedLookupOfAnOverlongNameStaysInItsBuffer) {
    ClassSet set;
    std::u16string longName(3000, u'N');
    set.insert((u"[A]" + longName.substr(0, 2044)).c_str());
    // "[A]" and 2044 units fill the 2047 that the built key can hold.
    EXPECT_TRUE(findInClassSets(set, u"A", longName.c_str()));
    EXPECT_FALSE(findInClassSets(set, u"B", longName.c_str()));
}
