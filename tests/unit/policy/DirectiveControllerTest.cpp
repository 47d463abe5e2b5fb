#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>

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

    // Groups filed under class names that agree with classes as prefixes do,
    // both ways, plain and bracketed, as a generated file makes them.
    "TraceOneMethodOfClass: Shop.Order Place\n"
    "TraceOneMethodOfClass: Shop.Ord GetName\n"
    "TraceAllMethodsOfClass: [System.Private.CoreLib]System.Text.StringBuilderX\n"
    "TraceAllMethodsOfClass: System.Collections.Generic.Dictionary+Enum\n"
    "TraceOneMethodOfClass: [PolicyShapes]Shop.Invoice Issue\n"
    "TraceOneMethodOfClass: [MetadataShapes]Nowhere.Class Run\n",
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

// A scan that logs nothing walks the method table by name: it selects what the
// scan by type, which visits every class, selects.
TEST_F(DirectiveControllerOnAssemblies, ModuleScanByNameSelectsWhatTheScanByTypeSelects) {
    const ModuleID modules[] = {shop, module(RealAssemblies::coreLibPath()),
                                module(RealAssemblies::testAsset("MetadataShapes"))};
    FILE* log = tmpfile();
    ASSERT_NE(log, nullptr);
    // Groups decided by the method's name alone, as the built-in entry-point
    // group is, and one bound to an assembly by a bracketed class. Names alone
    // let the scan turn a method away by the first letter of its name.
    const char* const byName =
        "IdentifyAllClassesAs: Named\n"
        "TraceOneMethodIfFlagged: Named Mai\n"
        "TraceOneMethodIfFlagged: Named .cto\n"
        "TurnOn: Named\n"
        "TraceAllMethodsOfClass: [PolicyShapes]Shop.Order\n";
    const char* const byPattern =
        "IdentifyAllClassesAs: Async\n"
        "TraceMatchingMethodsWithParametersIfFlagged: Async *Async\n"
        "TurnOn: Async\n";
    size_t selected = 0;
    for (const char* text : {kDirectiveSets[0], kDirectiveSets[1], kDirectiveSets[2], byName, byPattern}) {
        auto controller = directives(text, nullptr, log);
        for (ModuleID where : modules) {
            std::set<mdMethodDef> byType;
            std::set<mdMethodDef> byName;
            controller->getMonitoredMethodsForModule(nullptr, info, where, byType, true);
            controller->getMonitoredMethodsForModule(nullptr, info, where, byName, false);
            EXPECT_EQ(byName, byType) << text;
            selected += byType.size();
        }
    }
    fclose(log);
    EXPECT_GT(selected, 100u);
}

// An attribute selects the methods that carry it in any class but the web
// framework's own base controller, whose helpers carry action attributes.
TEST_F(DirectiveControllerOnAssemblies, AnnotatedHelpersOfTheFrameworkControllerAreLeftOut) {
    const ModuleID views = module(RealAssemblies::aspNetCoreAssembly("Microsoft.AspNetCore.Mvc.ViewFeatures.dll"));
    const ModuleID core = module(RealAssemblies::aspNetCoreAssembly("Microsoft.AspNetCore.Mvc.Core.dll"));
    auto controller = directives("IdentifyAllClassesAs: All\n"
                                 "TraceAnnotatedMethodsIfFlagged: All Microsoft.AspNetCore.Mvc.NonActionAttribute\n"
                                 "TurnOn: All\n");
    EXPECT_FALSE(selects(*controller, at(views, {u"Microsoft.AspNetCore.Mvc.Controller"}, u"View")));
    EXPECT_TRUE(selects(*controller, at(core, {u"Microsoft.AspNetCore.Mvc.ControllerBase"}, u"Ok")));
}
