// Directives changed under a running program: the methods that the new
// directives select start reaching the agent, those they no longer select
// stop, without a restart and without a change in what the program prints.
// The test waits for what the agent recorded, with a time limit, never for a
// fixed time.
#include "ReloadProgram.h"

namespace {

using e2e::AgentInstall;
using e2e::lastCall;
using e2e::waitUntil;

std::string select(std::initializer_list<const char*> methods) {
    std::string lines;
    for (const char* method : methods) lines += std::string("TraceOneMethodOfClass: Reload.Work ") + method + "\n";
    return lines;
}

// A switch set to true for the run, or none. With precompiled code off, the
// callers that inlined a newly selected method were compiled at run time, and
// are compiled again with it.
void followsItsDirectives(const std::string& setting = "") {
    const bool precompiledOff = setting == "harrowlite.nativeprofiler.precompiledCode.disabled";
    AgentInstall install;
    install.directives(select({"Alpha", "Spin"}));
    if (!setting.empty()) install.set(setting, "true");
    const e2e::RunResult reference = e2e::runPlain("Reload", {"once"});
    ASSERT_EQ(reference.out, "done: True\n") << reference.describe();

    install.writeProfile();
    e2e::RunningReload program(install, install.options());
    auto why = [&] {
        return "--- native.txt ---\n" + readFile(install.workDir() + "/native.txt") + "--- native log ---\n" +
               install.logText() + "--- record tail ---\n" +
               joinLines(linesStartingWith(install.record(), "pushTrace 0 System.String:"));
    };

    // Launched with Alpha selected: Alpha is traced, Beta is not. A ReJIT
    // request gets the runtime's answer; an unknown module gets -1.
    EXPECT_TRUE(waitUntil([&] { return lastCall(install, "alpha") >= 0; })) << why();
    EXPECT_TRUE(e2e::notes(install, "supports 1\nunknown -1\nrequested ")) << why();
    EXPECT_TRUE(e2e::notes(install, "status 0\n")) << why();
    EXPECT_NE(install.logText().find("Failed to find module [nowhere] nowhere.dll \n"), std::string::npos) << why();
    EXPECT_EQ(lastCall(install, "beta"), -1) << why();

    // Beta instead of Alpha: Beta starts reaching the agent, Alpha stops.
    install.directives(select({"Beta"}));
    e2e::touch(install, "reload");
    ASSERT_TRUE(waitUntil([&] { return lastCall(install, "beta") >= 0; })) << why();
    const int switched = lastCall(install, "beta");
    ASSERT_TRUE(waitUntil([&] { return lastCall(install, "beta") >= switched + 100; })) << why();
    const int alphaStopped = lastCall(install, "alpha");
    EXPECT_LT(alphaStopped, switched + 5) << why();
    std::string log = install.logText();
    EXPECT_NE(log.find("Request ReJIT to disable [Reload]Reload.Work::Alpha\n"), std::string::npos) << why();
    EXPECT_NE(log.find("Request ReJIT to enable [Reload]Reload.Work::Beta\n"), std::string::npos) << why();
    // Spin<long>, disabled while a traced call of it waits, is called anew,
    // untraced; the waiting call then loops on in the body it started with.
    e2e::touch(install, "call");
    ASSERT_TRUE(e2e::notes(install, "called ")) << why();
    const int called = lastCall(install, "beta");
    ASSERT_TRUE(waitUntil([&] { return lastCall(install, "beta") > called + 5; })) << why();
    // Only the Spin methods return a long.
    auto spun = [&] { return linesStartingWith(install.record(), "finishTrace result=System.Int64:").size(); };
    EXPECT_EQ(spun(), 0u) << why();
    e2e::touch(install, "spin-late");
    EXPECT_TRUE(e2e::notes(install, "spun late ")) << why();

    // Both, and Spin again: Alpha comes back, Beta goes on, a new call of
    // Spin<long> is traced.
    install.directives(select({"Alpha", "Beta", "Spin"}));
    e2e::touch(install, "reload");
    EXPECT_TRUE(waitUntil([&] { return lastCall(install, "alpha") > alphaStopped + 100; })) << why();
    EXPECT_GT(lastCall(install, "beta"), switched + 100) << why();
    const size_t before = spun();
    e2e::touch(install, "call");
    EXPECT_TRUE(waitUntil([&] { return spun() > before; })) << why();

    // A method of the core library that its callers inlined: those callers
    // are compiled again, and the method's calls reach the agent.
    auto coreCalls = [&] { return linesStartingWith(install.record(), "corInitTrace ").size(); };
    ASSERT_EQ(coreCalls(), 0u) << why();
    install.directives(select({"Alpha", "Beta"}) + "TraceOneMethodOfClass: System.String IsNullOrEmpty\n" +
                       e2e::kLoaderFirstCall);
    e2e::touch(install, "reload");
    EXPECT_TRUE(waitUntil([&] { return coreCalls() > 100; })) << why();
    EXPECT_EQ(install.logText().find("Hot Reload recompiling ") != std::string::npos, !precompiledOff) << why();
    // The program's module had a shim of its own from the start; the core
    // library got one only when one of its methods was selected.
    log = install.logText();
    const size_t coreShim = log.find("Defined Synthetic Shim in System.Private.CoreLib\n");
    EXPECT_NE(coreShim, std::string::npos) << why();
    EXPECT_LT(log.find("Defined Synthetic Shim in Reload\n"), coreShim) << why();

    // A plugin loaded into a collectible context and unloaded: nothing of it
    // reaches the runtime afterwards, neither a request by its name nor the
    // next reload's walk over what was compiled, a list of its struct included.
    e2e::touch(install, "plugin");
    ASSERT_TRUE(e2e::notes(install, "plugin unloaded, asked again: -1\n")) << why();
    e2e::touch(install, "reload");
    EXPECT_TRUE(e2e::notes(install, "plugin unloaded, asked again: -1\nreloaded ")) << why();
    EXPECT_NE(install.logText().find("Failed to find module [ReloadPlugin] ReloadPlugin \n"), std::string::npos)
        << why();

    const e2e::RunResult& run = program.stop();
    EXPECT_EQ(run.exitCode, 0) << run.describe() << why();
    EXPECT_EQ(run.out, reference.out) << run.describe() << why();
    EXPECT_EQ(run.err, "") << run.describe();
}

TEST(HotReload, ARunningProgramFollowsItsDirectives) {
    followsItsDirectives();
}

TEST(HotReload, WithPrecompiledCodeOffTheCallersThatInlinedANewMethodFollow) {
    followsItsDirectives("harrowlite.nativeprofiler.precompiledCode.disabled");
}

// Methods rewritten when their module loaded are compared with the new
// directives as compiled ones are.
TEST(HotReload, MethodsRewrittenOnModuleLoadFollowToo) {
    followsItsDirectives("harrowlite.nativeprofiler.instrumentOnModuleLoad");
}

}  // namespace
