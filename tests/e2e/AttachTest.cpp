// Attaching to a running program with the attach tool: the program was
// started without a profiler; after the attach the methods that the
// directives select reach the agent, whether compiled before the attach
// (compiled again) or after, and the program prints what it always does; one
// that runs across the attach keeps its running body.
// Attaches that cannot succeed end with a clear message from the tool and
// leave the program running, ready for one that can.
#include "ReloadProgram.h"

namespace {

using e2e::AgentInstall;
using e2e::lastCall;
using e2e::waitUntil;

e2e::RunResult attach(std::vector<std::string> args) {
    args.insert(args.end(), {"--profiler", TARN_PROFILER_PATH});
    return e2e::runPlain(std::string(TARN_E2E_DIR) + "/attach/tarn-attach.dll", std::move(args));
}

TEST(Attach, ARunningProgramIsTracedAfterTheToolAttaches) {
    AgentInstall install;
    e2e::RunningReload program(install, e2e::awaitingAttach(install));
    const std::string pid = e2e::waitForPid(install);
    ASSERT_FALSE(pid.empty()) << "the program did not start";
    // The program writes its id once Alpha has run: it was compiled without us.
    EXPECT_EQ(lastCall(install, "alpha"), -1);

    // Attaches that cannot succeed say why and leave the program as it was.
    const std::pair<std::vector<std::string>, const char*> failures[] = {
        {{"--pid", "999999999"}, "does not exist or is not a .NET process"},
        {{"--pid", pid, "malformed client data"}, "not an option nor a KEY=VALUE pair"},
        {{"--profile", install.profilePath()}, "no process id given"},
        // No profile: the process gate refuses, and so the runtime.
        {{"--pid", pid, "--profile", install.workDir() + "/missing.properties"}, "refused the profiler"},
    };
    for (const auto& [args, message] : failures) {
        const e2e::RunResult refused = attach(args);
        EXPECT_EQ(refused.exitCode, 2) << refused.describe();
        EXPECT_NE(refused.err.find(message), std::string::npos) << refused.describe();
    }

    const e2e::RunResult attached =
        attach({"--pid", pid, "--profile", install.profilePath(), "--agent-name", "Reload", "tool.key=tool value"});
    auto why = [&] { return install.explain(attached); };
    EXPECT_EQ(attached.exitCode, 0) << why();
    EXPECT_NE(attached.out.find("attached "), std::string::npos) << why();
    EXPECT_TRUE(waitUntil([&] { return lastCall(install, "alpha") >= 0; })) << why();
    EXPECT_EQ(lastCall(install, "beta"), -1) << why();
    const std::string log = install.logText();
    EXPECT_NE(log.find("Request ReJIT to enable [Reload]Reload.Work::Alpha\n"), std::string::npos) << why();
    EXPECT_NE(log.find("Attached TMS Agent with 0x0\n"), std::string::npos) << why();

    // Calls of a selected method that run across the attach go on in the
    // method's own body when the runtime moves their loops to new code: made
    // before any new call, or after one has had the traced body.
    e2e::touch(install, "spin");
    EXPECT_TRUE(e2e::notes(install, "spun ")) << why();
    const std::string kept =
        "Kept the running body of [Reload]Reload.Work::Spin: compiled before the profiler saw it\n";
    EXPECT_NE(install.logText().find(kept), std::string::npos) << why();
    e2e::touch(install, "call");
    EXPECT_TRUE(e2e::notes(install, "called ")) << why();
    e2e::touch(install, "spin-late");
    EXPECT_TRUE(e2e::notes(install, "spun late ")) << why();

    // The agent's view of its environment: the tool's lines first, then the
    // profile and the agent name of the start-up.
    e2e::touch(install, "environment");
    ASSERT_TRUE(e2e::notes(install, "environment:"));
    const std::string environment = readFile(install.workDir() + "/native.txt");
    const size_t tool = environment.find("tool.key=tool value\n");
    const size_t profile = environment.find("com.tarn.harrowlite.agentProfile=", tool);
    const size_t name = environment.find("com.tarn.harrowlite.agentName=Reload", profile);
    EXPECT_NE(name, std::string::npos) << environment;  // and so the two before it, in their order

    // A second attach is refused by the runtime; the program runs on.
    const e2e::RunResult again = attach({"--pid", pid, "--profile", install.profilePath()});
    EXPECT_NE(again.exitCode, 0) << again.describe();
    EXPECT_NE(again.err.find("tarn-attach: "), std::string::npos) << again.describe();
    const int before = lastCall(install, "alpha");
    EXPECT_TRUE(waitUntil([&] { return lastCall(install, "alpha") > before + 20; })) << why();

    const e2e::RunResult& run = program.stop();
    EXPECT_EQ(run.exitCode, 0) << run.describe();
    EXPECT_EQ(run.out, "done: True\n") << run.describe();
    EXPECT_EQ(run.err, "") << run.describe();
}

}  // namespace
