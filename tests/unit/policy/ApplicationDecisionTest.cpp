#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "ApplicationProbe.h"

namespace {

// The last line of the decision: what the process is monitored as.
std::string verdict(const ApplicationRun& run) { return run.log.empty() ? "<no log>" : run.log.back(); }

} // namespace

TEST(ApplicationDecision, EveryApplicationIsMonitoredWithoutLists)
{
    ApplicationProbe probe;
    const ApplicationRun run = probe.run("myapp.exe", {});
    EXPECT_EQ(run["status"], "0") << run.describe();
    // "not " and the blank of the format make two blanks.
    EXPECT_EQ(run.log, (std::vector<std::string> {"Application myapp.exe is not  an IIS process",
                                                  "Application myapp.exe monitored"}))
        << run.describe();
    EXPECT_EQ(run["app.name"], "myapp");
    EXPECT_EQ(run["log"], "stdout");
}

TEST(ApplicationDecision, ApplicationListComparesNamesWithoutRegardToCase)
{
    ApplicationProbe probe;
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Other, FOO\n");
    const ApplicationRun listed = probe.run("foo", {});
    EXPECT_EQ(listed["status"], "0") << listed.describe();
    EXPECT_EQ(verdict(listed), "Application foo monitored");

    // An application host that is not listed: the program beside it (bar.dll)
    // does not exist, so it is no ASP.NET Core program, and its name is not listed.
    const ApplicationRun unlisted = probe.run("bar", {});
    EXPECT_EQ(unlisted["status"], "1") << unlisted.describe();
    EXPECT_TRUE(unlisted.logged("bar is not an ASP.NET Core Application")) << unlisted.describe();
    EXPECT_EQ(verdict(unlisted), "Application bar not monitored");
}

TEST(ApplicationDecision, ExcludeListIsReadOnlyWithoutTheApplicationList)
{
    ApplicationProbe probe;
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=myapp\n"
                       "harrowlite.agent.dotnet.monitorApplications.exclude=myapp\n");
    const ApplicationRun both = probe.run("myapp", {});
    EXPECT_EQ(both["status"], "0") << both.describe();
    EXPECT_EQ(verdict(both), "Application myapp monitored");

    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications.exclude=Other,MYAPP\n");
    const ApplicationRun excluded = probe.run("myapp", {});
    EXPECT_EQ(excluded["status"], "1") << excluded.describe();
    EXPECT_EQ(verdict(excluded), "Application myapp not monitored");
}

TEST(ApplicationDecision, ExcludedHostGetsNoLookAtItsProgram)
{
    ApplicationProbe probe;
    const std::string web = probe.program("PolicyWeb", "Bar.dll");
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications.exclude=dotnet\n");
    const ApplicationRun run = probe.run("dotnet", {web});
    EXPECT_EQ(run["status"], "1") << run.describe();
    EXPECT_FALSE(run.logged("Detected ASP.NET Core Application Bar")) << run.describe();
    EXPECT_EQ(verdict(run), "Application dotnet not monitored");
}

TEST(ApplicationDecision, CollectorProcessIsMonitoredWhateverTheLists)
{
    ApplicationProbe probe;
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications.exclude=CounterGatherAgent.exe\n");
    const ApplicationRun excluded = probe.run("CounterGatherAgent.exe", {});
    EXPECT_EQ(excluded["status"], "0") << excluded.describe();
    EXPECT_EQ(verdict(excluded), "Application CounterGatherAgent.exe monitored");

    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Other\n");
    const ApplicationRun unlisted = probe.run("CounterGatherAgent.exe", {});
    EXPECT_EQ(unlisted["status"], "0") << unlisted.describe();
}

TEST(ApplicationDecision, DotnetHostIsJudgedByTheNameOfItsProgram)
{
    ApplicationProbe probe;
    const std::string listed = probe.program("PolicyConsole", "Foo.dll");
    const std::string unlisted = probe.program("PolicyConsole", "Baz.dll");
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Foo\n");

    const ApplicationRun foo = probe.run("dotnet", {listed});
    EXPECT_EQ(foo["status"], "0") << foo.describe();
    EXPECT_EQ(verdict(foo), "Application Foo monitored");
    EXPECT_EQ(foo["app.name"], "Foo");

    const ApplicationRun baz = probe.run("dotnet", {"exec", unlisted});
    EXPECT_EQ(baz["status"], "1") << baz.describe();
    EXPECT_TRUE(baz.logged("Baz is not an ASP.NET Core Application")) << baz.describe();
    EXPECT_EQ(verdict(baz), "Application Baz not monitored");

    // A dotnet command without a program.
    const ApplicationRun none = probe.run("dotnet", {"--info"});
    EXPECT_EQ(none["status"], "1") << none.describe();
    EXPECT_TRUE(none.logged("Failed to find application assembly.")) << none.describe();
    EXPECT_EQ(verdict(none), "Application dotnet not monitored");
}

TEST(ApplicationDecision, AspNetCoreProgramIsJudgedByThePoolListsOnItsPath)
{
    ApplicationProbe probe;
    const std::string web = probe.program("PolicyWeb", "Bar.dll");
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Foo\n");
    const ApplicationRun plain = probe.run("dotnet", {web});
    EXPECT_EQ(plain["status"], "0") << plain.describe();
    EXPECT_TRUE(plain.logged("Detected ASP.NET Core Application Bar")) << plain.describe();
    EXPECT_EQ(verdict(plain), "ASP.NET Core Application Bar monitored");

    // The pool lists hold whole paths for these programs.
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Foo\n"
                       "harrowlite.agent.dotnet.monitorAppPools=" + web + "\n");
    EXPECT_EQ(verdict(probe.run("dotnet", {web})), "ASP.NET Core Application Bar monitored");
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Foo\n"
                       "harrowlite.agent.dotnet.monitorAppPools=Bar\n");
    EXPECT_EQ(verdict(probe.run("dotnet", {web})), "ASP.NET Core Application Bar not monitored");
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Foo\n"
                       "harrowlite.agent.dotnet.monitorAppPools.exclude=" + web + "\n");
    const ApplicationRun excluded = probe.run("dotnet", {web});
    EXPECT_EQ(excluded["status"], "1") << excluded.describe();
    EXPECT_EQ(verdict(excluded), "ASP.NET Core Application Bar not monitored");
}

TEST(ApplicationDecision, RazorCompilerIsNeverMonitored)
{
    ApplicationProbe probe;
    const std::string rzc = probe.program("PolicyWeb", "rzc.dll");
    probe.writeProfile("harrowlite.agent.dotnet.monitorApplications=Foo\n"
                       "harrowlite.agent.dotnet.monitorAppPools=" + rzc + "\n");
    const ApplicationRun run = probe.run("dotnet", {rzc});
    EXPECT_EQ(run["status"], "1") << run.describe();
    EXPECT_EQ(verdict(run), "ASP.NET Core Application rzc not monitored");
}

TEST(ApplicationDecision, IisWorkerIsJudgedByItsPool)
{
    ApplicationProbe probe;
    // This platform has no pools: every worker's pool is "NULL".
    const ApplicationRun plain = probe.run("w3wp.exe", {});
    EXPECT_EQ(plain["status"], "0") << plain.describe();
    EXPECT_EQ(plain.log, (std::vector<std::string> {"Application w3wp.exe is  an IIS process", "AppPool NULL monitored"}));
    EXPECT_EQ(plain["app.name"], "NULL");
    EXPECT_EQ(verdict(probe.run("aspnet_wp.exe", {})), "AppPool NULL monitored");

    // Pools are compared with case; quotes are removed and entries trimmed.
    probe.writeProfile("harrowlite.agent.dotnet.monitorAppPools=null\n");
    EXPECT_EQ(verdict(probe.run("w3wp.exe", {})), "AppPool NULL not monitored");
    probe.writeProfile("harrowlite.agent.dotnet.monitorAppPools=\"Pool A\", 'NULL'\n");
    EXPECT_EQ(verdict(probe.run("w3wp.exe", {})), "AppPool NULL monitored");
    probe.writeProfile("harrowlite.agent.dotnet.monitorAppPools.exclude='NULL'\n");
    const ApplicationRun excluded = probe.run("w3wp.exe", {});
    EXPECT_EQ(excluded["status"], "1") << excluded.describe();
    EXPECT_EQ(verdict(excluded), "AppPool NULL not monitored");
}

TEST(ApplicationDecision, IisNamesReplaceTheWorkerNames)
{
    ApplicationProbe probe;
    // A properties file drops empty values; the environment can set one.
    const ApplicationRun empty = probe.run("w3wp.exe", {}, {"tmsenv_harrowlite_agent_dotnet_iisNames="});
    EXPECT_EQ(empty.log, (std::vector<std::string> {"Application w3wp.exe is not  an IIS process",
                                                    "Application w3wp.exe monitored"}))
        << empty.describe();

    probe.writeProfile("harrowlite.agent.dotnet.iisNames=Other.exe, MyHost.exe\n");
    EXPECT_EQ(verdict(probe.run("myhost.exe", {})), "AppPool NULL monitored");
    EXPECT_EQ(verdict(probe.run("w3wp.exe", {})), "Application w3wp.exe monitored");
}

TEST(ApplicationDecision, NativeLogIsNamedAfterTheProcessAndItsProgram)
{
    ApplicationProbe probe;
    const std::string program = probe.program("PolicyConsole", "Foo.dll");
    probe.writeProfile("harrowlite.nativeprofiler.logfile=logs/Native.log\n");
    const std::string logs = probe.files().path("agent/profiles/logs/");

    const ApplicationRun dotnet = probe.run("dotnet", {program});
    EXPECT_EQ(dotnet["log"], "file") << dotnet.describe();
    EXPECT_TRUE(dotnet.log.empty()) << dotnet.describe();
    EXPECT_TRUE(std::filesystem::exists(logs + "Native_dotnet_Foo.log"));

    const ApplicationRun worker = probe.run("w3wp.exe", {});
    EXPECT_EQ(worker["log"], "file") << worker.describe();
    EXPECT_TRUE(std::filesystem::exists(logs + "Native_NULL.log"));

    // Relative to the working directory when the folder beside the profile
    // cannot be made; standard output when neither can.
    probe.files().write("agent/profiles/blocked", "a file where a folder would go");
    probe.writeProfile("harrowlite.nativeprofiler.logfile=blocked/Native.log\n");
    const ApplicationRun fallback = probe.run("myapp", {});
    EXPECT_EQ(fallback["log"], "file") << fallback.describe();
    EXPECT_TRUE(std::filesystem::exists(probe.files().path("blocked/Native_myapp.log")));
    std::filesystem::remove_all(probe.files().path("blocked"));
    probe.files().write("blocked", "a file where a folder would go");
    const ApplicationRun neither = probe.run("myapp", {});
    EXPECT_EQ(neither["log"], "stdout") << neither.describe();
    EXPECT_EQ(verdict(neither), "Application myapp monitored");
}

TEST(ApplicationDecision, NativeLogOnAzureLiesUnderTheSiteHome)
{
    ApplicationProbe probe;
    const std::string agent = probe.files().path("site/wwwroot/agent");
    std::filesystem::create_directories(agent);
    probe.files().write("site/applicationHost.xdt", "<configuration/>");
    const std::vector<std::string> environment {
        "com.tarn.harrowlite.agentProfile=" + agent, "HOME=" + probe.files().path("home"),
        "WEBSITE_INSTANCE_ID=0123456789abcdef", "tmsenv_harrowlite_nativeprofiler_logfile=logs/Native.log"};
    const ApplicationRun run = probe.run("myapp", {}, environment);
    EXPECT_EQ(run["log"], "file") << run.describe();
    const std::string log = probe.files().path("home/LogFiles/SiteExtensions/TMS/tarn/012345/Native_myapp.log");
    ASSERT_TRUE(std::filesystem::exists(log)) << run.describe();
    std::ifstream file(log);
    std::string last;
    for (std::string line; std::getline(file, line);) {
        last = line;
    }
    EXPECT_EQ(last, "Application myapp monitored");
}
