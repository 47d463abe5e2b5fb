#include <gtest/gtest.h>

#include "AgentInstallation.h"
#include "PolicyFixture.h"
#include "runtime/CorErrors.h"

namespace {

// Decisions on the methods of a console program built with the SDK.
class MethodDecision : public PolicyFixture {
protected:
    void SetUp() override {
        PolicyFixture::SetUp();
        program = module(RealAssemblies::testAsset("PolicyConsole"));
    }

    IMetaDataContext* method(const char16_t* className, const char16_t* name) { return at(program, {className}, name); }

    std::unique_ptr<ProfilerController> make(const std::string& directives = "") {
        if (!directives.empty()) {
            installation.set("harrowlite.fieldmark.directivesFile", "probes.fmd");
            installation.write("probes.fmd", directives);
        }
        std::unique_ptr<ProfilerController> controller = installation.controller(info);
        EXPECT_NE(controller, nullptr);
        return controller;
    }

    AgentInstallation installation;
    ModuleID program = 0;
};

} // namespace

TEST_F(MethodDecision, MainMethodsAreSelectedWithoutDirectiveFiles) {
    std::unique_ptr<ProfilerController> controller = make();
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Program", u"Main")), 0);
    const FunctionID main = context->getFunctionID();
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Worker", u"main")), 0);
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Worker", u"Work")), 1);
    const FunctionID work = context->getFunctionID();
    EXPECT_EQ(controller->getCompiledMethods().at(main), 0);
    EXPECT_EQ(controller->getCompiledMethods().at(work), 1);
}

TEST_F(MethodDecision, ReadOnlyAndByRefLikeStructsAreVetoed) {
    std::unique_ptr<ProfilerController> controller = make("TraceAllMethodsOfClass: PolicyConsole.Pair\n"
                                                          "TraceAllMethodsOfClass: PolicyConsole.Counter\n"
                                                          "TraceAllMethodsOfClass: PolicyConsole.Cursor\n");
    // A generic read-only struct; the context names it without its arity.
    EXPECT_TRUE(controller->isByRefLike(method(u"PolicyConsole.Pair`1", u"GetFirst")));
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 1);
    // The directives alone select it.
    EXPECT_EQ(controller->shouldMonitorMethodUncached(context.get()), 0);

    EXPECT_TRUE(controller->isByRefLike(method(u"PolicyConsole.Cursor", u"Advance")));
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 1);
    EXPECT_FALSE(controller->isByRefLike(method(u"PolicyConsole.Counter", u"Next")));
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 0);
    EXPECT_FALSE(controller->isByRefLike(method(u"PolicyConsole.Worker", u"Work")));

    EXPECT_EQ(installation.log(),
              (std::vector<std::string> {
                  "Started loading " + installation.profiles() + "/probes.fmd",
                  "Loaded " + installation.profiles() + "/probes.fmd",
                  "Instrumentation disabled for byref-like type [PolicyConsole]PolicyConsole.Pair::GetFirst",
                  "Instrumentation disabled for byref-like type [PolicyConsole]PolicyConsole.Cursor::Advance"}))
        << joinLines(installation.log());
}

TEST_F(MethodDecision, GenericTriggerOnCoreFiresOnceInItsModuleAndNeverAfterAttach) {
    std::unique_ptr<ProfilerController> controller = make("SkipClass: PolicyConsole.Worker\n");
    // No module named yet.
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Counter", u"Next")), 1);
    const FunctionID next = context->getFunctionID();

    controller->setGenericModuleTrigger(program);
    // Not in the trigger's module, then skipped by the global filter.
    EXPECT_EQ(controller->shouldMonitorMethod(at({u"Shop.Order"}, u"Place")), 1);
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Worker", u"Work")), 1);
    // Decided before, but the trigger comes first; the memo stays as it was.
    ASSERT_EQ(context->setFunction(next), S_OK);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 0);
    EXPECT_EQ(controller->getCompiledMethods().at(next), 1);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 1);
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Worker", u"Helper")), 1);
    const std::vector<std::string> log = installation.log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "Generic agent trigger matched."), 1) << joinLines(log);

    // Never after an attach.
    std::unique_ptr<ProfilerController> attached = make();
    attached->setGenericModuleTrigger(program);
    attached->setIsAttach(true);
    EXPECT_EQ(attached->shouldMonitorMethod(method(u"PolicyConsole.Counter", u"Next")), 1);
}

TEST_F(MethodDecision, SkipsOfAssembliesAndDynamicInstrumentation) {
    // The first question loads, and a failed load means "not skipped".
    installation.set("harrowlite.fieldmark.directivesFile", "skips.fmd,missing.fmd");
    installation.write("skips.fmd", "SkipAssembly: PolicyShapes\nSkipDynamicInstrumentationClass: Shop.Order\n");
    std::unique_ptr<ProfilerController> controller = installation.controller(info);
    ASSERT_NE(controller, nullptr);
    EXPECT_EQ(controller->shouldSkipAssembly(at({u"Shop.Order"}, u"Place")), 1);
    EXPECT_EQ(controller->shouldSkipAssembly(context.get()), 0);
    EXPECT_EQ(controller->shouldSkipAssembly(method(u"PolicyConsole.Worker", u"Work")), 1);
    EXPECT_EQ(controller->shouldSkipDynamicInstrumentation(at({u"Shop.Order"}, u"Place")), 0);
    EXPECT_EQ(controller->shouldSkipDynamicInstrumentation(at({u"Shop.Invoice"}, u"Issue")), 1);
}
