#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "PolicyFixture.h"
#include "policy/ClassMethodFilter.h"
#include "policy/ClassSet.h"
#include "policy/DirectiveController.h"
#include "runtime/CorErrors.h"
#include "support/CapturedStream.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using DirectiveLanguage = PolicyFixture;

namespace {

std::vector<std::string> groupNames(IDirectiveController& controller) {
    std::vector<std::string> all;
    for (IDirectiveGroup* group : static_cast<DirectiveController&>(controller).allGroups()) {
        all.push_back(RealAssemblies::narrow(group->getName()));
    }
    return all;
}

std::string globalFilterLog(IDirectiveController& controller, bool dynamic = false) {
    auto* filter = static_cast<ClassMethodFilter*>(dynamic ? controller.getDynamicInstrumentationSkips()
                                                           : controller.getSkips());
    CapturedStream out;
    filter->logFilter(out.get());
    return out.text();
}

// Directive lines, a method of the shop, and the answer the test asks for it.
struct Case {
    const char* text;
    const char16_t* type;
    const char16_t* method;
    bool answer;
};

// The classes a group names, which must all be named.
std::vector<std::string> classNames(IDirectiveGroup* group) {
    std::vector<std::string> all;
    EXPECT_TRUE(group->namedClassesOnly([&](const char16_t* name, bool parent) {
        EXPECT_FALSE(parent);
        all.push_back(RealAssemblies::narrow(name));
    }));
    return all;
}

const std::string kEverything =
    "IdentifyAllClassesAs: All\n"
    "TraceAllMethodsIfFlagged: All\n"
    "TurnOn: All\n";

}  // namespace

TEST_F(DirectiveLanguage, GlobalSkipsVetoEveryFlag) {
    auto controller = directives(kEverything +
                                 "SkipAssembly: Other\n"
                                 "SkipNamespace: Billing.Internal\n"
                                 "SkipClass: Shop.Invoice\n"
                                 "SkipMethodForClass: Shop.Order Place\n"
                                 "DoNotSkipMethodForClass: Shop.Invoice Issue\n"
                                 "SkipNamespacePrefix: Microsoft\n"
                                 "SkipEmptyClasses\n");
    EXPECT_TRUE(selects(*controller, at({u"Shop.Order"}, u"GetName")));
    EXPECT_FALSE(selects(*controller, at({u"Shop.Order"}, u"Place")));
    EXPECT_TRUE(selects(*controller, at({u"Shop.OrderItem"}, u"Total")));
    EXPECT_FALSE(selects(*controller, at({u"Billing.Internal.Ledger"}, u"Post")));
    EXPECT_FALSE(selects(*controller, at({u"Shop.Invoice"}, u"Cancel")));
    EXPECT_TRUE(selects(*controller, at({u"Shop.Invoice"}, u"Issue")));
    EXPECT_FALSE(selects(*controller, at({u"Microsoft.AspNetCore.Mvc.Controller"}, u"View")));
    EXPECT_TRUE(selects(*controller, at({u"Program"}, u"Main")));

    EXPECT_FALSE(selects(kEverything + "SkipAssemblyPrefix: Policy\n", {u"Shop.Order"}, u"GetName"));
    // Names compare over the shorter one: a namespace that begins a skipped one is skipped with it.
    EXPECT_FALSE(
        selects(kEverything + "SkipNamespace: Billing.InternalAudit\n", {u"Billing.Internal.Ledger"}, u"Post"));
    auto exception = directives(kEverything + "SkipAssembly: PolicyShapes\nDoNotSkipClass: Shop.Cart\n");
    EXPECT_TRUE(selects(*exception, at({u"Shop.Cart`1"}, u"Add")));
    EXPECT_FALSE(selects(*exception, at({u"Shop.Order"}, u"GetName")));
}

TEST_F(DirectiveLanguage, DynamicInstrumentationSkipsFillOnlyTheirFilter) {
    const Case cases[] = {
        {"SkipDynamicInstrumentationAssemblyPrefix: [Poli\n", u"Shop.Order", u"Place", true},
        {"SkipDynamicInstrumentationNamespace: Shop\n", u"Shop.Order", u"Place", true},
        {"SkipDynamicInstrumentationNamespace: Shop\n", u"Billing.Internal.Ledger", u"Post", false},
        {"SkipDynamicInstrumentationNamespacePrefix: Bill\n", u"Billing.Internal.Ledger", u"Post", true},
        {"SkipDynamicInstrumentationMethodForClass: Shop.Order Place\n", u"Shop.Order", u"Place", true},
        {"SkipDynamicInstrumentationMethodForClass: Shop.Order Place\n", u"Shop.Order", u"Dispose", false},
        {"SkipDynamicInstrumentationAssembly: PolicyShapes\nDoNotSkipDynamicInstrumentationClass: Shop.Order\n",
         u"Shop.Order", u"Place", false},
        {"SkipDynamicInstrumentationAssembly: PolicyShapes\n"
         "DoNotSkipDynamicInstrumentationMethodForClass: Shop.Order Dispose\n",
         u"Shop.Order", u"Dispose", false},
        {"SkipDynamicInstrumentationAssembly: PolicyShapes\n"
         "DoNotSkipDynamicInstrumentationMethodForClass: Shop.Order Dispose\n",
         u"Shop.Order", u"Place", true},
    };
    for (const Case& test : cases) {
        auto controller = directives(kEverything + test.text);
        IMetaDataContext* method = at({test.type}, test.method);
        EXPECT_EQ(controller->getDynamicInstrumentationSkips()->skipClassMethod(method), test.answer) << test.text;
        EXPECT_FALSE(controller->getSkips()->skipClassMethod(method)) << test.text;
        EXPECT_TRUE(selects(*controller, method)) << test.text;
    }
    auto empty = directives("SkipDynamicInstrumentationEmptyClasses\n");
    EXPECT_EQ(globalFilterLog(*empty, true), "\t ! class: \n");
    EXPECT_EQ(globalFilterLog(*empty), "");
}

TEST_F(DirectiveLanguage, FlagSkipsExcludeFromTheirFlagOnly) {
    auto controller = directives(
        "IdentifyAssemblyAs: PolicyShapes A\n"
        "TraceAllMethodsIfFlagged: A\n"
        "TurnOn: A\n"
        "IdentifyClassAs: Shop.Order B\n"
        "TraceAllMethodsIfFlagged: B\n"
        "TurnOn: B\n"
        "SkipClassForFlag: Shop.Order A\n"
        "SkipNamespaceForFlag: Billing.Internal A\n"
        "SkipNamespacePrefixForFlag: Microsoft A\n"
        "SkipMethodForFlag: A Refund\n");
    EXPECT_THAT(account(*controller, at({u"Shop.Order"}, u"Place")).skipped, ElementsAre("A"));
    EXPECT_THAT(account(*controller, at({u"Shop.Order"}, u"Place")).matched, ElementsAre("B"));
    EXPECT_TRUE(selects(*controller, at({u"Shop.Order"}, u"Place")));
    EXPECT_FALSE(selects(*controller, at({u"Billing.Internal.Ledger"}, u"Post")));
    EXPECT_FALSE(selects(*controller, at({u"Microsoft.AspNetCore.Mvc.Controller"}, u"Index")));
    // The flag stands first in SkipMethodForFlag.
    EXPECT_FALSE(selects(*controller, at({u"Shop.PaymentBase"}, u"Refund")));
    EXPECT_TRUE(selects(*controller, at({u"Shop.CardPayment"}, u"Pay")));
    EXPECT_EQ(controller->getDirectiveGroup(u"Refund"), nullptr);

    for (const std::string skip : {"SkipAssemblyForFlag: PolicyShapes A\n", "SkipAssemblyPrefixForFlag: [Policy A\n"}) {
        auto assembly =
            directives("IdentifyAssemblyAs: PolicyShapes A\nTraceAllMethodsIfFlagged: A\nTurnOn: A\n" + skip);
        Account seen = account(*assembly, at({u"Program"}, u"Main"));
        EXPECT_THAT(seen.skipped, ElementsAre("A")) << skip;
        EXPECT_FALSE(seen.skippedGlobally);
    }
}

TEST_F(DirectiveLanguage, FlagStateFollowsTheLastTurnAndTheLabelledForm) {
    auto controller = directives(
        "SetFlag: F\n"
        "IdentifyClassAs: Shop.Order F\n"
        "TraceOneMethodIfFlagged: F Place\n");
    EXPECT_FALSE(selects(*controller, at({u"Shop.Order"}, u"Place")));
    for (const auto& [turn, on] : {std::pair{"TurnOn: F", true}, {"TurnOff: F", false}, {"TurnOn: F", true}}) {
        EXPECT_EQ(line(*controller, turn), S_OK);
        EXPECT_EQ(selects(*controller, at({u"Shop.Order"}, u"Place")), on) << turn;
    }

    // TurnOff alone does not declare the flag.
    auto off = directives("TurnOff: G\n");
    ASSERT_NE(off->getDirectiveGroup(u"G"), nullptr);
    EXPECT_FALSE(off->getDirectiveGroup(u"G")->isCreated());
    EXPECT_TRUE(off->getDirectiveGroup(u"G")->wasActiveSet());

    // The labelled form turns on a flag that is not yet created...
    const std::string labelled = "TraceOneMethodWithlabelOfClass: Shop.Order Place label F\n";
    EXPECT_TRUE(selects("TurnOff: F\n" + labelled, {u"Shop.Order"}, u"Place"));
    // ...or created but never turned, and leaves one turned off after creation off.
    EXPECT_TRUE(selects("SetFlag: F\n" + labelled, {u"Shop.Order"}, u"Place"));
    auto turnedOff = directives("SetFlag: F\nTurnOff: F\n" + labelled);
    EXPECT_FALSE(selects(*turnedOff, at({u"Shop.Order"}, u"Place")));
    EXPECT_THAT(groupNames(*turnedOff), ElementsAre("F"));
}

TEST_F(DirectiveLanguage, ClassSelectionKeywords) {
    std::string text;
    for (const char* flag : {"All", "Asm", "Cls", "Inh", "Ann", "Pat"}) {
        text += std::string("TraceAllMethodsIfFlagged: ") + flag + "\nTurnOn: " + flag + "\n";
    }
    auto controller = directives(text +
                                 "IdentifyAllClassesAs: All\n"
                                 "IdentifyAssemblyAs: PolicyShapes Asm\n"
                                 "IdentifyClassAs: Shop.Invoice Cls\n"
                                 "IdentifyInheritedAs: Shop.IRepository Inh\n"
                                 "IdentifyInheritedAs: Shop.Order Inh\n"
                                 "IdentifyAnnotatedClassAs: Shop.AuditedAttribute Ann\n"
                                 "IdentifyMatchingClassesAs: Billing.* Pat\n");
    EXPECT_THAT(account(*controller, at({u"Shop.Invoice"}, u"Cancel")).matched, ElementsAre("All", "Ann", "Asm", "Cls"));
    EXPECT_THAT(account(*controller, at({u"Shop.OrderRepository"}, u"Load")).matched, ElementsAre("All", "Asm", "Inh"));
    EXPECT_THAT(account(*controller, at({u"Shop.SpecialOrder"}, u"Upgrade")).matched, ElementsAre("All", "Asm", "Inh"));
    EXPECT_THAT(account(*controller, at({u"Shop.VerySpecialOrder"}, u"Celebrate")).matched, ElementsAre("All", "Asm"));
    EXPECT_THAT(account(*controller, at({u"Billing.Internal.Ledger"}, u"Post")).matched, ElementsAre("All", "Asm", "Pat"));
    ModuleID coreLib = module(RealAssemblies::coreLibPath());
    Account string = account(*controller, at(coreLib, {u"System.String"}, u"Concat"));
    EXPECT_THAT(string.matched, ElementsAre("All"));
    EXPECT_THAT(string.unmatched, ElementsAre("Ann", "Asm", "Cls", "Inh", "Pat"));
}

TEST_F(DirectiveLanguage, MethodSelectionKeywords) {
    const char* const all[] = {"TraceAllMethodsIfFlagged", "TraceAllMethodsWithParametersIfFlagged",
                               "TraceAllMethodsWithThresholdIfFlagged", "TraceAllComplexMethodsIfFlagged",
                               "TraceAllComplexMethodsWithThresholdIfFlagged", "TraceComplexMethodsIfFlagged",
                               "TraceComplexMethodsWithParametersIfFlagged",
                               "TraceComplexMethodsWithThresholdIfFlagged"};
    for (const char* keyword : all) {
        auto controller = directives(std::string("IdentifyClassAs: Shop.Invoice F\nTurnOn: F\n") + keyword + ": F\n");
        EXPECT_TRUE(selects(*controller, at({u"Shop.Invoice"}, u"Cancel"))) << keyword;
        EXPECT_FALSE(selects(*controller, at({u"Shop.Order"}, u"Place"))) << keyword;
    }
    for (const char* keyword : {"TraceOneMethodIfFlagged", "TraceOneMethodWithParametersIfFlagged",
                                "TraceOneMethodWithThresholdIfFlagged"}) {
        auto controller = directives(std::string("IdentifyClassAs: Shop.Order F\nTurnOn: F\n") + keyword +
                                     ": F Get;()Ljava/lang/String;\n");
        EXPECT_TRUE(selects(*controller, at({u"Shop.Order"}, u"GetName"))) << keyword;
        EXPECT_TRUE(selects(*controller, at({u"Shop.Order"}, u"G"))) << keyword;
        EXPECT_FALSE(selects(*controller, at({u"Shop.Order"}, u"Place"))) << keyword;
    }
    for (const char* keyword : {"TraceAnnotatedMethodsIfFlagged", "TraceAnnotatedMethodsWithParametersIfFlagged"}) {
        auto controller = directives(std::string("IdentifyAssemblyAs: PolicyShapes F\nTurnOn: F\n") + keyword +
                                     ": F Shop.AuditedAttribute\n");
        EXPECT_TRUE(selects(*controller, at({u"Shop.Invoice"}, u"Issue"))) << keyword;
        EXPECT_FALSE(selects(*controller, at({u"Shop.Invoice"}, u"Cancel"))) << keyword;
    }
    auto pattern = directives("IdentifyAssemblyAs: PolicyShapes F\nTurnOn: F\n"
                              "TraceMatchingMethodsWithParametersIfFlagged: F *ncel\n");
    EXPECT_TRUE(selects(*pattern, at({u"Shop.Invoice"}, u"Cancel")));
    EXPECT_FALSE(selects(*pattern, at({u"Shop.Invoice"}, u"Issue")));

    // Class rules alone or method rules alone select nothing.
    EXPECT_FALSE(selects("IdentifyClassAs: Shop.Order F\nTurnOn: F\n", {u"Shop.Order"}, u"Place"));
    EXPECT_FALSE(selects("TraceAllMethodsIfFlagged: F\nTurnOn: F\n", {u"Shop.Order"}, u"Place"));
}

TEST_F(DirectiveLanguage, OneLineFormsMakeLiveAnonymousGroups) {
    const Case cases[] = {
        {"TraceAllMethodsOfClass: Shop.Invoice", u"Shop.Invoice", u"Cancel", true},
        {"TraceAllMethodsWithThresholdOfClass: Shop.Invoice", u"Shop.Invoice", u"Issue", true},
        {"TraceAllMethodsOfClass: [Other]Shop.Invoice", u"Shop.Invoice", u"Issue", false},
        {"TraceAllMethodsIfInherits: Shop.PaymentBase", u"Shop.CardPayment", u"Pay", true},
        {"TraceAllMethodsIfInherits: Shop.PaymentBase", u"Shop.PaymentBase", u"Refund", false},
        {"TraceOneMethodOfClass: Shop.Invoice Issue", u"Shop.Invoice", u"Issue", true},
        {"TraceOneMethodOfClass: Shop.Invoice Issue", u"Shop.Invoice", u"Cancel", false},
        {"TraceOneMethodWithParametersOfClass: Shop.Invoice Issue", u"Shop.Invoice", u"Issue", true},
        {"TraceOneMethodWithThresholdOfClass: Shop.Invoice Issue", u"Shop.Invoice", u"Issue", true},
        {"TraceOneMethodIfInherits: Shop.IRepository Save", u"Shop.OrderRepository", u"Save", true},
        {"TraceOneMethodIfInherits: Shop.IRepository Save", u"Shop.OrderRepository", u"Load", false},
        {"TraceOneMethodWithParametersIfInherits: Shop.IRepository Save", u"Shop.OrderRepository", u"Save", true},
    };
    for (const Case& test : cases) {
        auto controller = directives(std::string(test.text) + "\n");
        EXPECT_EQ(selects(*controller, at({test.type}, test.method)), test.answer) << test.text;
        EXPECT_THAT(groupNames(*controller), ElementsAre("Anonymous_0")) << test.text;
    }

    // Every repetition makes a group of its own, found by its name wherever
    // it is stored; the groups are asked in the order of their names' code
    // units ("Anonymous_10" before "Anonymous_2").
    // Named groups take their places among them by name too.
    std::string repeated;
    std::vector<std::string> expected;
    for (const std::string named : {"A", "Anonymous", "Anonymous_7x", "Z"}) {
        repeated += "IdentifyClassAs: Shop.Order " + named + "\nTraceOneMethodIfFlagged: " + named + " Place\n";
        expected.push_back(named);
    }
    for (int i = 0; i < 1100; ++i) {
        // One number goes to a full group, which the class does not meet.
        repeated +=
            i == 500 ? "TraceAllMethodsIfInherits: Shop.Unrelated\n" : "TraceOneMethodOfClass: Shop.Order Place\n";
        if (i != 1050 && i != 500) expected.push_back("Anonymous_" + std::to_string(i));
    }
    std::sort(expected.begin(), expected.end());
    auto controller = directives(
        repeated + "TurnOff: Anonymous_1050\nTurnOn: A\nTurnOn: Anonymous\nTurnOn: Anonymous_7x\nTurnOn: Z\n");
    EXPECT_EQ(account(*controller, at({u"Shop.Order"}, u"Place")).matched, expected);
}

// A one-line group is kept compact; it must answer every question as the full
// group with the same rules would, quirks of the name sets included.
TEST_F(DirectiveLanguage, CompactOneLineGroupsAnswerAsFullGroups) {
    const char* const rules[][2] = {
        {"Shop.Order", "GetName"},      {"Shop.Ord", "Get"},  {"[PolicyShapes]Shop.Order", "Place;int"},
        {"[Other]Shop.Order", "Place"}, {"Shop.Order", ";x"}, {"[PolicyShapes]Shop", nullptr},
        {"Shop.Order.Line", "Touch"},   {"Order", "G"},
    };
    const char16_t* const assemblies[] = {u"PolicyShapes", u"Other", u"PolicyShape", u""};
    const char16_t* const names[] = {u"Get", u"GetName", u"G", u"", u"Place", u"Placed", u"\u00e9t\u00e9"};
    for (const auto& [className, method] : rules) {
        const std::string what = std::string(className) + " " + (method != nullptr ? method : "(all)");
        auto compact =
            directives(method != nullptr ? std::string("TraceOneMethodOfClass: ") + className + " " + method + "\n"
                                         : std::string("TraceAllMethodsOfClass: ") + className + "\n");
        auto full = directives(std::string("IdentifyClassAs: ") + className + " F\nTurnOn: F\n" +
                               (method != nullptr ? std::string("TraceOneMethodIfFlagged: F ") + method
                                                  : std::string("TraceAllMethodsIfFlagged: F")) +
                               "\n");
        IDirectiveGroup* line = compact->getDirectiveGroup(u"Anonymous_0");
        IDirectiveGroup* group = full->getDirectiveGroup(u"F");
        ASSERT_TRUE(line != nullptr && group != nullptr) << what;
        EXPECT_TRUE(line->isActive() && line->isCreated() && line->wasActiveSet()) << what;
        forEachMethod(shop, [&](IMetaDataContext* method) {
            EXPECT_EQ(line->matchClass(method), group->matchClass(method)) << what;
            EXPECT_EQ(line->match(method), group->match(method)) << what;
        });
        for (const char16_t* assembly : assemblies) {
            EXPECT_EQ(line->mayMatchAssembly(assembly), group->mayMatchAssembly(assembly)) << what;
        }
        for (const char16_t* name : names) EXPECT_EQ(line->mayMatchName(name), group->mayMatchName(name)) << what;
        FirstUnits lineUnits;
        FirstUnits groupUnits;
        EXPECT_EQ(line->addFirstUnits(lineUnits), group->addFirstUnits(groupUnits)) << what;
        EXPECT_EQ(lineUnits, groupUnits) << what;
        EXPECT_EQ(classNames(line), classNames(group)) << what;
    }

    // A line given at run time may name a class longer than any file line.
    auto longClass = directives("");
    const std::string longName(70000, 'C');
    EXPECT_EQ(line(*longClass, "TraceOneMethodOfClass: " + longName + " Run"), S_OK);
    IDirectiveGroup* longGroup = longClass->getDirectiveGroup(u"Anonymous_0");
    ASSERT_NE(longGroup, nullptr);
    EXPECT_TRUE(longGroup->mayMatchName(u"Run"));
    EXPECT_TRUE(longGroup->namedClassesOnly([&](const char16_t* name, bool) { EXPECT_EQ(strlen_u16(name), 70000u); }));

    // A later line that names the group changes it; a name that only looks
    // like it is another group.
    const std::string placed = "TraceOneMethodOfClass: Shop.Order Place\n";
    EXPECT_FALSE(selects(placed + "TurnOff: Anonymous_0\n", {u"Shop.Order"}, u"Place"));
    EXPECT_FALSE(selects(placed + "SkipMethodForFlag: Anonymous_0 Place\n", {u"Shop.Order"}, u"Place"));
    auto lookalike = directives(placed + "TurnOff: Anonymous_00\nTurnOff: Anonymous_+0\n");
    EXPECT_TRUE(selects(*lookalike, at({u"Shop.Order"}, u"Place")));
    EXPECT_THAT(groupNames(*lookalike), ElementsAre("Anonymous_+0", "Anonymous_0", "Anonymous_00"));
    auto extended =
        directives(placed + "TraceOneMethodIfFlagged: Anonymous_0 Cancel\nIdentifyClassAs: Shop.Invoice Anonymous_0\n");
    EXPECT_TRUE(selects(*extended, at({u"Shop.Invoice"}, u"Cancel")));
    EXPECT_TRUE(selects(*extended, at({u"Shop.Order"}, u"Place")));
    // A flag named before the line is the line's group.
    auto early = directives(
        "SkipMethodForFlag: Anonymous_1 Issue\nTraceAllMethodsOfClass: Shop.Order\n"
        "TraceAllMethodsOfClass: Shop.Invoice\n");
    EXPECT_TRUE(selects(*early, at({u"Shop.Invoice"}, u"Cancel")));
    EXPECT_FALSE(selects(*early, at({u"Shop.Invoice"}, u"Issue")));
    EXPECT_THAT(groupNames(*early), ElementsAre("Anonymous_0", "Anonymous_1"));
}

TEST_F(DirectiveLanguage, IgnoredKeywordsBuildNothing) {
    HRESULT status = E_FAIL;
    auto controller = directives(
        "IdentifyFlagAs: X Y\n"
        "IdentifyTwoFlagIntersectionAsAggregateFlag: X Y Z\n"
        "IdentifyTwoFlagUnionAsAggregateFlag: X Y Z\n"
        "InstrumentationPoint: X\n"
        "NoticeConstructorCompletionIfFlagged: X\n"
        "NoticeFieldAssignmentIfFlagged: X\n"
        "NoticeObjectCreationIfFlagged: X\n"
        "SubstituteResultIfFlagged\n",
        &status);
    EXPECT_EQ(status, S_OK);
    EXPECT_THAT(groupNames(*controller), IsEmpty());
    EXPECT_EQ(globalFilterLog(*controller), "");

    // An aggregate's name turned on is an empty group that selects nothing.
    auto aggregate = directives(kEverything + "IdentifyTwoFlagUnionAsAggregateFlag: All Other Both\nTurnOn: Both\n");
    EXPECT_THAT(account(*aggregate, at({u"Shop.Order"}, u"Place")).unmatched, ElementsAre("Both"));
}

TEST_F(DirectiveLanguage, KeywordsCompareOverTheirOwnLength) {
    EXPECT_FALSE(selects(kEverything + "Skip: PolicyShapes\n", {u"Shop.Order"}, u"Place"));
    auto shortSet = directives("Set: F\n");
    ASSERT_NE(shortSet->getDirectiveGroup(u"F"), nullptr);
    EXPECT_TRUE(shortSet->getDirectiveGroup(u"F")->isCreated());
    EXPECT_FALSE(shortSet->getDirectiveGroup(u"F")->wasActiveSet());
    EXPECT_TRUE(selects("IdentifyClassAs: Shop.Order F\nTurnOn: F\nTrace: F\n", {u"Shop.Order"}, u"Place"));
    // An earlier constant wins: the extra token is ignored, no group is made.
    auto extra = directives(kEverything + "SkipAssembly: PolicyShapes F\n");
    EXPECT_FALSE(selects(*extra, at({u"Shop.Order"}, u"Place")));
    EXPECT_EQ(extra->getDirectiveGroup(u"F"), nullptr);
    // Too few arguments for SkipClassForFlag: the line is unknown, not SkipClass.
    EXPECT_TRUE(selects(kEverything + "SkipClassForFlag: Shop.Order\n", {u"Shop.Order"}, u"Place"));

    EXPECT_THAT(groupNames(*directives("  SetFlag : F\n\tTurnOn:G\n")), ElementsAre("F", "G"));
    EXPECT_THAT(groupNames(*directives("IdentifyClassAs: [PolicyShapes]Shop.Order F:x\x01y\n")),
                ElementsAre("F:x\x01y"));
    EXPECT_EQ(globalFilterLog(*directives("SkipEmptyClasses\n")), "\t ! class: \n");

    for (const char* unknown : {"setflag: F\n", "SetFlag F\n", "SetFlag:\n", "#SetFlag: F\n", "   # SetFlag: F\n",
                                "IdentifyClassAs: Foo\n", "SetFlags: F\n"}) {
        HRESULT status = E_FAIL;
        auto controller = directives(unknown, &status);
        EXPECT_EQ(status, S_OK) << unknown;
        EXPECT_THAT(groupNames(*controller), IsEmpty()) << unknown;
    }
}

TEST_F(DirectiveLanguage, BadInputLeavesWhatEarlierLinesBuilt) {
    const std::string base = kEverything +
                             "SkipClass: Shop.Invoice\n"
                             "TraceOneMethodOfClass: Billing.Internal.Ledger Post\n"
                             "SetFlag: Off\n"
                             "IdentifyClassAs: Shop.Order Off\n"
                             "TraceAllMethodsIfFlagged: Off\n";
    const std::string binary = readFile(RealAssemblies::testAsset("PolicyShapes"));
    ASSERT_GT(binary.size(), 1000u);
    const std::string bad[] = {
        binary,
        std::string(5000, 'x') + "\n",
        std::string(3000, ':') + "\n",
        ":::: ::\n::",
        "NoSuchKeyword: a b c d e\n",
        "IdentifyClassAs: Shop.Invoice\n",
        "TraceOneMethodWithlabelOfClass: Shop.Invoice Issue label\n",
        "TraceOneMethodOfClass: Shop.Invoice\n",
        "TurnOn\n",
        std::string("\xff\xfe\x00SetFlag: Z\n", 13),
        std::string("\x01\x80\xc3\xa9: \xff\xff\n"),
    };
    const std::pair<const char16_t*, const char16_t*> probes[] = {{u"Shop.Order", u"Place"},
                                                                  {u"Shop.Invoice", u"Issue"},
                                                                  {u"Billing.Internal.Ledger", u"Post"},
                                                                  {u"Program", u"Main"}};
    auto reference = directives(base);
    for (const std::string& input : bad) {
        HRESULT status = E_FAIL;
        auto controller = directives(base + input, &status);
        EXPECT_EQ(status, S_OK);
        EXPECT_EQ(groupNames(*controller), groupNames(*reference));
        EXPECT_EQ(globalFilterLog(*controller), globalFilterLog(*reference));
        for (const auto& [type, method] : probes) {
            Account got = account(*controller, at({type}, method));
            Account expected = account(*reference, at({type}, method));
            EXPECT_EQ(got.skippedGlobally, expected.skippedGlobally);
            EXPECT_EQ(got.matched, expected.matched);
            EXPECT_EQ(got.unmatched, expected.unmatched);
        }
    }
}

TEST(ClassSet, QualifiedLookupOfAnOverlongNameStaysInItsBuffer) {
    ClassSet set;
    std::u16string longName(3000, u'N');
    set.insert((u"[A]" + longName.substr(0, 2044)).c_str());
    // "[A]" and 2044 units fill the 2047 that the built key can hold.
    EXPECT_TRUE(findInClassSets(set, u"A", longName.c_str()));
    EXPECT_FALSE(findInClassSets(set, u"B", longName.c_str()));
}

TEST(ClassSet, AssemblyTestFollowsTheBracketedAndPlainMembers) {
    ClassSet set;
    EXPECT_FALSE(set.mayHoldClassOf(u"A"));
    set.insert(u"[A]N.C");
    set.insert(u"[A]N.CX");  // one key with the first: the set is unchanged
    EXPECT_TRUE(set.mayHoldClassOf(u"A"));
    EXPECT_FALSE(set.mayHoldClassOf(u"B"));
    set.insert(u"N.D");
    EXPECT_TRUE(set.mayHoldClassOf(u"B"));
    set.clear();
    set.insert(u"[A]N.C");
    EXPECT_FALSE(set.mayHoldClassOf(u"B"));
}
