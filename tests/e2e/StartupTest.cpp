// Start-up decisions, seen from outside a real process: what the native log
// says, what the runtime does with the event mask, and whether the program
// still runs as it does without us.
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

// Rewriting at module load: the program's module is instrumented in one go
// with its summary line, compile events only bring the offset maps, and the
// traces still arrive.
TEST(Startup, InstrumentationOnModuleLoad) {
    AgentInstall install;
    install.set("harrowlite.nativeprofiler.instrumentOnModuleLoad", "true");
    install.directives("TraceAllMethodsOfClass: Traced.Subject\n");
    const e2e::Comparison run = install.compare("Traced", install.options({"3"}));
    const std::vector<std::string>& log = run.log;

    EXPECT_TRUE(run.unchanged());
    // One summary a module, the program's naming the size of its set: the
    // seven methods of the class and the hidden Main.
    const auto summaries = linesStartingWith(log, "[Traced] Instrumented ");
    ASSERT_EQ(summaries.size(), 1u) << run.why;
    EXPECT_EQ(summaries[0].rfind("[Traced] Instrumented 8 methods in (", 0), 0u) << summaries[0];
    EXPECT_FALSE(linesStartingWith(log, "[System.Private.CoreLib] Instrumented 0 methods in (").empty()) << run.why;
    EXPECT_EQ(linesStartingWith(log, "Instrumented [Traced]Traced.Subject::Scalars").size(), 1u) << run.why;
    // No compile event took the compile path: none of its lines.
    for (const auto& line : log) EXPECT_EQ(line.find("functionID"), std::string::npos) << line;
    for (const char* call : {"pushTrace 11 System.Double:2.25", "catchTrace System.InvalidOperationException:bad 5"}) {
        EXPECT_FALSE(linesStartingWith(install.record(), call).empty()) << call << "\n" << joinLines(install.record());
    }
}

// Refusals: the runtime drops and unloads the profiler (or, under a build
// tool of the dotnet command, keeps it loaded and idle: no controller, so no
// native log), and the program runs as if it had never been asked to load it.
TEST(Startup, RefusedProcessesRunUntouched) {
    struct Case {
        const char* name;
        void (*prepare)(AgentInstall&, e2e::RunOptions&);
        const char* logLine;  // expected in the native log, or null for no log at all
        const char* program = "Hello";
        bool mapped = false;  // whether the library stays loaded
    };
    const Case cases[] = {
        {"application excluded",
         [](AgentInstall& install, e2e::RunOptions&) {
             install.set("harrowlite.agent.dotnet.monitorApplications", "SomethingElse");
         },
         "Application Hello not monitored"},
        {"field marking off",
         [](AgentInstall& install, e2e::RunOptions&) { install.set("harrowlite.fieldmark.enable", "false"); },
         "Monitoring disabled due to harrowlite.fieldmark.enable=false"},
        {"profile missing",
         [](AgentInstall& install, e2e::RunOptions& options) {
             options.env["TMSENV_AGENT_PROFILE"] = install.agentDirectory() + "/absent.properties";
         },
         nullptr},
        {"profile a dangling link",
         [](AgentInstall& install, e2e::RunOptions& options) {
             const std::string link = install.agentDirectory() + "/dangling.properties";
             EXPECT_EQ(symlink((install.agentDirectory() + "/gone").c_str(), link.c_str()), 0);
             options.env["TMSENV_AGENT_PROFILE"] = link;
         },
         nullptr},
        // The runtime asks the class factory for the CLSID it was given: for
        // any other one our library must refuse.
        {"unknown CLSID",
         [](AgentInstall&, e2e::RunOptions& options) {
             options.env["CORECLR_PROFILER"] = "{00000000-1111-2222-3333-444444444444}";
         },
         nullptr},
        {"a build tool of the dotnet command",
         [](AgentInstall& install, e2e::RunOptions&) {
             const std::string built = std::string(TARN_E2E_DIR) + "/Hello/Hello";
             const std::string tool = install.workDir() + "/MSBuild";
             for (const std::string suffix : {".dll", ".runtimeconfig.json"}) {
                 writeFile(tool + suffix, readFile(built + suffix));
             }
         },
         nullptr, "MSBuild.dll", true},  // found in the working directory
    };
    const e2e::RunResult reference = e2e::runPlain("Hello", {"5"});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AgentInstall install;
        install.directives("TraceAllMethodsOfClass: Program\n");
        auto options = install.options({"5"});
        options.env["TARN_E2E_REPORT_MAPS"] = "1";
        c.prepare(install, options);
        auto run = install.run(c.program, options);
        auto log = install.log();
        const std::string why = install.explain(run);

        EXPECT_EQ(run.exitCode, 5) << why;
        EXPECT_EQ(run.out, reference.out) << why;
        EXPECT_EQ(run.mapsOurLibrary(), c.mapped) << why;
        EXPECT_TRUE(linesStartingWith(log, "Module Loaded").empty()) << why;
        EXPECT_EQ(readFile(install.workDir() + "/record.txt"), "");
        if (c.logLine != nullptr) {
            EXPECT_EQ(linesStartingWith(log, c.logLine).size(), 1u) << why;
        } else {
            EXPECT_EQ(install.logText(), "");
        }
    }
}

// An agent that cannot be loaded leaves the program running untraced, with
// one line in the native log that says what failed.
TEST(Startup, AgentThatCannotBeLoadedLeavesTheProgramUntraced) {
    const std::string real = readFile(std::string(TARN_E2E_DIR) + "/agent/tarn.Agent.dll");
    struct Case {
        const char* name;
        std::optional<std::string> content;  // of tarn.Agent.dll; none: no file at all
        const char* failure;
    };
    const Case cases[] = {
        {"agent missing", std::nullopt, "Could not load file or assembly"},
        {"truncated agent", real.substr(0, real.size() / 3), "format"},
        {"agent without the class", readFile(std::string(TARN_E2E_DIR) + "/Hello/Hello.dll"),
         "Object reference not set"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AgentInstall install;
        const std::string agent = install.agentDirectory() + "/bin/netcore/tarn.Agent.dll";
        std::filesystem::remove(agent);
        if (c.content) writeFile(agent, *c.content);
        const e2e::Comparison run = install.compare("Hello", install.options());
        EXPECT_TRUE(run.unchanged());
        EXPECT_EQ(run.run.err, run.reference.err) << run.why;
        const std::vector<std::string> failed = linesStartingWith(run.log, "Failed to load the agent: ");
        ASSERT_EQ(failed.size(), 1u) << run.why;
        EXPECT_NE(failed[0].find(c.failure), std::string::npos) << failed[0];
        EXPECT_EQ(linesStartingWith(run.log, "Instrumented [Hello]Program::Main - 0x0(").size(), 1u) << run.why;
    }
}

// The agent's native calls reach this library once its classes are patched,
// on every thread; a class outside the list keeps its own library name.
TEST(Startup, PatchedPInvokeReachesTheNativeThreadId) {
    auto plain = e2e::runPlain("tarn.AgentExtras");
    AgentInstall install;
    auto run = install.run("tarn.AgentExtras", install.options());
    const std::string why = install.explain(run);

    ASSERT_EQ(plain.exitCode, 0) << plain.describe();
    EXPECT_EQ(plain.out, "patched: DllNotFoundException\nunlisted: DllNotFoundException\nworker: DllNotFoundException\n")
        << plain.describe();
    EXPECT_EQ(run.exitCode, 0) << why;
    EXPECT_EQ(run.out, "patched: this thread\nunlisted: DllNotFoundException\nworker: this thread\n") << why;
    EXPECT_EQ(linesStartingWith(install.log(), "Patching PInvoke...").size(), 2u) << why;

    // The library and the agent in a folder whose name is not ASCII: the
    // P/Invokes still reach the library, and the agent loads and records.
    const std::string home = install.workDir() + "/Über wachung";
    std::filesystem::create_directory(home);
    std::filesystem::copy(install.agentDirectory() + "/bin", home + "/bin", std::filesystem::copy_options::recursive);
    std::filesystem::copy_file(install.profilePath(), home + "/default.properties");
    std::filesystem::copy_file(TARN_PROFILER_PATH, home + "/tarn.NativeProfiler.so");
    std::filesystem::remove(install.workDir() + "/record.txt");
    e2e::RunOptions beyondAscii = install.options();
    beyondAscii.env["TMSENV_AGENT_PROFILE"] = home + "/default.properties";
    beyondAscii.env["CORECLR_PROFILER_PATH"] = home + "/tarn.NativeProfiler.so";
    const e2e::RunResult moved = install.run("tarn.AgentExtras", beyondAscii);
    EXPECT_EQ(moved.out, run.out) << install.explain(moved);
    EXPECT_FALSE(linesStartingWith(install.record(), "initTrace").empty()) << install.explain(moved);
}

}  // namespace
