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

TEST(WCharSet, AStringAndItsExtensionsAreOneMember) {
    WCharSet set;
    char16_t text[] = u"Shop.Order";
    set.insert(text);
    // The set keeps its own copy.
    text[0] = u'X';
    EXPECT_TRUE(set.contains(u"Shop.Order"));
    EXPECT_TRUE(set.contains(u"Shop.OrderItem"));
    EXPECT_TRUE(set.contains(u"Shop"));
    EXPECT_FALSE(set.contains(u"Shop.Invoice"));
    EXPECT_FALSE(set.contains(u"Xhop.Order"));
    EXPECT_FALSE(set.contains(nullptr));

    set.insert(u"Shop.OrderItem");
    set.insert(u"Shop.Order");
    EXPECT_EQ(members(set), std::vector<std::u16string>{u"Shop.Order"});

    set.insert(u"Billing.Ledger");
    EXPECT_EQ(set.size(), 2u);
    set.clear();
    EXPECT_TRUE(set.empty());
    EXPECT_FALSE(set.contains(u"Shop.Order"));
}

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

TEST(ClassSet, QualifiedCountIsRefreshedAfterInsertions) {
    ClassSet set;
    EXPECT_FALSE(set.hasQualified());
    set.insert(u"Shop.Order");
    EXPECT_FALSE(set.hasQualified());
    EXPECT_FALSE(findInClassSets(set, u"PolicyShapes", u"Billing.Ledger"));
    set.insert(u"[PolicyShapes]Billing.Ledger");
    EXPECT_TRUE(set.hasQualified());
    EXPECT_TRUE(findInClassSets(set, u"PolicyShapes", u"Billing.Ledger"));
    EXPECT_FALSE(findInClassSets(set, u"Other", u"Billing.Ledger"));
    EXPECT_TRUE(findInClassSets(set, u"Other", u"Shop.Order"));
    // An empty assembly builds "[]" and finds nothing qualified.
    EXPECT_FALSE(findInClassSets(set, u"", u"Billing.Ledger"));
    set.clear();
    EXPECT_FALSE(set.hasQualified());
}

TEST(ClassSet, QualifiedLookupOfAnOverlongNameStaysInItsBuffer) {
    ClassSet set;
    std::u16string longName(3000, u'N');
    set.insert((u"[A]" + longName.substr(0, 2044)).c_str());
    // "[A]" and 2044 units fill the 2047 that the built key can hold.
    EXPECT_TRUE(findInClassSets(set, u"A", longName.c_str()));
    EXPECT_FALSE(findInClassSets(set, u"B", longName.c_str()));
}

TEST(ClassStrings, BracketedFormsAreRecognisedAndBuilt) {
    EXPECT_TRUE(isClassWithAssembly(u"[A]N.C"));
    EXPECT_FALSE(isClassWithAssembly(u"[A]"));
    EXPECT_FALSE(isClassWithAssembly(u"[AN.C"));
    EXPECT_FALSE(isClassWithAssembly(u"N.C"));
    EXPECT_FALSE(isClassWithAssembly(nullptr));

    EXPECT_EQ(makeFullySpecifiedClassString(u"A", u"N.C"), u"[A]N.C");
    EXPECT_EQ(makeFullySpecifiedClassString(u"", u"N.C"), u"N.C");
    EXPECT_EQ(makeFullySpecifiedClassString(nullptr, u"N.C"), u"N.C");
}

TEST(ClassMethodMatcherMap, KeysAreCopiedAndFollowThePrefixRule) {
    ClassMethodMatcherMap map;
    MethodMatcher order;
    MethodMatcher empty;
    char16_t key[] = u"Shop.Order";
    map[key] = &order;
    key[0] = u'X';
    map[u""] = &empty;
    ASSERT_NE(map.find(u"Shop.OrderItem"), nullptr);
    EXPECT_EQ(*map.find(u"Shop.OrderItem"), &order);
    EXPECT_EQ(*map.find(u"Shop"), &order);
    EXPECT_EQ(*map.find(u""), &empty);
    EXPECT_EQ(map.find(u"Billing.Ledger"), nullptr);
    EXPECT_EQ(map.find(nullptr), nullptr);
    // Indexing by an equivalent key reaches the existing entry.
    EXPECT_EQ(map[u"Shop.Order+Line"], &order);
    EXPECT_EQ(map.size(), 2u);

    EXPECT_FALSE(map.hasQualified());
    map[u"[PolicyShapes]Billing.Ledger"] = nullptr;
    EXPECT_TRUE(map.hasQualified());
}
