// Hosts that make a profiler's life hard: a long command line, a program in a
// deep folder rewritten on module load, a log file that cannot be opened or
// is not named, directive files that cannot be read, are megabytes long or in
// UTF-16, a regular expression that backtracks, byte order marks, a device in
// a list, named pipes at every input and at the log, a planted link, child
// processes, a umask of 000, a long agent home. In each the program prints
// and returns what it does without the profiler, in time, and the log says
// what happened.
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

const char kByteOrderMark[] = "\xEF\xBB\xBF";

// A copy of the Hello program under another folder and name; the path of its dll.
std::string copyHello(const std::string& folder, const std::string& name) {
    namespace fs = std::filesystem;
    const fs::path from = fs::path(TARN_E2E_DIR) / "Hello";
    fs::create_directories(folder);
    fs::copy_file(from / "Hello.dll", fs::path(folder) / (name + ".dll"));
    fs::copy_file(from / "Hello.runtimeconfig.json", fs::path(folder) / (name + ".runtimeconfig.json"));
    return folder + "/" + name + ".dll";
}

// A named pipe that nobody writes: opening it for reading waits for ever.
std::string pipeAt(const std::string& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0) << path;
    return path;
}

int modeOf(const std::string& path) {
    return static_cast<int>(std::filesystem::status(path).permissions());
}

struct Case {
    const char* name;
    // Lays out the installation; answers the program to run, with its
    // arguments and environment in options.
    std::function<std::string(AgentInstall&, e2e::RunOptions&)> prepare;
    // A line that must stand in the native log (or on standard error), from
    // its start; nothing when no log can be written.
    std::string logged;
    // Further checks after the run.
    std::function<void(AgentInstall&, const e2e::Comparison&)> after = nullptr;
    // The log's place below the working directory, when not in the agent directory.
    std::string logAt = "";
};

const char kLogName[] = "native_dotnet_Hello.log";

TEST(HostileHost, ProgramsRunUnchangedAndTheLogSaysWhatHappened) {
    const std::string hello = e2e::programPath("Hello");
    const Case cases[] = {
        {"5,000 bytes of arguments",
         [&](AgentInstall&, e2e::RunOptions& options) {
             options.args = {"0", std::string(5000, 'x')};
             return hello;
         },
         "Instrumented [Hello]Program::Main"},
        {"a module path of 320 units, rewritten on module load",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.set("harrowlite.nativeprofiler.instrumentOnModuleLoad", "true");
             install.directives("TraceOneMethodOfClass: Program Fibonacci\n");
             std::string folder = install.workDir();
             while (folder.size() < 320) folder += "/" + std::string(60, 'd');
             return copyHello(folder, "Hello");
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"the synthetic shim switched off, which would leave the agent's assembly unresolved",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.set("harrowlite.nativeprofiler.synthetic.shim.enabled", "false");
             return hello;
         },
         "The synthetic shim cannot be switched off on .NET Core: harrowlite.nativeprofiler.synthetic.shim.enabled "
         "is ignored",
         [](AgentInstall& install, const e2e::Comparison& run) {
             EXPECT_NE(install.logText().find("Instrumented [Hello]Program::Main"), std::string::npos) << run.why;
         }},
        {"a log file that cannot be opened",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.set("harrowlite.nativeprofiler.logfile", "/dev/null/logs/native.log");
             return hello;
         },
         "Cannot open the native log file /dev/null/logs/native.log at /dev/null/logs/native_dotnet_Hello.log (Not "
         "a directory): no native log is written",
         [](AgentInstall&, const e2e::Comparison& run) {
             EXPECT_EQ(splitLines(run.run.err).size(), 1u) << "one line on standard error, then silence";
         }},
        {"a profile that names no log file",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.unset("harrowlite.nativeprofiler.logfile");
             return hello;
         },
         "",
         [](AgentInstall& install, const e2e::Comparison& run) {
             EXPECT_EQ(run.run.err, run.reference.err) << run.why;
             EXPECT_EQ(install.logText(), "");
             EXPECT_NE(readFile(install.workDir() + "/record.txt").find("initTrace "), std::string::npos) << run.why;
         }},
        {"a symbolic link loop beside a directive file",
         [&](AgentInstall& install, e2e::RunOptions&) {
             const std::string folder = install.agentDirectory() + "/directives";
             std::filesystem::create_directories(folder);
             std::filesystem::create_symlink(folder + "/0loop.fmd", folder + "/0loop.fmd");
             install.write("directives/1real.fmd", "TraceOneMethodOfClass: Program Fibonacci\n");
             install.set("harrowlite.fieldmark.directivesFile", "directives");
             return hello;
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"a backtracking rule against a long program name",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.write("AgentProfile.config", "ForDll /(.*)*x/\nuse other.properties\n");
             return copyHello(install.workDir() + "/program", "Abcdefghijklmnopqrstuvwxyz0123456789");
         },
         "Instrumented [Hello]Program::Main"},
        {"byte order marks ahead of the profile and the directives",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.startProfileWith(kByteOrderMark);
             install.directives(std::string(kByteOrderMark) + "TraceOneMethodOfClass: Program Fibonacci\n");
             return hello;
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"a directive file in UTF-16",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.directives(std::string("\xFF\xFEI\0d\0", 6));
             return hello;
         },
         "Cannot read ",
         [](AgentInstall& install, const e2e::Comparison& run) {
             EXPECT_NE(install.logText().find("program.fmd: UTF-16 text, which is not read: save it as UTF-8\n"),
                       std::string::npos)
                 << run.why;
         }},
        {"a list naming a device",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.write("program.fml", "/dev/zero\nprogram.fmd\n");
             install.write("program.fmd", "TraceOneMethodOfClass: Program Fibonacci\n");
             install.set("harrowlite.fieldmark.directivesFile", "program.fml");
             return hello;
         },
         "Cannot read /dev/zero: a device, pipe or socket, not a file"},
        {"a directive file beyond 64 MB (sparse: nothing is written)",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.directives("TraceOneMethodOfClass: Program Fibonacci\n");
             std::filesystem::resize_file(install.agentDirectory() + "/program.fmd", (64u << 20) + 1);
             return hello;
         },
         "Cannot read ",
         [](AgentInstall& install, const e2e::Comparison& run) {
             EXPECT_NE(install.logText().find("program.fmd: larger than 64 MB\n"), std::string::npos) << run.why;
         }},
        {"a generated directive file of megabytes, its selecting line last",
         [&](AgentInstall& install, e2e::RunOptions&) {
             std::string lines;
             for (int i = 0; lines.size() < (3u << 20); ++i) {
                 lines += "TraceOneMethodOfClass: Company" + std::to_string(i) + ".Endpoint Invoke\n";
             }
             install.directives(lines + "TraceOneMethodOfClass: Program Fibonacci\n");
             return hello;
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"named pipes as the directive file and as AgentProfile.config",
         [&](AgentInstall& install, e2e::RunOptions&) {
             pipeAt(install.agentDirectory() + "/pipe.fmd");
             pipeAt(install.agentDirectory() + "/AgentProfile.config");
             install.set("harrowlite.fieldmark.directivesFile", "pipe.fmd");
             return hello;
         },
         "Cannot read "},
        {"a named pipe as the profile",
         [&](AgentInstall& install, e2e::RunOptions& options) {
             options.env["TMSENV_AGENT_PROFILE"] = pipeAt(install.agentDirectory() + "/pipe.properties");
             return hello;
         },
         ""},
        {"a named pipe as the log",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.set("harrowlite.nativeprofiler.logfile", "pipe/native.log");
             pipeAt(install.agentDirectory() + "/pipe/" + kLogName);
             return hello;
         },
         // The last resort: the same name below the working directory.
         "Instrumented [Hello]Program::Main", nullptr, std::string("pipe/") + kLogName},
        {"a link planted at the log's place",
         [&](AgentInstall& install, e2e::RunOptions&) {
             writeFile(install.workDir() + "/secret", "secret\n");
             std::filesystem::create_directories(install.agentDirectory() + "/links");
             std::filesystem::create_symlink(install.workDir() + "/secret",
                                             install.agentDirectory() + "/links/" + kLogName);
             install.set("harrowlite.nativeprofiler.logfile", "links/native.log");
             return hello;
         },
         "Instrumented [Hello]Program::Main",
         [](AgentInstall& install, const e2e::Comparison&) {
             EXPECT_EQ(readFile(install.workDir() + "/secret"), "secret\n") << "the link's target is untouched";
         },
         std::string("links/") + kLogName},
        {"a child process",
         [&](AgentInstall&, e2e::RunOptions& options) {
             options.args = {"fds"};
             return e2e::programPath("Spawner");
         },
         "Instrumented [Spawner]Spawner.Program::Main"},
        {"a copy of the program started by itself",
         [&](AgentInstall&, e2e::RunOptions& options) {
             options.args = {"copy"};
             return e2e::programPath("Spawner");
         },
         "tarn.NativeProfiler ",
         [](AgentInstall& install, const e2e::Comparison& run) {
             // Two logs, each whole: the parent's under the usual name.
             const std::vector<std::string> log = install.log();
             EXPECT_EQ(linesStartingWith(log, "Runtime Info: ").size(), 2u) << run.why;
             const std::string copyLog = readFile(install.agentDirectory() + "/native_dotnet_Spawner_2.log");
             EXPECT_NE(copyLog.find("is held by another process; process "), std::string::npos) << run.why;
             EXPECT_EQ(linesStartingWith(log, "Instrumented [Spawner]Spawner.Program::Main").size(), 2u) << run.why;
             EXPECT_NE(readFile(install.agentDirectory() + "/native_dotnet_Spawner.log").find("Runtime Info: "),
                       std::string::npos);
         }},
        {"a umask of 000",
         [&](AgentInstall& install, e2e::RunOptions&) {
             install.set("harrowlite.nativeprofiler.logfile", "logs/native.log");
             return hello;
         },
         "",
         [](AgentInstall& install, const e2e::Comparison& run) {
             EXPECT_EQ(modeOf(install.agentDirectory() + "/logs"), 0750) << run.why;
             EXPECT_EQ(modeOf(install.agentDirectory() + "/logs/" + kLogName), 0640) << run.why;
         }},
        {"an agent home of 400 units",
         [&](AgentInstall& install, e2e::RunOptions& options) {
             install.writeProfile();
             std::string home = install.workDir();
             while (home.size() < 400) home += "/" + std::string(50, 'h');
             std::filesystem::create_directories(home);
             std::filesystem::copy(install.agentDirectory(), home + "/agent", std::filesystem::copy_options::recursive);
             options.env["TMSENV_AGENT_PROFILE"] = home + "/agent/default.properties";
             options.env["TARN_HOME"] = home;
             return hello;
         },
         "",
         [](AgentInstall&, const e2e::Comparison& run) {
             const std::string log = readFile(run.run.env.at("TARN_HOME") + "/agent/" + kLogName);
             EXPECT_NE(log.find("Instrumented [Hello]Program::Main"), std::string::npos) << run.why;
         }},
    };
    for (const Case& c : cases) {
        AgentInstall install;
        e2e::RunOptions options = install.options();
        options.timeoutSeconds = 60;
        const std::string program = c.prepare(install, options);
        SCOPED_TRACE(c.name);
        const bool permissive = std::string(c.name) == "a umask of 000";
        const mode_t umaskBefore = permissive ? umask(0) : 0;
        const e2e::Comparison run = install.compare(program, options);
        if (permissive) umask(umaskBefore);
        ASSERT_EQ(run.reference.exitCode, 0) << run.reference.describe();
        EXPECT_TRUE(run.unchanged());
        const std::string logs =
            c.logAt.empty() ? install.logText() + run.run.err : readFile(install.workDir() + "/" + c.logAt);
        if (!c.logged.empty()) {
            EXPECT_FALSE(linesStartingWith(splitLines(logs), c.logged).empty()) << run.why;
        }
        if (c.after) c.after(install, run);
    }
}

}  // namespace
