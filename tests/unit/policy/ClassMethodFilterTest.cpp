#include <gtest/gtest.h>

#include "PolicyFixture.h"
#include "policy/ClassMethodFilter.h"

using ClassMethodFilterOnShop = PolicyFixture;

TEST_F(ClassMethodFilterOnShop, ExceptionsWinOverEverySkipRule) {
    ClassMethodFilter filter;
    filter.addAssemblySkipRule(u"PolicyShapes");
    filter.addClassExceptionRule(u"Shop.Invoice");
    EXPECT_FALSE(filter.skipClass(at({u"Shop.Invoice"}, u"Issue")));
    EXPECT_TRUE(filter.skipClass(at({u"Shop.OrderRepository"}, u"Save")));

    // One method of a skipped class taken back in.
    ClassMethodFilter oneMethod;
    oneMethod.addClassSkipRule(u"Billing.Internal.Ledger");
    oneMethod.addMethodForClassExceptionRule(u"Billing.Internal.Ledger", u"Post");
    EXPECT_FALSE(oneMethod.skipClassMethod(at({u"Billing.Internal.Ledger"}, u"Post")));
    EXPECT_TRUE(oneMethod.skipClassMethod(at({u"Billing.Internal.Ledger"}, u"Close")));

    // The method exception stands by itself in skipMethod.
    ClassMethodFilter methods;
    methods.addMethodSkipRule(u"Post");
    methods.addMethodSkipRule(u"Close");
    methods.addMethodForClassExceptionRule(u"Billing.Internal.Ledger", u"Post");
    EXPECT_FALSE(methods.skipMethod(at({u"Billing.Internal.Ledger"}, u"Post")));
    EXPECT_TRUE(methods.skipMethod(at({u"Billing.Internal.Ledger"}, u"Close")));
    EXPECT_FALSE(methods.skipMethod(at({u"Shop.Invoice"}, u"Issue")));
}

TEST_F(ClassMethodFilterOnShop, AssemblyRulesTakeOffTheirBrackets) {
    for (const char16_t* rule : {u"PolicyShapes", u"[PolicyShapes]"}) {
        ClassMethodFilter filter;
        filter.addAssemblySkipRule(rule);
        EXPECT_TRUE(filter.skipClass(at({u"Shop.Order"}, u"Place")));
    }
    for (const char16_t* prefix : {u"Policy", u"[Policy"}) {
        ClassMethodFilter filter;
        filter.addAssemblyPrefixSkipRule(prefix);
        EXPECT_TRUE(filter.skipClass(at({u"Shop.Order"}, u"Place")));
    }
    ClassMethodFilter closed;
    closed.addAssemblyPrefixSkipRule(u"[PolicyShapes]");
    closed.addAssemblySkipRule(u"[");
    EXPECT_FALSE(closed.skipClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_EQ(written([&](FILE* log) { closed.logFilter(log); }),
              "\t ! assembly prefix: PolicyShapes]\n\t ! assembly: [\n");

    // At module load only the assembly is known.
    ClassMethodFilter atLoad;
    atLoad.addAssemblyPrefixSkipRule(u"Policy");
    ASSERT_EQ(real->setModuleID(shop), S_OK);
    EXPECT_TRUE(atLoad.skipAssembly(real.get()));
    ClassMethodFilter other;
    other.addAssemblySkipRule(u"Other");
    other.addAssemblyPrefixSkipRule(u"Shop");
    other.addAssemblyPrefixSkipRule(u"PolicyShapesExtra");
    EXPECT_FALSE(other.skipAssembly(real.get()));
    // The set of names follows the prefix rule both ways; the prefix list not.
    other.addAssemblySkipRule(u"PolicyShapesExtra");
    EXPECT_TRUE(other.skipAssembly(real.get()));
}

TEST_F(ClassMethodFilterOnShop, NamespaceIsTheNameUpToItsLastDot) {
    ClassMethodFilter program;
    program.addNamespaceSkipRule(u"Program");
    EXPECT_TRUE(program.skipClass(at({u"Program"}, u"Main")));
    EXPECT_FALSE(program.skipClass(at({u"Shop.Order"}, u"Place")));
    ClassMethodFilter programClass;
    programClass.addClassSkipRule(u"Program");
    EXPECT_TRUE(programClass.skipClass(at({u"Program"}, u"Main")));

    ClassMethodFilter billing;
    billing.addNamespaceSkipRule(u"Billing.Internal");
    EXPECT_TRUE(billing.skipClass(at({u"Billing.Internal.Ledger"}, u"Post")));

    // Prefixes are compared with the namespace, not the class name.
    ClassMethodFilter prefix;
    prefix.addNamespacePrefixSkipRule(u"Billing.Int");
    prefix.addNamespacePrefixSkipRule(u"Shop.Order");
    EXPECT_TRUE(prefix.skipClass(at({u"Billing.Internal.Ledger"}, u"Post")));
    EXPECT_FALSE(prefix.skipClass(at({u"Shop.OrderItem"}, u"Total")));

    ClassMethodFilter qualified;
    qualified.addNamespaceSkipRule(u"[Other]Shop");
    EXPECT_FALSE(qualified.skipClass(at({u"Shop.Order"}, u"Place")));
    qualified.addNamespaceSkipRule(u"[PolicyShapes]Shop");
    EXPECT_TRUE(qualified.skipClass(at({u"Shop.Order"}, u"Place")));
}

TEST_F(ClassMethodFilterOnShop, EmptyClassRuleMatchesOnlyAnEmptyName) {
    ClassMethodFilter filter;
    filter.addClassSkipRule(u"");
    filter.addClassSkipRule(u"Billing.Internal.Ledger");
    EXPECT_FALSE(filter.skipClass(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(filter.skipClass(at({u"Program"}, u"Main")));
    EXPECT_TRUE(filter.skipClass(at({u"Billing.Internal.Ledger"}, u"Post")));
}

TEST_F(ClassMethodFilterOnShop, MethodRulesByNameAndByClass) {
    ClassMethodFilter filter;
    filter.addMethodForClassSkipRule(u"Shop.Order", u"Dispose;()V");
    filter.addMethodForClassSkipRule(u"Shop.Order", u"Place");
    filter.addMethodSkipRule(u"Refund");
    EXPECT_TRUE(filter.skipMethod(at({u"Shop.Order"}, u"Dispose")));
    EXPECT_TRUE(filter.skipMethod(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(filter.skipMethod(at({u"Shop.Order"}, u"GetName")));
    EXPECT_FALSE(filter.skipMethod(at({u"Shop.OrderRepository"}, u"Load")));
    // By the prefix rule of the class key, "Shop.Order" covers Shop.OrderItem.
    EXPECT_FALSE(filter.skipMethod(at({u"Shop.OrderItem"}, u"Total")));
    EXPECT_TRUE(filter.skipMethod(at({u"Shop.PaymentBase"}, u"Refund")));
    EXPECT_FALSE(filter.skipClass(at({u"Shop.Order"}, u"Place")));

    // A class that cannot be named still meets the method-name rule.
    context->failClassName = true;
    EXPECT_TRUE(filter.skipMethod(at({u"Shop.PaymentBase"}, u"Refund")));
    EXPECT_FALSE(filter.skipMethod(at({u"Shop.Order"}, u"Place")));
    context->failClassName = false;

    ClassMethodFilter qualified;
    qualified.addMethodForClassSkipRule(u"[Other]Shop.Order", u"Place");
    EXPECT_FALSE(qualified.skipMethod(at({u"Shop.Order"}, u"Place")));
    qualified.addMethodForClassSkipRule(u"[PolicyShapes]Shop.Order", u"Place");
    EXPECT_TRUE(qualified.skipMethod(at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(qualified.skipMethod(at({u"Shop.Order"}, u"Dispose")));
}

TEST_F(ClassMethodFilterOnShop, LogListsEveryRuleInItsOrder) {
    ClassMethodFilter filter;
    filter.addMethodForClassExceptionRule(u"Shop.Order", u"Place");
    filter.addMethodForClassSkipRule(u"Shop.Invoice", u"Issue");
    filter.addClassExceptionRule(u"Shop.Cart");
    filter.addMethodSkipRule(u"Dispose");
    filter.addClassSkipRule(u"Program");
    filter.addNamespaceSkipRule(u"Billing");
    filter.addNamespacePrefixSkipRule(u"Bill");
    filter.addAssemblySkipRule(u"Other");
    filter.addAssemblyPrefixSkipRule(u"Oth");
    EXPECT_EQ(written([&](FILE* log) { filter.logFilter(log); }),
              "\t ! assembly prefix: Oth\n\t ! assembly: Other\n\t ! namespace prefix: Bill\n"
              "\t ! namespace: Billing\n\t ! class: Program\n\t ! method: Dispose\n"
              "\t ! method exception: Shop.Cart\n\t ! method for class: Shop.Invoice\n"
              "\t ! method for class exception: Shop.Order\n");
}
