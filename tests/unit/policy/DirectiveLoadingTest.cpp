#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "PolicyFixture.h"
#include "runtime/CorErrors.h"

using ::testing::Contains;

namespace {

// Profiler controllers over a scratch agent installation: their profile and
// log, the directives they load, and their decisions on methods of the shop
// and of a console program built with the SDK.
class ProfilerControllerOnInstallation : public PolicyFixture {
protected:
    void SetUp() override {
        PolicyFixture::SetUp();
        program = module(RealAssemblies::testAsset("PolicyConsole"));
    }

    IMetaDataContext* method(const char16_t* className, const char16_t* name) { return at(program, {className}, name); }
    // 0 if the controller selects Shop's class.method.
    int decide(ProfilerController& controller, const char16_t* className, const char16_t* method) {
        return controller.shouldMonitorMethod(at({className}, method));
    }

    std::unique_ptr<ProfilerController> make(const std::string& directives = "") {
        std::unique_ptr<ProfilerController> controller = installation->controller(info, directives);
        // Thrown, not expected: every caller goes on to use the controller.
        if (controller == nullptr) throw std::runtime_error("the controller was not made");
        return controller;
    }

    std::unique_ptr<AgentInstallation> installation = std::make_unique<AgentInstallation>();
    ModuleID program = 0;
};

} // namespace

TEST_F(ProfilerControllerOnInstallation, EachSourceIsReadOnlyWhereItsSwitchesSayAndSelectsWhenLoaded) {
    const std::string fieldmark = "harrowlite.fieldmark.directivesFile";
    const std::string dynamic = "harrowlite.agent.remoteagentdynamicinstrumentation.enabled";
    struct Case {
        std::string name;
        std::map<std::string, std::string> properties;
        // File and the "Class Method" it selects; it selects if and only if it
        // is loaded. Text of several lines is a list file, written as it is.
        std::map<std::string, std::string> files;
        std::vector<std::string> lines;
        int status = 0;
    };
    const std::vector<Case> cases {
        {"sources in their order, lists trimmed",
         {{fieldmark, "a.fmd, b.fml ,dir"}, {dynamic, "true"}},
         {{"a.fmd", "Shop.Order Place"},
          {"b.fml", "Title: some probes\nDescription: what they are\n# a comment\n\n"
                    "c.fmd trailing words are ignored\nmissing.fmd\n"},
          {"c.fmd", "Shop.Order Dispose"}, {"dir/d1.fmd", "Shop.Invoice Issue"},
          {"dir/d2.netcore.fmd", "Shop.Invoice Cancel"}, {"dir/notes.txt", "Shop.OrderItem Total"},
          {"dynamic/e.fmd", "Shop.OrderRepository Save"}, {"persistedprobes/f.fmd", "Shop.OrderRepository Load"}},
         {"Started loading ~/a.fmd", "Loaded ~/a.fmd", "Started loading ~/b.fml", "Started loading ~/c.fmd",
          "Loaded ~/c.fmd", "Loaded ~/b.fml", "Started loading ~/dir/d1.fmd", "Loaded ~/dir/d1.fmd",
          // On the Core runtime no file is passed over for its marker.
          "Started loading ~/dir/d2.netcore.fmd", "Loaded ~/dir/d2.netcore.fmd", "Started loading ~/dynamic/e.fmd",
          "Loaded ~/dynamic/e.fmd", "Started loading ~/persistedprobes/f.fmd", "Loaded ~/persistedprobes/f.fmd"}},
        {"the native key is the only source",
         {{"harrowlite.nativeprofiler.directivesFile", "a.fmd"}, {fieldmark, "b.fmd"}, {dynamic, "true"}},
         {{"a.fmd", "Shop.Order Place"}, {"b.fmd", "Shop.Order Dispose"}, {"dynamic/e.fmd", "Shop.Invoice Issue"},
          {"persistedprobes/f.fmd", "Shop.Invoice Cancel"}},
         {"Started loading ~/a.fmd", "Loaded ~/a.fmd"}},
        {"a failing entry ends its list, and what was loaded stands",
         {{fieldmark, "a.fmd,missing.fmd,c.fmd"}},
         {{"a.fmd", "Shop.Order Place"}, {"c.fmd", "Shop.Order Dispose"}, {"persistedprobes/f.fmd", "Shop.Invoice Issue"}},
         {"Started loading ~/a.fmd", "Loaded ~/a.fmd", "Invalid file missing.fmd"}, E_FAIL},
        {"entries need a known extension", {{fieldmark, "notes.txt"}}, {{"notes.txt", "Shop.Order Place"}},
         {"Invalid entry notes.txt"}, E_FAIL},
        {"a persistedprobes that is a plain file has no extension at all", {},
         {{"persistedprobes", "Shop.Order Place"}}, {"Invalid entry persistedprobes"}, E_FAIL},
        {"the dynamic folder only with dynamic instrumentation", {},
         {{"dynamic/e.fmd", "Shop.Order Place"}, {"persistedprobes/f.fmd", "Shop.Order Dispose"}},
         {"Started loading ~/persistedprobes/f.fmd", "Loaded ~/persistedprobes/f.fmd"}},
        // " bar" keeps its blank, so xbar.fmd is read; the framework list is not used on Core.
        {"the ignore list is a substring test on the whole path",
         {{fieldmark, "dir"}, {"harrowlite.fieldmark.dotnetcore.ignoreDirectivesFile", "zzz, bar,foo"},
          {"harrowlite.fieldmark.dotnetframework.ignoreDirectivesFile", "keep"}},
         {{"dir/foobar.fmd", "Shop.Order Place"}, {"dir/keep.fmd", "Shop.Order Dispose"},
          {"dir/xbar.fmd", "Shop.Invoice Issue"}},
         {"Skipping ~/dir/foobar.fmd", "Started loading ~/dir/keep.fmd", "Loaded ~/dir/keep.fmd",
          "Started loading ~/dir/xbar.fmd", "Loaded ~/dir/xbar.fmd"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Another installation; the old one gives the environment back first.
        installation.reset();
        installation = std::make_unique<AgentInstallation>();
        for (const auto& [key, value] : c.properties) installation->set(key, value);
        for (const auto& [file, text] : c.files) {
            installation->write(file, text.find('\n') != std::string::npos ? text : "TraceOneMethodOfClass: " + text + "\n");
        }
        std::unique_ptr<ProfilerController> controller = make();
        EXPECT_EQ(controller->initializeDirectives(), c.status);
        // Loaded once, failed or not: the next question finds the directives in place.
        EXPECT_EQ(controller->initializeDirectives(), 0);
        EXPECT_EQ(installation->log(), c.lines);
        for (const auto& [file, method] : c.files) {
            if (method.find('\n') != std::string::npos) continue;
            const size_t blank = method.find(' ');
            const bool loaded = std::count(c.lines.begin(), c.lines.end(), "Loaded ~/" + file) == 1;
            EXPECT_EQ(decide(*controller, RealAssemblies::widen(method.substr(0, blank)).c_str(),
                             RealAssemblies::widen(method.substr(blank + 1)).c_str()),
                      loaded ? 0 : 1)
                << file;
        }
    }
}

TEST_F(ProfilerControllerOnInstallation, ReloadReadsAgainAndKeepsTheMemo) {
    std::unique_ptr<ProfilerController> controller = make("TraceOneMethodOfClass: Shop.Order Place\n");
    EXPECT_EQ(controller->initializeDirectives(), 0);
    EXPECT_EQ(decide(*controller, u"Shop.Order", u"Place"), 0);
    EXPECT_EQ(decide(*controller, u"Shop.Order", u"Get"), 1);
    const FunctionID get = context->getFunctionID();

    installation->write("probes.fmd", "TraceOneMethodOfClass: Shop.Order Get\n");
    EXPECT_EQ(controller->reloadDirectives(), 0);
    EXPECT_THAT(installation->log(), Contains("Loaded ~/probes.fmd").Times(2));
    // Decided before the reload, the same function compiled again: the memo
    // answers until it is cleared.
    ASSERT_EQ(context->setFunction(get), S_OK);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 1);
    controller->clearCacheForFunction(get);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 0);
    EXPECT_EQ(controller->shouldMonitorMethodUncached(at({u"Shop.Order"}, u"Place")), 1);
}

TEST_F(ProfilerControllerOnInstallation, MainMethodsAreSelectedWithoutDirectiveFiles) {
    std::unique_ptr<ProfilerController> controller = make();
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Program", u"Main")), 0);
    const FunctionID main = context->getFunctionID();
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Worker", u"main")), 0);
    EXPECT_EQ(controller->shouldMonitorMethod(method(u"PolicyConsole.Worker", u"Work")), 1);
    const FunctionID work = context->getFunctionID();
    EXPECT_EQ(controller->getCompiledMethods().at(main), 0);
    EXPECT_EQ(controller->getCompiledMethods().at(work), 1);
}

TEST_F(ProfilerControllerOnInstallation, ReadOnlyAndByRefLikeStructsAreVetoed) {
    std::unique_ptr<ProfilerController> controller = make(
        "TraceAllMethodsOfClass: PolicyConsole.Pair\nTraceAllMethodsOfClass: PolicyConsole.Counter\n"
        "TraceAllMethodsOfClass: PolicyConsole.Cursor\nTraceAllMethodsOfClass: PolicyConsole.Größe\n");
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
    // The file's UTF-8 meets a name beyond ASCII, which the log writes as UTF-8.
    EXPECT_EQ(controller->shouldMonitorMethodUncached(method(u"PolicyConsole.Größe", u"Maß")), 0);
    EXPECT_EQ(controller->shouldMonitorMethod(context.get()), 1);

    EXPECT_EQ(installation->log(),
              (std::vector<std::string>{
                  "Started loading ~/probes.fmd", "Loaded ~/probes.fmd",
                  "Instrumentation disabled for byref-like type [PolicyConsole]PolicyConsole.Pair::GetFirst",
                  "Instrumentation disabled for byref-like type [PolicyConsole]PolicyConsole.Cursor::Advance",
                  "Instrumentation disabled for byref-like type [PolicyConsole]PolicyConsole.Größe::Maß"}));
}

TEST_F(ProfilerControllerOnInstallation, GenericTriggerOnCoreFiresOnceInItsModuleAndNeverAfterAttach) {
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
    EXPECT_THAT(installation->log(), Contains("Generic agent trigger matched.").Times(1));

    // Never after an attach.
    std::unique_ptr<ProfilerController> attached = make();
    attached->setGenericModuleTrigger(program);
    attached->setIsAttach(true);
    EXPECT_EQ(attached->shouldMonitorMethod(method(u"PolicyConsole.Counter", u"Next")), 1);
}

TEST_F(ProfilerControllerOnInstallation, SkipsOfAssembliesAndDynamicInstrumentation) {
    // The first question loads, and a failed load means "not skipped".
    installation->set("harrowlite.fieldmark.directivesFile", "skips.fmd,missing.fmd");
    installation->write("skips.fmd", "SkipAssembly: PolicyShapes\nSkipDynamicInstrumentationClass: Shop.Order\n");
    std::unique_ptr<ProfilerController> controller = make();
    EXPECT_EQ(controller->shouldSkipAssembly(at({u"Shop.Order"}, u"Place")), 1);
    EXPECT_EQ(controller->shouldSkipAssembly(context.get()), 0);
    EXPECT_EQ(controller->shouldSkipAssembly(method(u"PolicyConsole.Worker", u"Work")), 1);
    EXPECT_EQ(controller->shouldSkipDynamicInstrumentation(at({u"Shop.Order"}, u"Place")), 0);
    EXPECT_EQ(controller->shouldSkipDynamicInstrumentation(at({u"Shop.Invoice"}, u"Issue")), 1);
}

TEST_F(ProfilerControllerOnInstallation, RelativeProfileIsMadeAbsoluteFromTheWorkingDirectory) {
    const std::string cwd = std::filesystem::current_path().string();
    setenv("com.tarn.harrowlite.agentProfile", "profiles/agent.properties", 1);
    std::unique_ptr<ProfilerController> controller = make();
    EXPECT_EQ(RealAssemblies::narrow(controller->getAgentProfilePath().c_str()), cwd + "/profiles/agent.properties");
    EXPECT_EQ(RealAssemblies::narrow(controller->getAgentDirectory().c_str()), cwd + "/profiles");
}

TEST_F(ProfilerControllerOnInstallation, NativeLogIsAFileOfThisProcessOrNowhere) {
    std::unique_ptr<ProfilerController> controller = make();
    FILE* log = controller->getNativeLog();
    ASSERT_NE(log, stdout);
    EXPECT_EQ(controller->getNativeLog(), log);
    fprintf(log, "first line\n");
    // The executable's name makes the log this process's own, beside the profile.
    EXPECT_EQ(installation->log(), std::vector<std::string>{"first line"}) << installation->logPath();

    // An absolute path keeps its folder, which is made; a name without a dot is taken whole.
    const std::string folder = installation->root() + "/elsewhere/deeper";
    installation->set("harrowlite.nativeprofiler.logfile", folder + "/trace");
    ASSERT_NE(make()->getNativeLog(), stdout);
    EXPECT_TRUE(std::filesystem::exists(folder + "/trace_" + AgentInstallation::executableName() + ".log"));

    // Without a file the log goes nowhere, never into the program's own output.
    installation->unset("harrowlite.nativeprofiler.logfile");
    std::unique_ptr<ProfilerController> unlogged = make();
    FILE* nowhere = unlogged->getNativeLog();
    EXPECT_TRUE(nowhere != nullptr && nowhere != stdout && nowhere != stderr);
    EXPECT_EQ(fprintf(nowhere, "dropped\n"), 8);
}
