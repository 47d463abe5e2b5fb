#include <gtest/gtest.h>

#include "PolicyFixture.h"
#include "policy/MethodMatcher.h"

using MethodMatcherOnShop = PolicyFixture;

TEST_F(MethodMatcherOnShop, NameRuleSelectsExtensionsAndLeadingPartsOfItsName) {
    MethodMatcher matcher;
    matcher.addMethodRule(u"Get");
    EXPECT_TRUE(matcher.matchMethod(at({u"Shop.Order"}, u"Get")));
    EXPECT_TRUE(matcher.matchMethod(at({u"Shop.Order"}, u"GetName")));
    EXPECT_TRUE(matcher.matchMethod(at({u"Shop.Order"}, u"G")));
    EXPECT_FALSE(matcher.matchMethod(at({u"Shop.Order"}, u"Place")));
    context->failMethodName = true;
    EXPECT_FALSE(matcher.matchMethod(at({u"Shop.Order"}, u"Get")));
}

TEST_F(MethodMatcherOnShop, SignatureBehindASemicolonIsDropped) {
    MethodMatcher matcher;
    matcher.addMethodRule(u"Place;(I)V");
    EXPECT_TRUE(matcher.matchMethod(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(matcher.matchMethod(at({u"Shop.Order"}, u"Dispose")));

    // Nothing before the semicolon: a rule for the empty name only.
    MethodMatcher unnamed;
    unnamed.addMethodRule(u";(I)V");
    EXPECT_FALSE(unnamed.matchMethod(at({u"Shop.Order"}, u"Place")));
}

TEST_F(MethodMatcherOnShop, AnnotationRuleSpareTheFrameworkControllerOnly) {
    ModuleID viewFeatures = module(RealAssemblies::aspNetCoreAssembly("Microsoft.AspNetCore.Mvc.ViewFeatures.dll"));
    MethodMatcher matcher;
    matcher.addMethodAnnotationRule(u"Microsoft.AspNetCore.Mvc.NonActionAttribute");
    matcher.addMethodPatternRule(u"View");
    // The framework's own base controller: the attribute rule fires and decides,
    // the pattern that would select the method is not tried.
    EXPECT_FALSE(matcher.matchMethod(at(viewFeatures, {u"Microsoft.AspNetCore.Mvc.Controller"}, u"View")));
    // The same class name in another assembly is selected.
    EXPECT_TRUE(matcher.matchMethod(at({u"Microsoft.AspNetCore.Mvc.Controller"}, u"View")));
    EXPECT_FALSE(matcher.matchMethod(at({u"Microsoft.AspNetCore.Mvc.Controller"}, u"Index")));

    MethodMatcher audited;
    audited.addMethodAnnotationRule(u"Shop.AuditedAttribute");
    EXPECT_TRUE(audited.matchMethod(at({u"Shop.Invoice"}, u"Issue")));
    EXPECT_FALSE(audited.matchMethod(at({u"Shop.Invoice"}, u"Cancel")));
    // Without the class name the fired rule selects.
    context->failClassName = true;
    EXPECT_TRUE(audited.matchMethod(at({u"Shop.Invoice"}, u"Issue")));

    MethodMatcher qualified;
    qualified.addMethodAnnotationRule(u"[PolicyShapes]Shop.AuditedAttribute");
    EXPECT_TRUE(qualified.matchMethod(at({u"Shop.Invoice"}, u"Issue")));
    MethodMatcher elsewhere;
    elsewhere.addMethodAnnotationRule(u"[Other]Shop.AuditedAttribute");
    EXPECT_FALSE(elsewhere.matchMethod(at({u"Shop.Invoice"}, u"Issue")));
}

TEST_F(MethodMatcherOnShop, ExclusionComparesBothNamesExactly) {
    MethodMatcher matcher;
    char16_t controller[] = u"Microsoft.AspNetCore.Mvc.Controller";
    char16_t controllerBase[] = u"Microsoft.AspNetCore.Mvc.ControllerBase";
    char16_t viewFeatures[] = u"Microsoft.AspNetCore.Mvc.ViewFeatures";
    char16_t core[] = u"Microsoft.AspNetCore.Mvc.Core";
    char16_t viewFeaturesPart[] = u"Microsoft.AspNetCore.Mvc";
    EXPECT_TRUE(matcher.matchFurtherVerifyAnnotationRule(controller, viewFeatures));
    EXPECT_FALSE(matcher.matchFurtherVerifyAnnotationRule(controllerBase, viewFeatures));
    EXPECT_FALSE(matcher.matchFurtherVerifyAnnotationRule(controller, core));
    EXPECT_FALSE(matcher.matchFurtherVerifyAnnotationRule(controller, viewFeaturesPart));
    EXPECT_FALSE(matcher.matchFurtherVerifyAnnotationRule(controller, nullptr));
}

TEST_F(MethodMatcherOnShop, PatternAndAllRules) {
    MethodMatcher matcher;
    EXPECT_FALSE(matcher.matchMethod(at({u"Shop.Order"}, u"Place")));
    matcher.addMethodPatternRule(u"Get*e");
    EXPECT_TRUE(matcher.matchMethod(at({u"Shop.OrderItem"}, u"GetName")));
    EXPECT_FALSE(matcher.matchMethod(at({u"Shop.Order"}, u"Get")));
    context->failMethodName = true;
    EXPECT_FALSE(matcher.matchMethod(at({u"Shop.OrderItem"}, u"GetName")));
    matcher.addAllMethodsRule();
    EXPECT_TRUE(matcher.matchMethod(at({u"Shop.OrderItem"}, u"GetName")));

    matcher.addMethodRule(u"Place");
    matcher.addMethodAnnotationRule(u"Shop.AuditedAttribute");
    EXPECT_EQ(written([&](FILE* log) { matcher.logMethods(log); }),
              "\t* All Methods *\n\tmethod: Place\n\tmethod annotations: Shop.AuditedAttribute\n"
              "\tmethod pattern: Get*e\n");
}
