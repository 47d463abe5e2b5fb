#include <gtest/gtest.h>

#include "PolicyFixture.h"
#include "policy/ClassMatcher.h"

using ClassMatcherOnShop = PolicyFixture;

TEST_F(ClassMatcherOnShop, ClassRuleSelectsExtensionsAndLeadingPartsOfItsName) {
    ClassMatcher matcher;
    matcher.addClassRule(u"Shop.Order");
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.OrderItem"}, u"Total")));
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.OrderRepository"}, u"Save")));
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.Order", u"Line"}, u"Touch")));
    EXPECT_FALSE(matcher.matchClass(at({u"Shop.Invoice"}, u"Issue")));
    EXPECT_FALSE(matcher.matchClass(at({u"Shop.SpecialOrder"}, u"Upgrade")));

    ClassMatcher longer;
    longer.addClassRule(u"Shop.OrderItem");
    EXPECT_TRUE(longer.matchClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(longer.matchClass(at({u"Shop.OrderRepository"}, u"Save")));

    // Generic definitions are named without their marker.
    ClassMatcher cart;
    cart.addClassRule(u"Shop.Cart");
    EXPECT_TRUE(cart.matchClass(at({u"Shop.Cart`1"}, u"Add")));
}

TEST_F(ClassMatcherOnShop, QualifiedRuleMatchesOnlyItsAssembly) {
    ModuleID coreLib = module(RealAssemblies::coreLibPath());
    ClassMatcher qualified;
    qualified.addClassRule(u"[PolicyShapes]Shop.Invoice");
    qualified.addClassRule(u"[mscorlib]System.String");
    EXPECT_TRUE(qualified.matchClass(at({u"Shop.Invoice"}, u"Issue")));
    EXPECT_FALSE(qualified.matchClass(at(coreLib, {u"System.String"}, u"Concat")));
    EXPECT_FALSE(qualified.matchClass(at({u"Shop.Order"}, u"Place")));

    ClassMatcher plain;
    plain.addClassRule(u"System.String");
    EXPECT_TRUE(plain.matchClass(at(coreLib, {u"System.String"}, u"Concat")));

    ClassMatcher both;
    both.addClassRule(u"[Other]System.String");
    both.addClassRule(u"System.String");
    EXPECT_TRUE(both.matchClass(at(coreLib, {u"System.String"}, u"Concat")));
    both.addClassRule(u"[System.Private.CoreLib]System.Int32");
    EXPECT_TRUE(both.matchClass(at(coreLib, {u"System.Int32"}, u"Parse")));
    EXPECT_FALSE(both.matchClass(at(coreLib, {u"System.Int64"}, u"Parse")));
}

TEST_F(ClassMatcherOnShop, AssemblyRuleCoversEveryClassOfTheAssembly) {
    ModuleID coreLib = module(RealAssemblies::coreLibPath());
    ClassMatcher matcher;
    matcher.addAssemblyRule(u"PolicyShapes");
    EXPECT_TRUE(matcher.matchClass(at({u"Program"}, u"Main")));
    EXPECT_TRUE(matcher.matchClass(at({u"Billing.Internal.Ledger"}, u"Post")));
    EXPECT_FALSE(matcher.matchClass(at(coreLib, {u"System.String"}, u"Concat")));

    // The leading part of an assembly name is the same key.
    ClassMatcher system;
    system.addAssemblyRule(u"System");
    EXPECT_TRUE(system.matchClass(at(coreLib, {u"System.String"}, u"Concat")));
    EXPECT_FALSE(system.matchClass(at({u"Program"}, u"Main")));
}

TEST_F(ClassMatcherOnShop, ParentRuleSeesTheDirectBaseAndDeclaredInterfaces) {
    ClassMatcher base;
    base.addParentClassRule(u"Shop.Order");
    EXPECT_TRUE(base.matchClass(at({u"Shop.SpecialOrder"}, u"Upgrade")));
    EXPECT_FALSE(base.matchClass(at({u"Shop.VerySpecialOrder"}, u"Celebrate")));
    EXPECT_FALSE(base.matchClass(at({u"Shop.Order"}, u"Place")));

    ClassMatcher repository;
    repository.addParentClassRule(u"Shop.IRepository");
    EXPECT_TRUE(repository.matchClass(at({u"Shop.OrderRepository"}, u"Load")));
    EXPECT_FALSE(repository.matchClass(at({u"Shop.Order"}, u"Place")));

    // The interface's own assembly counts, not the class's.
    ClassMatcher disposable;
    disposable.addParentClassRule(u"[System.Runtime]System.IDisposable");
    EXPECT_TRUE(disposable.matchClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(disposable.matchClass(at({u"Shop.OrderItem"}, u"Total")));
    ClassMatcher wrongAssembly;
    wrongAssembly.addParentClassRule(u"[PolicyShapes]System.IDisposable");
    EXPECT_FALSE(wrongAssembly.matchClass(at({u"Shop.Order"}, u"Place")));

    // A class whose name cannot be had still has its parent and interfaces
    // asked, but no pattern can match it.
    ClassMatcher mixed;
    mixed.addClassRule(u"Shop.Order");
    mixed.addParentClassRule(u"Shop.PaymentBase");
    mixed.addClassPatternRule(u"*");
    context->failClassName = true;
    EXPECT_FALSE(mixed.matchClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_TRUE(mixed.matchClass(at({u"Shop.CardPayment"}, u"Pay")));
    EXPECT_TRUE(disposable.matchClass(at({u"Shop.Order"}, u"Place")));
}

TEST_F(ClassMatcherOnShop, AnnotationRuleLooksAtTheClassAttributes) {
    ClassMatcher matcher;
    matcher.addClassAnnotationRule(u"Shop.AuditedAttribute");
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.Invoice"}, u"Cancel")));
    EXPECT_FALSE(matcher.matchClass(at({u"Shop.Order"}, u"Place")));
    context->failClassName = true;
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.Invoice"}, u"Cancel")));

    ClassMatcher qualified;
    qualified.addClassAnnotationRule(u"[Other]Shop.AuditedAttribute");
    EXPECT_FALSE(qualified.matchClass(at({u"Shop.Invoice"}, u"Cancel")));
}

TEST_F(ClassMatcherOnShop, PatternRuleTriesTheQualifiedThenThePlainName) {
    ClassMatcher bracketed;
    bracketed.addClassPatternRule(u"[Policy*");
    EXPECT_TRUE(bracketed.matchClass(at({u"Shop.Order"}, u"Place")));
    ModuleID coreLib = module(RealAssemblies::coreLibPath());
    EXPECT_FALSE(bracketed.matchClass(at(coreLib, {u"System.String"}, u"Concat")));

    ClassMatcher plain;
    plain.addClassPatternRule(u"*Order");
    EXPECT_TRUE(plain.matchClass(at({u"Shop.SpecialOrder"}, u"Upgrade")));
    EXPECT_FALSE(plain.matchClass(at({u"Shop.OrderItem"}, u"Total")));
    plain.addClassPatternRule(u"Billing.*");
    EXPECT_TRUE(plain.matchClass(at({u"Billing.Internal.Ledger"}, u"Post")));
}

TEST_F(ClassMatcherOnShop, NoRuleNoMatchAndEmptyRulesAreIgnored) {
    ClassMatcher matcher;
    EXPECT_FALSE(matcher.matchClass(at({u"Shop.Order"}, u"Place")));
    matcher.addClassRule(u"");
    matcher.addClassRule(nullptr);
    matcher.addParentClassRule(u"");
    matcher.addAssemblyRule(u"");
    matcher.addClassAnnotationRule(u"");
    EXPECT_FALSE(matcher.matchClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(matcher.matchesAll());
    matcher.addAllClassesRule();
    EXPECT_TRUE(matcher.matchesAll());
    context->failClassName = true;
    EXPECT_TRUE(matcher.matchClass(at({u"Shop.Order"}, u"Place")));
}

TEST_F(ClassMatcherOnShop, LogListsEveryRule) {
    ClassMatcher matcher;
    matcher.addAllClassesRule();
    matcher.addClassRule(u"Shop.Order");
    matcher.addAssemblyRule(u"PolicyShapes");
    matcher.addParentClassRule(u"Shop.IRepository");
    matcher.addClassAnnotationRule(u"Shop.AuditedAttribute");
    matcher.addClassPatternRule(u"Billing.*");
    EXPECT_EQ(written([&](FILE* log) { matcher.logMatcher(log); }),
              "\t* All Classes *\n\tclass: Shop.Order\n\tassembly: PolicyShapes\n\tparent class: Shop.IRepository\n"
              "\tclass annotation: Shop.AuditedAttribute\n\tclass pattern: Billing.*\n");
}
