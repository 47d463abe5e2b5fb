#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>

#include "PolicyFixture.h"
#include "policy/ClassLineGroup.h"
#include "policy/DirectiveController.h"
#include "policy/DirectiveGroupIndex.h"
#include "policy/NameHeads.h"
#include "policy/MatchingDirectiveGroup.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using DirectiveControllerOnAssemblies = PolicyFixture;
using DirectiveMatchingCacheOnShop = PolicyFixture;

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
    // both ways, plain and bracketed, some repeated, as a generated file makes them.
    "TraceOneMethodOfClass: Shop.Order Place\n"
    "TraceOneMethodOfClass: Shop.Order Place\n"
    "TraceOneMethodOfClass: Shop.Order Dispose\n"
    "TraceOneMethodOfClass: Shop.Ord GetName\n"
    "TraceAllMethodsOfClass: [System.Private.CoreLib]System.Text.StringBuilderX\n"
    "TraceAllMethodsOfClass: System.Collections.Generic.Dictionary+Enum\n"
    "TraceOneMethodOfClass: [PolicyShapes]Shop.Invoice Issue\n"
    "TraceOneMethodOfClass: [MetadataShapes]Nowhere.Class Run\n",

    // No names filed: elsewhere than its assembly, a method is decided by its name.
    "IdentifyAssemblyAs: PolicyShapes Shop\n"
    "TraceAllMethodsIfFlagged: Shop\n"
    "SkipClassForFlag: Shop.Invoice Shop\n"
    "TurnOn: Shop\n"
    "IdentifyAllClassesAs: Runs\n"
    "TraceOneMethodIfFlagged: Runs Run\n"
    "SkipMethodForFlag: Runs RunCore\n"
    "TurnOn: Runs\n",
};

// Two groups on Shop.Order: A selects Place, B selects GetName.
const std::string kTwoGroups =
    "IdentifyClassAs: Shop.Order A\nTraceOneMethodIfFlagged: A Place\nTurnOn: A\n"
    "IdentifyClassAs: Shop.Order B\nTraceOneMethodIfFlagged: B GetName\nTurnOn: B\n";

}  // namespace

TEST_F(DirectiveControllerOnAssemblies, DecisionAndAccountAgreeOnEveryMethod) {
    const ModuleID modules[] = {
        shop, module(RealAssemblies::coreLibPath()), module(RealAssemblies::testAsset("MetadataShapes")),
        module(RealAssemblies::aspNetCoreAssembly("Microsoft.AspNetCore.Mvc.ViewFeatures.dll"))};
    // Without class ids every decision walks the groups; with them, most come from the cache.
    for (const char* text : kDirectiveSets) {
        for (const bool withClassIds : {false, true}) {
            auto controller = directives(text);
            int methods = 0, selected = 0, disagreements = 0;
            for (ModuleID where : modules) {
                forEachMethod(
                    where,
                    [&](IMetaDataContext* method) {
                        std::unique_ptr<IDirectiveMatchResult> result(controller->shouldMonitorResult(method));
                        const bool explained = !result->isSkippedGlobally() && result->getMatchedCount() > 0;
                        const bool decided = controller->shouldMonitor(method);
                        ++methods;
                        selected += decided ? 1 : 0;
                        disagreements += decided != explained ? 1 : 0;
                        if (result->isSkippedGlobally()) {
                            EXPECT_EQ(
                                result->getSkippedCount() + result->getMatchedCount() + result->getUnmatchedCount(), 0);
                        }
                    },
                    withClassIds);
            }
            EXPECT_EQ(disagreements, 0) << text << withClassIds;
            EXPECT_GT(methods, 30000) << text;
            // Each set selects something, and far from everything.
            EXPECT_GT(selected, 5) << text;
            EXPECT_LT(selected, methods / 2) << text;
        }
    }
}

// The cache keeps a group whose class skips turn it away out of the class's
// entry, and lets the other groups answer (the second set has such skips, for
// classes, namespaces and assemblies); only group method skips may make the
// cached decision differ.
TEST_F(DirectiveControllerOnAssemblies, CachedDecisionAgreesWithoutGroupMethodSkips) {
    const ModuleID modules[] = {shop, module(RealAssemblies::coreLibPath())};
    for (const char* text : {kDirectiveSets[1], kDirectiveSets[2]}) {
        auto plain = directives(text);
        auto cached = directives(text);
        int disagreements = 0, selected = 0;
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
        EXPECT_EQ(disagreements, 0) << text;
        EXPECT_GT(selected, 5) << text;
        EXPECT_GT(static_cast<DirectiveController&>(*cached).getCache().size(), 1000u) << text;
    }
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
    for (const char* text :
         {kDirectiveSets[0], kDirectiveSets[1], kDirectiveSets[2], kDirectiveSets[3], byName, byPattern}) {
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
    auto controller = directives(
        "IdentifyAllClassesAs: All\n"
        "TraceAnnotatedMethodsIfFlagged: All Microsoft.AspNetCore.Mvc.NonActionAttribute\n"
        "TurnOn: All\n");
    EXPECT_FALSE(selects(*controller, at(views, {u"Microsoft.AspNetCore.Mvc.Controller"}, u"View")));
    EXPECT_TRUE(selects(*controller, at(core, {u"Microsoft.AspNetCore.Mvc.ControllerBase"}, u"Ok")));
}

TEST_F(DirectiveMatchingCacheOnShop, MethodSkipOfAKnownGroupVetoesEveryGroup) {
    auto controller = directives(kTwoGroups + "SkipMethodForFlag: A GetName\n");
    // GetName first: the walk passes A by and B selects it.
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"GetName"));
    // From now on A is in the entry, and its skip answers for all groups.
    EXPECT_FALSE(ask(*controller, u"Shop.Order", u"GetName"));
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Place"));

    // The other order of arrival: once A is known, GetName never gets to B.
    controller->clearCache();
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Place"));
    EXPECT_FALSE(ask(*controller, u"Shop.Order", u"GetName"));
    // Without the cache the group skip only passes A by.
    EXPECT_TRUE(selects(*controller, at({u"Shop.Order"}, u"GetName")));
    EXPECT_EQ(account(*controller, at({u"Shop.Order"}, u"GetName")).matched, std::vector<std::string>{"B"});
}

TEST_F(DirectiveMatchingCacheOnShop, SaturationIsLoggedOnceAndLaterClassesGoWithoutCache) {
    FILE* log = tmpfile();
    auto controller = directives(kTwoGroups, nullptr, log);
    const auto size = [&] { return static_cast<DirectiveController&>(*controller).getCache().size(); };
    controller->setCacheSize(1);
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Place"));
    EXPECT_EQ(streamText(log), "Directive Matching Cache is saturated, Size = 1\n");
    EXPECT_FALSE(ask(*controller, u"Shop.Invoice", u"Issue"));
    EXPECT_TRUE(ask(*controller, u"Shop.OrderItem", u"GetName"));
    EXPECT_EQ(size(), 1u);
    // The class with an entry keeps using it.
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Place"));
    EXPECT_EQ(streamText(log), "Directive Matching Cache is saturated, Size = 1\n");

    // A limit below the present size stops growth without a word.
    controller->clearCache();
    controller->setCacheSize(3);
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Place"));
    EXPECT_FALSE(ask(*controller, u"Shop.Invoice", u"Issue"));
    controller->setCacheSize(1);
    EXPECT_TRUE(ask(*controller, u"Shop.OrderItem", u"GetName"));
    EXPECT_EQ(size(), 2u);
    EXPECT_EQ(streamText(log), "Directive Matching Cache is saturated, Size = 1\n");
    fclose(log);
}

// The cache answers a known class from the sole method names of its one-line
// groups; the answers, vetoes and their order of arrival included, are those
// of full groups with the same rules.
TEST_F(DirectiveMatchingCacheOnShop, OneLineGroupsAnswerInTheirPlaceAmongTheOthers) {
    const std::string text =
        "SkipMethodForFlag: A GetName\nIdentifyClassAs: Shop.Order A\nTraceOneMethodIfFlagged: A Place\nTurnOn: A\n"
        "TraceOneMethodOfClass: Shop.Order GetName\nTraceOneMethodOfClass: Shop.Order Get\n"
        "TraceOneMethodOfClass: Shop.Order Dispose\nTraceOneMethodOfClass: Shop.Order GetName\n"
        "SkipMethodForFlag: Z Get\nIdentifyClassAs: Shop.Order Z\nTraceOneMethodIfFlagged: Z Dispose\nTurnOn: Z\n"
        // Asked between the first two one-line groups and the others.
        "SkipMethodForFlag: Anonymous_05 Dispose\nIdentifyClassAs: Shop.Order Anonymous_05\n"
        "TraceOneMethodIfFlagged: Anonymous_05 G\nTurnOn: Anonymous_05\n";
    auto compact = directives(text);
    // Named by a later line, a one-line group becomes a full one.
    auto full =
        directives(text + "SetFlag: Anonymous_0\nSetFlag: Anonymous_1\nSetFlag: Anonymous_2\nSetFlag: Anonymous_3\n");
    std::vector<const char16_t*> methods = {u"Dispose", u"G", u"Get", u"GetName", u"Place"};
    do {
        compact->clearCache();
        full->clearCache();
        for (int round = 0; round < 2; ++round) {
            for (const char16_t* method : methods) {
                const bool expected = ask(*full, u"Shop.Order", method);
                EXPECT_EQ(ask(*compact, u"Shop.Order", method), expected) << RealAssemblies::narrow(method);
            }
        }
    } while (std::next_permutation(methods.begin(), methods.end()));
}

// A rule read after decisions reaches the classes already in the cache, whose
// entries held the one-line groups of the rules before.
TEST_F(DirectiveMatchingCacheOnShop, RulesReadLaterReachCachedClasses) {
    auto controller = directives("TraceOneMethodOfClass: Shop.Order Place\nTraceOneMethodOfClass: Shop.Order Get\n");
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Place"));
    EXPECT_FALSE(ask(*controller, u"Shop.Order", u"Dispose"));
    ASSERT_EQ(line(*controller, "TraceOneMethodOfClass: Shop.Order Dispose"), S_OK);
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"Dispose"));
    EXPECT_TRUE(ask(*controller, u"Shop.Order", u"GetName"));

    // The same of an assembly that no group could match before.
    auto assemblies = directives("IdentifyAssemblyAs: MetadataShapes A\nTraceAllMethodsIfFlagged: A\nTurnOn: A\n");
    EXPECT_FALSE(ask(*assemblies, u"Shop.Order", u"Place"));
    ASSERT_EQ(line(*assemblies, "IdentifyAssemblyAs: PolicyShapes A"), S_OK);
    EXPECT_TRUE(ask(*assemblies, u"Shop.Order", u"Place"));
}

// The global filter's verdict on a class is kept in its entry; the exceptions
// and skips of single methods are still asked method by method.
TEST_F(DirectiveMatchingCacheOnShop, GlobalSkipsHoldForEveryMethodOfAKnownClass) {
    auto skipping = directives(
        "IdentifyAllClassesAs: All\nTraceAllMethodsIfFlagged: All\nTurnOn: All\n"
        "SkipClass: Shop.Order\nDoNotSkipMethodForClass: Shop.Order Place\nSkipMethodForClass: Shop.Invoice Cancel\n");
    // The second round meets both classes in the cache.
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(ask(*skipping, u"Shop.Order", u"Place")) << round;
        EXPECT_FALSE(ask(*skipping, u"Shop.Order", u"Dispose")) << round;
        EXPECT_FALSE(ask(*skipping, u"Shop.Invoice", u"Cancel")) << round;
        EXPECT_TRUE(ask(*skipping, u"Shop.Invoice", u"Issue")) << round;
    }
}

// A class's candidates come in the groups' order, whichever name, plain or
// bracketed, each was filed under and however the names interleave.
TEST(DirectiveGroupIndex, CandidatesKeepTheGroupsOrderAcrossNames) {
    const std::u16string lines[] = {std::u16string(u"Shop.Order\0Run\0", 15),
                                    std::u16string(u"Shop.Ord\0Run\0", 13),
                                    std::u16string(u"[Shapes]Shop.Order\0Run\0", 23),
                                    std::u16string(u"Shop.Order\0Run\0", 15),
                                    std::u16string(u"Shop.OrderLine\0Run\0", 19),
                                    std::u16string(u"Shop.Invoice\0Run\0", 17),
                                    std::u16string(u"Shop.Ord\0Run\0", 13)};
    std::vector<std::unique_ptr<IDirectiveGroup>> owned;
    DirectiveGroupIndex::Candidates ordered;
    for (uint32_t i = 0; i < std::size(lines); ++i) {
        if (i == 2) {
            // A general group between the filed ones.
            auto general = std::make_unique<MatchingDirectiveGroup>(u"General");
            general->getClassMatcher()->addAllClassesRule();
            ordered.push_back(owned.emplace_back(std::move(general)).get());
        }
        const auto classLength = static_cast<uint16_t>(lines[i].size() - 5);
        ordered.push_back(
            owned.emplace_back(std::make_unique<ClassLineGroup>(lines[i].data(), i, classLength, true)).get());
    }
    DirectiveGroupIndex index;
    index.rebuild(ordered);
    DirectiveGroupIndex::Candidates found;
    std::vector<const char16_t*> names;
    index.candidates(u"Shapes", u"Shop.Order", {}, found, true, &names);
    // All but the invoice's line, in order; equal names share one text.
    EXPECT_THAT(found, ElementsAre(ordered[0], ordered[1], ordered[2], ordered[3], ordered[4], ordered[5], ordered[7]));
    EXPECT_EQ(names[0], names[4]);
    EXPECT_EQ(names[1], names[6]);
    EXPECT_EQ(names[2], nullptr);
    index.candidates(u"Shapes", u"Shop.Order", {}, found, false);
    EXPECT_THAT(found, ElementsAre(ordered[0], ordered[1], ordered[3], ordered[4], ordered[5], ordered[7]));
}

// Names by the ten thousand are sorted on two threads: a class's candidates
// are still exactly the groups whose names agree with it, in the groups' order.
TEST(DirectiveGroupIndex, ManyNamesGiveTheGroupsOfEveryAgreeingName) {
    std::vector<std::u16string> lines;
    for (int i = 0; i < 50000; ++i) {
        const std::string name = "Company" + std::to_string(i % 97) + ".Service" + std::to_string(i % 1013) +
                                 (i % 3 == 0 ? "" : ".Endpoint" + std::to_string(i % 7001));
        lines.push_back(RealAssemblies::widen(name) + std::u16string(u"\0Run\0", 5));
    }
    std::vector<std::unique_ptr<IDirectiveGroup>> owned;
    DirectiveGroupIndex::Candidates ordered;
    for (uint32_t i = 0; i < lines.size(); ++i) {
        const auto classLength = static_cast<uint16_t>(lines[i].size() - 5);
        ordered.push_back(
            owned.emplace_back(std::make_unique<ClassLineGroup>(lines[i].data(), i, classLength, true)).get());
    }
    DirectiveGroupIndex index;
    index.rebuild(ordered);
    // The first probes agree with no name, or with all: before and at the sort.
    for (const char* probe : {"Nowhere", "Comp", "Company5.Service5", "Company5.Service5.Endpoint5", "Company1",
                              "Company96.Service1012", "Company50.Service1.Endpoint1x", "Nowhere"}) {
        const std::u16string className = RealAssemblies::widen(probe);
        DirectiveGroupIndex::Candidates expected;
        for (uint32_t i = 0; i < lines.size(); ++i) {
            const std::u16string_view name(lines[i].data());
            if (name.starts_with(className) || className.starts_with(name)) expected.push_back(ordered[i]);
        }
        DirectiveGroupIndex::Candidates found;
        index.candidates(u"Shapes", className.c_str(), {}, found, false);
        EXPECT_TRUE(found == expected) << probe << ": " << found.size() << " found, " << expected.size() << " expected";
    }
}

// The heads never miss a name that agrees, whatever the lengths: each probe
// before "X" agrees with a name added or shares a head with one. "X" and the
// probes after it share no head and begin no name, nor does a shorter name
// begin them, unless the empty name, which begins every name, is added.
TEST(NameHeads, NeverMissANameThatAgrees) {
    const std::u16string_view added[] = {u"A", u"ABC", u"ABCDE", u"ABX", u"QRSTU", u"Longer.Name"};
    const std::u16string_view probes[] = {u"",    u"A",     u"AB",   u"ABC",          u"ABCD", u"ABCDEF", u"AC",  u"Q",
                                          u"QRS", u"QRSTV", u"Long", u"Longer.Other", u"X",    u"XYZW",   u"QRSX"};
    for (const bool withEmpty : {false, true}) {
        NameHeads heads;
        heads.reset(1000);
        for (std::u16string_view name : added) heads.add(name);
        if (withEmpty) heads.add(u"");
        for (size_t i = 0; i < std::size(probes); ++i) {
            EXPECT_EQ(heads.mayAgree(probes[i]), withEmpty || i < 12) << RealAssemblies::narrow(probes[i].data());
        }
    }
}
