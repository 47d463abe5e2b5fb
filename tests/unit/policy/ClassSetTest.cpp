#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/ClassMethodMatcherMap.h"
#include "policy/ClassSet.h"
#include "policy/MethodMatcher.h"

namespace {

std::vector<std::u16string> members(const WCharSet& set) {
    std::vector<std::u16string> all;
    set.forEach([&all](const char16_t* item) { all.emplace_back(item); });
    return all;
}

}  // namespace

TEST(WCharSet, EmptyStringIsAMemberThatEqualsOnlyItself) {
    for (bool emptyFirst : {true, false}) {
        WCharSet set;
        if (emptyFirst) {
            set.insert(u"");
        }
        set.insert(u"Shop.Order");
        set.insert(u"Billing.Ledger");
        if (!emptyFirst) {
            set.insert(u"");
        }
        EXPECT_EQ(set.size(), 3u);
        EXPECT_TRUE(set.contains(u""));
        EXPECT_TRUE(set.contains(u"Shop.OrderItem"));
        EXPECT_TRUE(set.contains(u"Billing.Ledger"));
        EXPECT_FALSE(set.contains(u"Program"));
        EXPECT_EQ(members(set), (std::vector<std::u16string>{u"", u"Billing.Ledger", u"Shop.Order"}));
    }
    WCharSet withoutEmpty;
    withoutEmpty.insert(u"Program");
    EXPECT_FALSE(withoutEmpty.contains(u""));
}

TEST(ClassSet, QualifiedLookupOfAnOverlongNameStaysInItsBuffer) {
    ClassSet set;
    std::u16string longName(3000, u'N');
    set.insert((u"[A]" + longName.substr(0, 2044)).c_str());
    // "[A]" and 2044 units fill the 2047 that the built key can hold.
    EXPECT_TRUE(findInClassSets(set, u"A", longName.c_str()));
    EXPECT_FALSE(findInClassSets(set, u"B", longName.c_str()));
}
