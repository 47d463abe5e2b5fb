#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "PolicyFixture.h"
#include "policy/DirectiveController.h"
#include "policy/MatchingDirectiveGroup.h"

class DirectiveMatchingCacheOnShop : public PolicyFixture {
protected:
    void SetUp() override {
        PolicyFixture::SetUp();
        log = tmpfile();
        controller = std::make_unique<DirectiveController>(log);
    }
    void TearDown() override { fclose(log); }

    // Two groups on Shop.Order: A selects Place, B selects GetName.
    void twoGroups() {
        a = group(u"A");
        b = group(u"B");
        a->getClassMatcher()->addClassRule(u"Shop.Order");
        a->getMethodMatcher()->addMethodRule(u"Place");
        b->getClassMatcher()->addClassRule(u"Shop.Order");
        b->getMethodMatcher()->addMethodRule(u"GetName");
    }

    MatchingDirectiveGroup* group(const char16_t* name) {
        auto* made = static_cast<MatchingDirectiveGroup*>(controller->addDirectiveGroup(name));
        made->setActive(true);
        made->setCreated();
        return made;
    }

    bool ask(const char16_t* type, const char16_t* method) {
        return controller->getCache().shouldMonitor(at({type}, method), *controller);
    }

    FILE* log = nullptr;
    std::unique_ptr<DirectiveController> controller;
    MatchingDirectiveGroup* a = nullptr;
    MatchingDirectiveGroup* b = nullptr;
};

TEST_F(DirectiveMatchingCacheOnShop, ClassSkipOfAGroupPassesThatGroupByAndKeepsItOutOfTheEntry) {
    twoGroups();
    a->getClassMethodFilter()->addClassSkipRule(u"Shop.Order");
    EXPECT_FALSE(ask(u"Shop.Order", u"Place"));
    EXPECT_TRUE(ask(u"Shop.Order", u"GetName"));
    EXPECT_FALSE(ask(u"Shop.Order", u"Place"));
}

TEST_F(DirectiveMatchingCacheOnShop, MethodSkipOfAKnownGroupVetoesEveryGroup) {
    twoGroups();
    a->getClassMethodFilter()->addMethodSkipRule(u"GetName");

    // GetName first: the walk passes A by and B selects it.
    EXPECT_TRUE(ask(u"Shop.Order", u"GetName"));
    // From now on A is in the entry, and its skip answers for all groups.
    EXPECT_FALSE(ask(u"Shop.Order", u"GetName"));
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));

    // The other order of arrival: once A is known, GetName never gets to B.
    controller->clearCache();
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_FALSE(ask(u"Shop.Order", u"GetName"));
    // Without the cache the group skip only passes A by.
    EXPECT_TRUE(controller->getCache().matchWithoutCache(at({u"Shop.Order"}, u"GetName"), *controller));
    EXPECT_EQ(account(*controller, at({u"Shop.Order"}, u"GetName")).matched, std::vector<std::string>{"B"});
}

TEST_F(DirectiveMatchingCacheOnShop, SaturationIsLoggedOnceAndLaterClassesGoWithoutCache) {
    twoGroups();
    controller->setCacheSize(1);
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_EQ(streamText(log), "Directive Matching Cache is saturated, Size = 1\n");
    EXPECT_FALSE(ask(u"Shop.Invoice", u"Issue"));
    EXPECT_TRUE(ask(u"Shop.OrderItem", u"GetName"));
    EXPECT_EQ(controller->getCache().size(), 1u);
    // The class with an entry keeps using it.
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_EQ(streamText(log), "Directive Matching Cache is saturated, Size = 1\n");

    // A limit below the present size stops growth without a word.
    controller->clearCache();
    controller->setCacheSize(3);
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_FALSE(ask(u"Shop.Invoice", u"Issue"));
    controller->setCacheSize(1);
    EXPECT_TRUE(ask(u"Shop.OrderItem", u"GetName"));
    EXPECT_EQ(controller->getCache().size(), 2u);
    EXPECT_EQ(streamText(log), "Directive Matching Cache is saturated, Size = 1\n");
}

// The cache answers a known class from the sole method names of its one-line
// groups; the answers, vetoes and their order of arrival included, are those
// of full groups with the same rules.
TEST_F(DirectiveMatchingCacheOnShop, OneLineGroupsAnswerInTheirPlaceAmongTheOthers) {
    const std::string text =
        "SkipMethodForFlag: A Dispose\nIdentifyClassAs: Shop.Order A\nTraceOneMethodIfFlagged: A Place\nTurnOn: A\n"
        "TraceOneMethodOfClass: Shop.Order GetName\nTraceOneMethodOfClass: Shop.Order Get\n"
        "SkipMethodForFlag: Z Get\nIdentifyClassAs: Shop.Order Z\nTraceOneMethodIfFlagged: Z Dispose\nTurnOn: Z\n";
    auto compact = directives(text);
    // Named by a later line, a one-line group becomes a full one.
    auto full = directives(text + "SetFlag: Anonymous_0\nSetFlag: Anonymous_1\n");
    std::vector<const char16_t*> methods = {u"Dispose", u"G", u"Get", u"GetName", u"Place"};
    do {
        compact->clearCache();
        full->clearCache();
        for (int round = 0; round < 2; ++round) {
            for (const char16_t* method : methods) {
                const bool expected = full->shouldMonitor(at({u"Shop.Order"}, method));
                EXPECT_EQ(compact->shouldMonitor(at({u"Shop.Order"}, method)), expected)
                    << RealAssemblies::narrow(method);
            }
        }
    } while (std::next_permutation(methods.begin(), methods.end()));
}

// The global filter's verdict on a class is kept in its entry; the exceptions
// and skips of single methods are still asked method by method.
TEST_F(DirectiveMatchingCacheOnShop, GlobalSkipsHoldForEveryMethodOfAKnownClass) {
    auto skipping = directives(
        "IdentifyAllClassesAs: All\nTraceAllMethodsIfFlagged: All\nTurnOn: All\n"
        "SkipClass: Shop.Order\nDoNotSkipMethodForClass: Shop.Order Place\nSkipMethodForClass: Shop.Invoice Cancel\n");
    // The second round meets both classes in the cache.
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(skipping->shouldMonitor(at({u"Shop.Order"}, u"Place"))) << round;
        EXPECT_FALSE(skipping->shouldMonitor(at({u"Shop.Order"}, u"Dispose"))) << round;
        EXPECT_FALSE(skipping->shouldMonitor(at({u"Shop.Invoice"}, u"Cancel"))) << round;
        EXPECT_TRUE(skipping->shouldMonitor(at({u"Shop.Invoice"}, u"Issue"))) << round;
    }
}
