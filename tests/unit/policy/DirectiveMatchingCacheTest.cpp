#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "PolicyFixture.h"
#include "policy/DirectiveController.h"
#include "policy/MatchingDirectiveGroup.h"

namespace {

// A real group that counts the class and method tests made on it.
class CountingGroup : public MatchingDirectiveGroup {
public:
    explicit CountingGroup(const char16_t* name) : MatchingDirectiveGroup(name) {
        setActive(true);
        setCreated();
    }
    bool matchClass(IMetaDataContext* context) override {
        ++classTests;
        return MatchingDirectiveGroup::matchClass(context);
    }
    bool matchMethod(IMetaDataContext* context) override {
        ++methodTests;
        return MatchingDirectiveGroup::matchMethod(context);
    }
    int classTests = 0;
    int methodTests = 0;
};

}  // namespace

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

    CountingGroup* group(const char16_t* name) {
        auto* made = new CountingGroup(name);
        controller->getGroups()[name] = made;
        return made;
    }

    bool ask(const char16_t* type, const char16_t* method) {
        return controller->getCache().shouldMonitor(at({type}, method), *controller);
    }

    FILE* log = nullptr;
    std::unique_ptr<DirectiveController> controller;
    CountingGroup* a = nullptr;
    CountingGroup* b = nullptr;
};

TEST_F(DirectiveMatchingCacheOnShop, WalkResumesWhereItStoppedAndLaterAnswersComeFromTheEntry) {
    twoGroups();
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_EQ(a->classTests, 1);
    EXPECT_EQ(b->classTests, 0);

    // A is asked from the entry, the walk resumes at A and reaches B.
    EXPECT_TRUE(ask(u"Shop.Order", u"GetName"));
    EXPECT_EQ(a->classTests, 2);
    EXPECT_EQ(b->classTests, 1);
    // Now both are known: no class test at all.
    EXPECT_TRUE(ask(u"Shop.Order", u"GetName"));
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_EQ(a->classTests, 2);
    EXPECT_EQ(b->classTests, 1);
    EXPECT_EQ(controller->getCache().size(), 1u);

    // A method neither selects walks on to the end once; then the entry is
    // complete and nothing but the known groups' method tests is made.
    EXPECT_FALSE(ask(u"Shop.Order", u"Dispose"));
    EXPECT_EQ(a->classTests, 2);
    EXPECT_EQ(b->classTests, 2);
    const int methodTests = a->methodTests + b->methodTests;
    EXPECT_FALSE(ask(u"Shop.Order", u".ctor"));
    EXPECT_EQ(a->classTests, 2);
    EXPECT_EQ(b->classTests, 2);
    EXPECT_EQ(a->methodTests + b->methodTests, methodTests + 2);
}

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
    EXPECT_TRUE(controller->getCache().matchWithoutCache(at({u"Shop.Order"}, u"GetName"), controller->getGroups()));
    EXPECT_EQ(account(*controller, at({u"Shop.Order"}, u"GetName")).matched, std::vector<std::string>{"B"});
}

TEST_F(DirectiveMatchingCacheOnShop, SaturationIsLoggedOnceAndLaterClassesGoWithoutCache) {
    twoGroups();
    controller->setCacheSize(1);
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_EQ(contents(log), "Directive Matching Cache is saturated, Size = 1\n");
    EXPECT_FALSE(ask(u"Shop.Invoice", u"Issue"));
    EXPECT_TRUE(ask(u"Shop.OrderItem", u"GetName"));
    EXPECT_EQ(controller->getCache().size(), 1u);
    // The class with an entry keeps using it.
    const int classTests = a->classTests;
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_EQ(a->classTests, classTests);
    EXPECT_EQ(contents(log), "Directive Matching Cache is saturated, Size = 1\n");

    // A limit below the present size stops growth without a word.
    controller->clearCache();
    controller->setCacheSize(3);
    EXPECT_TRUE(ask(u"Shop.Order", u"Place"));
    EXPECT_FALSE(ask(u"Shop.Invoice", u"Issue"));
    controller->setCacheSize(1);
    EXPECT_TRUE(ask(u"Shop.OrderItem", u"GetName"));
    EXPECT_EQ(controller->getCache().size(), 2u);
    EXPECT_EQ(contents(log), "Directive Matching Cache is saturated, Size = 1\n");
}
