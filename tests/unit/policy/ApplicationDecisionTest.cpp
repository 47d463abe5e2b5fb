#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/AgentHome.h"
#include "support/ProbeProcess.h"
#include "support/RealAssemblies.h"
#include "support/TextFiles.h"

using ::testing::Contains;
using ::testing::Not;

namespace {

constexpr const char* kApps = "harrowlite.agent.dotnet.monitorApplications";
constexpr const char* kPools = "harrowlite.agent.dotnet.monitorAppPools";

} // namespace

// The policy probe runs copied under the process name under test (the controller
// reads the name behind /proc/self/exe) over a scratch agent installation.
TEST(ApplicationDecision, ListsDecideByProcessProgramOrPool) {
    AgentHome probe;
    const auto program = [&](const char* asset, const std::string& fileName) {
        return writeFile(probe.root() + "/app/" + fileName, readFile(RealAssemblies::testAsset(asset)));
    };
    const std::string web = program("PolicyWeb", "Bar.dll");
    const std::string foo = program("PolicyConsole", "Foo.dll");
    const std::string baz = program("PolicyConsole", "Baz.dll");
    const std::string rzc = program("PolicyWeb", "rzc.dll");
    std::filesystem::create_directories(probe.root() + "/bin");
    const std::string appsFoo = std::string(kApps) + "=foo\n";
    struct Case {
        std::string profile;
        std::string process;
        std::vector<std::string> arguments;
        std::string verdict;
        std::string logged = ""; // a line the log must hold
        std::string absent = ""; // a line it must not
        std::string appName = "";
        std::vector<std::string> environment = {};
        // The log is exactly the verdict behind the library's line: the IIS
        // decision, made before the log was chosen, leaves no line there.
        bool wholeLog = false;
    };
    // clang-format off
    const std::vector<Case> cases {
        // Without lists everything is monitored.
        {"", "myapp.exe", {}, "Application myapp.exe monitored", "", "", "myapp", {}, true},
        // Names of applications are compared without regard to case (the host
        // myapp.exe runs myapp.dll, which the list does not name). An unlisted
        // host's program (bar.dll) does not exist, so it is no ASP.NET Core program.
        {std::string(kApps) + "=Other, MYAPP.EXE\n", "myapp.exe", {}, "Application myapp.exe monitored"},
        {std::string(kApps) + "=Other, MYAPP.EXE\n", "bar", {}, "Application bar not monitored",
         "bar is not an ASP.NET Core Application"},
        // The exclude list is read only without the application list.
        {std::string(kApps) + "=myapp\n" + kApps + ".exclude=myapp\n", "myapp", {}, "Application myapp monitored"},
        {std::string(kApps) + ".exclude=Other,MYAPP\n", "myapp", {}, "Application myapp not monitored"},
        // An excluded host gets no look at its program.
        {std::string(kApps) + ".exclude=dotnet\n", "dotnet", {web}, "Application dotnet not monitored", "",
         "Detected ASP.NET Core Application Bar"},
        // The collector is monitored whatever the lists say.
        {std::string(kApps) + ".exclude=CounterGatherAgent.exe\n", "CounterGatherAgent.exe", {},
         "Application CounterGatherAgent.exe monitored"},
        {std::string(kApps) + "=Other\n", "CounterGatherAgent.exe", {}, "Application CounterGatherAgent.exe monitored"},
        // The dotnet host is judged by the name of its program, again without regard to case.
        {appsFoo, "dotnet", {foo}, "Application Foo monitored", "", "", "Foo"},
        {appsFoo, "dotnet", {"exec", baz}, "Application Baz not monitored", "Baz is not an ASP.NET Core Application"},
        {appsFoo, "dotnet", {"--info"}, "Application dotnet not monitored", "Failed to find application assembly."},
        // An ASP.NET Core program by the pool lists, which hold whole paths; the Razor compiler never.
        {appsFoo, "dotnet", {web}, "ASP.NET Core Application Bar monitored", "Detected ASP.NET Core Application Bar"},
        {appsFoo + kPools + "=" + web + "\n", "dotnet", {web}, "ASP.NET Core Application Bar monitored"},
        {appsFoo + kPools + "=Bar\n", "dotnet", {web}, "ASP.NET Core Application Bar not monitored"},
        {appsFoo + kPools + ".exclude=" + web + "\n", "dotnet", {web}, "ASP.NET Core Application Bar not monitored"},
        {appsFoo + kPools + "=" + rzc + "\n", "dotnet", {rzc}, "ASP.NET Core Application rzc not monitored"},
        // IIS workers by their pool, which is "NULL" on this platform; pools are
        // compared with case, quotes removed and entries trimmed.
        {"", "w3wp.exe", {}, "AppPool NULL monitored", "", "", "NULL", {}, true},
        {"", "aspnet_wp.exe", {}, "AppPool NULL monitored"},
        {std::string(kPools) + "=null\n", "w3wp.exe", {}, "AppPool NULL not monitored"},
        {std::string(kPools) + "=\"Pool A\", 'NULL'\n", "w3wp.exe", {}, "AppPool NULL monitored"},
        {std::string(kPools) + ".exclude='NULL'\n", "w3wp.exe", {}, "AppPool NULL not monitored"},
        // IIS names replace the worker names; only the environment can give an empty value.
        {"", "w3wp.exe", {}, "Application w3wp.exe monitored", "", "", "",
         {"tmsenv_harrowlite_agent_dotnet_iisNames="}, true},
        {"harrowlite.agent.dotnet.iisNames=Other.exe, MyHost.exe\n", "myhost.exe", {}, "AppPool NULL monitored"},
        {"harrowlite.agent.dotnet.iisNames=Other.exe, MyHost.exe\n", "w3wp.exe", {}, "Application w3wp.exe monitored"},
    };
    // clang-format on
    for (Case c : cases) {
        probe.write("default.properties", "harrowlite.nativeprofiler.logfile=native.log\n" + c.profile);
        for (const auto& entry : std::filesystem::directory_iterator(probe.profiles())) {
            if (entry.path().filename().string().starts_with("native_")) std::filesystem::remove(entry.path());
        }
        const std::string process = probe.root() + "/bin/" + c.process;
        std::filesystem::copy_file(TARN_POLICY_PROBE, process, std::filesystem::copy_options::skip_existing);
        c.environment.push_back("com.tarn.harrowlite.agentProfile=" + probe.profilePath());
        const ProbeProcess run = ProbeProcess::run(process, c.arguments, c.environment, probe.root(), "probe.");
        const std::vector<std::string> log = splitLines(readFilesStartingWith(probe.profiles(), "native_"));
        SCOPED_TRACE(c.process + " " + ::testing::PrintToString(c.arguments) + " with " + c.profile + run.describe() +
                     ::testing::PrintToString(log));
        EXPECT_EQ(run["status"], c.verdict.ends_with(" not monitored") ? "1" : "0");
        // The last line of the log is the decision: what the process is monitored as.
        EXPECT_EQ(log.empty() ? "<no log>" : log.back(), c.verdict);
        EXPECT_EQ(run["log"], "file");
        EXPECT_TRUE(run.otherLines.empty()) << "nothing on standard output";
        if (c.wholeLog) {
            EXPECT_EQ(log.size(), 2u);
        } else if (!c.logged.empty()) {
            EXPECT_THAT(log, Contains(c.logged));
        }
        if (!c.absent.empty()) {
            EXPECT_THAT(log, Not(Contains(c.absent)));
        }
        if (!c.appName.empty()) {
            EXPECT_EQ(run["app.name"], c.appName);
        }
    }
}
