#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ApplicationProbe.h"

using ::testing::Contains;
using ::testing::Not;

namespace {

constexpr const char* kApps = "harrowlite.agent.dotnet.monitorApplications";
constexpr const char* kPools = "harrowlite.agent.dotnet.monitorAppPools";

// The last line of the decision: what the process is monitored as.
std::string verdict(const ProbeProcess& run) { return run.otherLines.empty() ? "<no log>" : run.otherLines.back(); }

} // namespace

TEST(ApplicationDecision, ListsDecideByProcessProgramOrPool) {
    ApplicationProbe probe;
    const std::string web = probe.program("PolicyWeb", "Bar.dll");
    const std::string foo = probe.program("PolicyConsole", "Foo.dll");
    const std::string baz = probe.program("PolicyConsole", "Baz.dll");
    const std::string rzc = probe.program("PolicyWeb", "rzc.dll");
    const std::string appsFoo = std::string(kApps) + "=Foo\n";
    struct Case {
        std::string profile;
        std::string process;
        std::vector<std::string> arguments;
        std::string verdict;
        std::string logged = ""; // a line the log must hold
        std::string absent = ""; // a line it must not
        std::string appName = "";
        std::vector<std::string> environment = {};
        // The log is exactly the verdict: the IIS decision, made before the
        // log was chosen, leaves no line on standard output.
        bool wholeLog = false;
    };
    const std::vector<Case> cases {
        // Without lists everything is monitored.
        {"", "myapp.exe", {}, "Application myapp.exe monitored", "", "", "myapp", {}, true},
        // Names of applications are compared without regard to case. An unlisted
        // host's program (bar.dll) does not exist, so it is no ASP.NET Core program.
        {std::string(kApps) + "=Other, FOO\n", "foo", {}, "Application foo monitored"},
        {std::string(kApps) + "=Other, FOO\n", "bar", {}, "Application bar not monitored",
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
        // The dotnet host is judged by the name of its program.
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
    for (const Case& c : cases) {
        probe.write("default.properties", c.profile);
        const ProbeProcess run = probe.run(c.process, c.arguments, c.environment);
        SCOPED_TRACE(c.process + " " + ::testing::PrintToString(c.arguments) + " with " + c.profile + run.describe());
        EXPECT_EQ(run["status"], c.verdict.ends_with(" not monitored") ? "1" : "0");
        EXPECT_EQ(verdict(run), c.verdict);
        EXPECT_EQ(run["log"], "stdout");
        if (c.wholeLog) {
            EXPECT_EQ(run.otherLines, (std::vector<std::string> {c.verdict}));
        } else if (!c.logged.empty()) {
            EXPECT_THAT(run.otherLines, Contains(c.logged));
        }
        if (!c.absent.empty()) {
            EXPECT_THAT(run.otherLines, Not(Contains(c.absent)));
        }
        if (!c.appName.empty()) {
            EXPECT_EQ(run["app.name"], c.appName);
        }
    }
}
