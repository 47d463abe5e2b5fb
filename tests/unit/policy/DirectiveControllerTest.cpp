#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "PolicyFixture.h"
#include "policy/DirectiveController.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using DirectiveControllerOnAssemblies = PolicyFixture;

namespace {

// Directive sets in the shape of real ones: global skips, flags with their own
// exclusions, one-line forms, and flags that are declared but off.
const char* const kDirectiveSets[] = {
    "SkipAssemblyPrefix: System.Private.Xml\n"
    "SkipNamespacePrefix: System.Runtime.Intrinsics\n"
    "SkipClass: System.String\n"
    "DoNotSkipMethodForClass: System.String Concat\n"
    "SkipMethodForClass: System.Collections.Generic.List Add\n"
    "IdentifyInheritedAs: System.Exception Errors\n"
    "TraceAllMethodsIfFlagged: Errors\n"
    "SkipMethodForFlag: Errors get_Message\n"
    "TurnOn: Errors\n"
    "IdentifyMatchingClassesAs: *Collections.Concurrent* Concurrent\n"
    "TraceMatchingMethodsWithParametersIfFlagged: Concurrent Try*\n"
    "TurnOn: Concurrent\n"
    "TraceAllMethodsOfClass: Shop.Order\n"
    "TraceOneMethodIfInherits: Shop.IRepository Save\n",

    "IdentifyAssemblyAs: PolicyShapes Shop\n"
    "IdentifyAssemblyAs: MetadataShapes Shop\n"
    "TraceAllMethodsIfFlagged: Shop\n"
    "SkipClassForFlag: Shop.Invoice Shop\n"
    "SkipNamespaceForFlag: Shapes Shop\n"
    "TurnOn: Shop\n"
    "IdentifyAnnotatedClassAs: System.ObsoleteAttribute Old\n"
    "TraceAllMethodsIfFlagged: Old\n"
    "TurnOn: Old\n"
    "IdentifyAllClassesAs: Ctors\n"
    "TraceOneMethodIfFlagged: Ctors .cto\n"
    "SkipAssemblyForFlag: System.Private.CoreLib Ctors\n"
    "TurnOn: Ctors\n"
    "SetFlag: Dormant\n"
    "IdentifyAllClassesAs: Dormant\n"
    "TraceAllMethodsIfFlagged: Dormant\n",

    "IdentifyAllClassesAs: Annotated\n"
    "TraceAnnotatedMethodsIfFlagged: Annotated System.Diagnostics.DebuggerStepThroughAttribute\n"
    "TraceAnnotatedMethodsIfFlagged: Annotated Shop.AuditedAttribute\n"
    "TraceAnnotatedMethodsIfFlagged: Annotated Microsoft.AspNetCore.Mvc.NonActionAttribute\n"
    "TurnOn: Annotated\n"
    "IdentifyClassAs: [System.Private.CoreLib]System.Threading.Tasks.Task Tasks\n"
    "TraceOneMethodIfFlagged: Tasks Run\n"
    "TraceOneMethodIfFlagged: Tasks Wait\n"
    "TurnOn: Tasks\n"
    "SkipNamespace: System.Threading\n"
    "DoNotSkipClass: System.Threading.Tasks.Task\n",
};

}  // namespace

TEST_F(DirectiveControllerOnAssemblies, DecisionAndAccountAgreeOnEveryMethod) {
    const ModuleID modules[] = {shop, module(RealAssemblies::coreLibPath()),
                                module(RealAssemblies::testAsset("MetadataShapes")),
                                module(RealAssemblies::aspNetCoreAssembly("Microsoft.AspNetCore.Mvc.ViewFeatures.dll"))};
    for (const char* text : kDirectiveSets) {
        auto controller = directives(text);
        int methods = 0;
        int selected = 0;
        int disagreements = 0;
        for (ModuleID where : modules) {
            forEachMethod(where, [&](IMetaDataContext* method) {
                std::unique_ptr<IDirectiveMatchResult> result(controller->shouldMonitorResult(method));
                const bool explained = !result->isSkippedGlobally() && result->getMatchedCount() > 0;
                const bool decided = controller->shouldMonitor(method);
                ++methods;
                selected += decided ? 1 : 0;
                disagreements += decided != explained ? 1 : 0;
                if (result->isSkippedGlobally()) {
                    EXPECT_EQ(result->getSkippedCount() + result->getMatchedCount() + result->getUnmatchedCount(), 0);
                }
            });
        }
        EXPECT_EQ(disagreements, 0) << text;
        EXPECT_GT(methods, 30000) << text;
        // Each set selects something, and far from everything.
        EXPECT_GT(selected, 5) << text;
        EXPECT_LT(selected, methods / 2) << text;
    }
}

TEST_F(DirectiveControllerOnAssemblies, CachedDecisionAgreesWithoutGroupMethodSkips) {
    const ModuleID modules[] = {shop, module(RealAssemblies::coreLibPath())};
    auto plain = directives(kDirectiveSets[2]);
    auto cached = directives(kDirectiveSets[2]);
    int disagreements = 0;
    int selected = 0;
    for (ModuleID where : modules) {
        forEachMethod(
            where,
            [&](IMetaDataContext* method) {
                const bool withCache = cached->shouldMonitor(method);
                selected += withCache ? 1 : 0;
                disagreements += withCache != selects(*plain, method) ? 1 : 0;
            },
            true);
    }
    EXPECT_EQ(disagreements, 0);
    EXPECT_GT(selected, 5);
    EXPECT_GT(static_cast<DirectiveController&>(*cached).getCache().size(), 1000u);
}

TEST_F(DirectiveControllerOnAssemblies, AccountListsOnlyLiveGroups) {
    auto none = directives("SetFlag: Off\nIdentifyAllClassesAs: Off\nTraceAllMethodsIfFlagged: Off\n");
    Account empty = account(*none, at({u"Shop.Order"}, u"Place"));
    EXPECT_FALSE(empty.skippedGlobally);
    EXPECT_THAT(empty.matched, IsEmpty());
    EXPECT_THAT(empty.skipped, IsEmpty());
    EXPECT_THAT(empty.unmatched, IsEmpty());
    EXPECT_FALSE(none->shouldMonitor(at({u"Shop.Order"}, u"Place")));

    auto controller = directives(
        "IdentifyAllClassesAs: A\nTraceAllMethodsIfFlagged: A\nTurnOn: A\n"
        "IdentifyAllClassesAs: B\nTraceAllMethodsIfFlagged: B\nTurnOn: B\nSkipClassForFlag: Shop.Order B\n"
        "IdentifyClassAs: Shop.Order C\nTurnOn: C\n"
        "TraceAllMethodsIfFlagged: D\nTurnOn: D\n"
        "SkipMethodForClass: Shop.Invoice Issue\n");
    Account order = account(*controller, at({u"Shop.Order"}, u"Place"));
    EXPECT_THAT(order.matched, ElementsAre("A"));
    EXPECT_THAT(order.skipped, ElementsAre("B"));
    EXPECT_THAT(order.unmatched, ElementsAre("C", "D"));
    Account issue = account(*controller, at({u"Shop.Invoice"}, u"Issue"));
    EXPECT_TRUE(issue.skippedGlobally);
    EXPECT_THAT(issue.matched, IsEmpty());
    EXPECT_THAT(issue.unmatched, IsEmpty());
    EXPECT_FALSE(controller->shouldMonitor(at({u"Shop.Invoice"}, u"Issue")));

    std::unique_ptr<IDirectiveMatchResult> result(controller->shouldMonitorResult(at({u"Shop.Order"}, u"Place")));
    EXPECT_NE(result->getMatchedGroup(0), nullptr);
    EXPECT_EQ(result->getMatchedGroup(1), nullptr);
    EXPECT_EQ(result->getSkippedGroup(-1), nullptr);
    EXPECT_EQ(result->getUnmatchedGroup(2), nullptr);
}

TEST_F(DirectiveControllerOnAssemblies, GroupsAreMadeOnceByName) {
    std::unique_ptr<IDirectiveController> controller(IDirectiveController::newInstance(nullptr));
    EXPECT_EQ(controller->getDirectiveGroup(u"F"), nullptr);
    IDirectiveGroup* group = controller->addDirectiveGroup(u"F");
    ASSERT_NE(group, nullptr);
    EXPECT_FALSE(group->isCreated());
    EXPECT_FALSE(group->isActive());
    EXPECT_FALSE(group->wasActiveSet());
    EXPECT_EQ(controller->addDirectiveGroup(u"F"), group);
    EXPECT_EQ(controller->getDirectiveGroup(u"F"), group);
    // Group names are compared exactly, not by the prefix rule of rule sets.
    EXPECT_EQ(controller->getDirectiveGroup(u"FF"), nullptr);
    EXPECT_NE(controller->addDirectiveGroup(u"FF"), group);
    EXPECT_EQ(controller->addDirectiveGroup(nullptr), nullptr);
    EXPECT_EQ(controller->readDirective(nullptr), S_OK);
}
