// Hosts that make a profiler's life hard: a long command line, a program in a
// deep folder rewritten on module load, a log file that cannot be opened,
// directive files that cannot be read, a regular expression that backtracks,
// byte order marks, a device in a list. In each the program prints and returns
// what it does without the profiler, and the log says what happened.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "AgentInstall.h"
#include "ProgramRun.h"

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

struct Case {
    const char* name;
    // Lays out the installation; answers the program to run and its arguments.
    std::function<std::string(AgentInstall&, std::vector<std::string>&)> prepare;
    // A line that must stand in the native log (or on standard error, where
    // the log went), from its start.
    std::string logged;
};

TEST(HostileHost, ProgramsRunUnchangedAndTheLogSaysWhatHappened) {
    const std::string hello = e2e::programPath("Hello");
    const Case cases[] = {
        {"5,000 bytes of arguments",
         [&](AgentInstall&, std::vector<std::string>& args) {
             args = {"0", std::string(5000, 'x')};
             return hello;
         },
         "Instrumented [Hello]Program::Main"},
        {"a module path of 320 units, rewritten on module load",
         [&](AgentInstall& install, std::vector<std::string>&) {
             install.set("harrowlite.nativeprofiler.instrumentOnModuleLoad", "true");
             install.directives("TraceOneMethodOfClass: Program Fibonacci\n");
             std::string folder = install.workDir();
             while (folder.size() < 320) folder += "/" + std::string(60, 'd');
             return copyHello(folder, "Hello");
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"a log file that cannot be opened",
         [&](AgentInstall& install, std::vector<std::string>&) {
             install.set("harrowlite.nativeprofiler.logfile", "/dev/null/logs/native.log");
             return hello;
         },
         "Cannot open the native log file /dev/null/logs/native.log (Not a directory): logging to standard error"},
        {"a symbolic link loop beside a directive file",
         [&](AgentInstall& install, std::vector<std::string>&) {
             const std::string folder = install.agentDirectory() + "/directives";
             std::filesystem::create_directories(folder);
             std::filesystem::create_symlink(folder + "/0loop.fmd", folder + "/0loop.fmd");
             install.write("directives/1real.fmd", "TraceOneMethodOfClass: Program Fibonacci\n");
             install.set("harrowlite.fieldmark.directivesFile", "directives");
             return hello;
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"a backtracking rule against a long program name",
         [&](AgentInstall& install, std::vector<std::string>&) {
             install.write("AgentProfile.config", "ForDll /(.*)*x/\nuse other.properties\n");
             return copyHello(install.workDir() + "/program", "Abcdefghijklmnopqrstuvwxyz0123456789");
         },
         "Instrumented [Hello]Program::Main"},
        {"byte order marks ahead of the profile and the directives",
         [&](AgentInstall& install, std::vector<std::string>&) {
             install.startProfileWith(kByteOrderMark);
             install.directives(std::string(kByteOrderMark) + "TraceOneMethodOfClass: Program Fibonacci\n");
             return hello;
         },
         "Instrumented [Hello]Program::Fibonacci"},
        {"a list naming a device",
         [&](AgentInstall& install, std::vector<std::string>&) {
             install.write("program.fml", "/dev/zero\nprogram.fmd\n");
             install.write("program.fmd", "TraceOneMethodOfClass: Program Fibonacci\n");
             install.set("harrowlite.fieldmark.directivesFile", "program.fml");
             return hello;
         },
         "Cannot read /dev/zero: a device, pipe or socket, not a file"},
    };
    for (const Case& c : cases) {
        AgentInstall install;
        std::vector<std::string> args;
        const std::string program = c.prepare(install, args);
        SCOPED_TRACE(c.name);
        const e2e::Comparison run = install.compare(program, install.options(args));
        ASSERT_EQ(run.reference.exitCode, 0) << run.reference.describe();
        EXPECT_TRUE(run.unchanged());
        EXPECT_FALSE(linesStartingWith(splitLines(install.logText() + run.run.err), c.logged).empty()) << run.why;
    }
}

}  // namespace
