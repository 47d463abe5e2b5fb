#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GateInstallation.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

namespace {

constexpr const char* kPass = "0x00000000";
constexpr const char* kCancel = "0x80131375";

struct CommandLine {
    std::string host;
    std::vector<std::string> arguments;
    std::string internal;
    std::string appName;
    std::string dllPath;
    std::string isDotnet;
};

} // namespace

TEST(ProfilingManager, AnalysesTheDotnetCommandLine) {
    GateInstallation installation;
    const std::vector<CommandLine> cases{
        {"dotnet", {"build"}, "1", "dotnet.cmd", "-", "1"},
        {"dotnet", {}, "1", "dotnet.cmd", "-", "1"},
        {"dotnet", {"exec", "--runtimeconfig", "x.json", "bin/app.dll"}, "0", "app", "bin/app.dll", "1"},
        {"dotnet", {"--fx-version", "6.0", "app.dll"}, "0", "app", "app.dll", "1"},
        {"dotnet", {"/opt/MSBuild.dll"}, "1", "MSBuild", "/opt/MSBuild.dll", "1"},
        {"dotnet", {"/sdk/Roslyn/bincore/csc.dll", "-noconfig"}, "1", "csc", "/sdk/Roslyn/bincore/csc.dll", "1"},
        {"dotnet", {"myapp.dll", "--port", "80"}, "0", "myapp", "myapp.dll", "1"},
        {"dotnet.exe", {"exec", "Shop.Web.dll"}, "0", "Shop.Web", "Shop.Web.dll", "1"},
        // The command line is read once, up to a line feed or 4095 bytes: the dll behind is never seen.
        {"dotnet", {"--roll-forward\nMajor", "app.dll"}, "1", "dotnet.cmd", "-", "1"},
        {"dotnet", {"--additionalprobingpath", std::string(5000, 'p'), "app.dll"}, "1", "dotnet.cmd", "-", "1"},
        {"myhost", {"myapp.dll"}, "0", "-", "-", "0"},
        {"app.exe", {}, "0", "-", "-", "0"},
    };
    for (const CommandLine& line : cases) {
        const ProbeProcess run = installation.run(line.host, line.arguments, installation.environment());
        const std::string label = line.host + " " + ::testing::PrintToString(line.arguments) + "\n" + run.describe();
        ASSERT_EQ(run.exitStatus, 0) << label;
        EXPECT_EQ(run["internal"], line.internal) << label;
        EXPECT_EQ(run["app.name"], line.appName) << label;
        EXPECT_EQ(run["dll.path"], line.dllPath) << label;
        EXPECT_EQ(run["is.dotnet"], line.isDotnet) << label;
        // Nothing else forbids these: the first runtime to ask passes.
        EXPECT_EQ(run["clr.0.v4"], kPass) << label;
        // One manager, and one controller made from its properties.
        EXPECT_EQ(run["singletons"], "1,1,1") << label;
    }
}

TEST(ProfilingManager, PickFirstLetsExactlyOneRuntimeThrough) {
    GateInstallation installation;
    const ProbeProcess run = installation.run("dotnet", {"app.dll"}, installation.environment());
    EXPECT_EQ(run["pick"], "first") << run.describe();
    EXPECT_EQ(run["clr.0.v4"], kPass);
    EXPECT_EQ(run["clr.1.v4"], kCancel);

    const ProbeProcess withVersionOne =
        installation.run("dotnet", {"app.dll"}, installation.environment({"GATE_PROBE_RUNTIMES=1,4,2"}));
    EXPECT_EQ(withVersionOne["clr.0.v1"], kCancel) << withVersionOne.describe(); // version 1 never passes
    EXPECT_EQ(withVersionOne["clr.1.v4"], kPass);
    EXPECT_EQ(withVersionOne["clr.2.v2"], kCancel);

    const ProbeProcess concurrent =
        installation.run("dotnet", {"app.dll"}, installation.environment({"GATE_PROBE_CONCURRENT=1"}));
    const std::string results = concurrent["clr.concurrent"];
    EXPECT_TRUE(results == std::string(kPass) + "," + kCancel || results == std::string(kCancel) + "," + kPass)
        << concurrent.describe();
}

TEST(ProfilingManager, MultipleRuntimesKeyCountsTokensNotWords) {
    GateInstallation installation;
    // The two-argument tokenizer yields empty tokens for any word, and an empty
    // token names both versions; only delimiters alone keep pick first.
    const std::pair<std::string, std::string> cases[] = {
        {"V4", "many"},
        {"v4.0.30319, v2.0.50727", "many"},
        {"v2.0.50727", "many"},
        {"anything", "many"},
        {",", "first"},
        {", ,\t,", "first"},
        // An empty value can only come from the environment: the file reader stores no empty value.
        {"", "many"},
    };
    for (const auto& [value, pick] : cases) {
        const std::string key = "com.tarn.harrowlite.nativeprofiler.monitor.inprocsxs.multiple.clrs";
        installation.write("default.properties", value.empty() ? "agent.name=default\n" : key + "=" + value + "\n");
        std::vector<std::string> environment = installation.environment({"GATE_PROBE_RUNTIMES=4,2,4"});
        if (value.empty())
            environment.push_back("TMSENV_COM_TARN_HARROWLITE_NATIVEPROFILER_MONITOR_INPROCSXS_MULTIPLE_CLRS=");
        const ProbeProcess run = installation.run("dotnet", {"app.dll"}, environment);
        const std::string label = "value '" + value + "'\n" + run.describe();
        EXPECT_EQ(run["pick"], pick) << label;
        // The first runtime always passes. Pick many: both versions' bits are
        // in the mask, so the other version passes, and a version that asks
        // again passes too.
        const char* others = pick == "many" ? kPass : kCancel;
        EXPECT_EQ(run["clr.0.v4"], kPass) << label;
        EXPECT_EQ(run["clr.1.v2"], others) << label;
        EXPECT_EQ(run["clr.2.v4"], others) << label;
    }
}

TEST(ProfilingManager, PropertiesCanRefuseTheProcess) {
    GateInstallation installation;
    installation.write("default.properties", "TMS_ENABLED=false\n");
    const ProbeProcess disabled = installation.run("dotnet", {"app.dll"}, installation.environment());
    EXPECT_EQ(disabled["properties"], "1") << disabled.describe();
    EXPECT_EQ(disabled["clr.0.v4"], kCancel);

    installation.write("default.properties", "harrowlite.agent.dotnet.monitorApplications.exclude=Other, MyApp\n");
    const ProbeProcess excluded = installation.run("dotnet", {"exec", "/srv/myapp.dll"}, installation.environment());
    EXPECT_EQ(excluded["clr.0.v4"], kCancel) << excluded.describe();
    EXPECT_THAT(installation.diagnosticLog("dotnet"), Contains("Ignoring dotnet application myapp"));

    const ProbeProcess notExcluded = installation.run("dotnet", {"exec", "/srv/yourapp.dll"}, installation.environment());
    EXPECT_EQ(notExcluded["clr.0.v4"], kPass) << notExcluded.describe();
    EXPECT_THAT(installation.diagnosticLog("dotnet"), Not(Contains("Ignoring dotnet application yourapp")));

    // Another host has no application name: the exclude list is not looked at.
    installation.write("default.properties",
                       "harrowlite.agent.dotnet.monitorApplications.exclude=myhost,myapp,dotnet\n");
    const ProbeProcess otherHost = installation.run("myhost", {"myapp.dll"}, installation.environment());
    EXPECT_EQ(otherHost["clr.0.v4"], kPass) << otherHost.describe();
}

TEST(ProfilingManager, WithoutAReadableProfileEveryRuntimeIsRefused) {
    GateInstallation installation;
    const ProbeProcess unset = installation.run("app.exe", {}, {"TMS_DIAGNOSTICS_ENABLED=1", "LD_PRELOAD=" + installation.library()});
    EXPECT_EQ(unset["properties"], "0") << unset.describe();
    EXPECT_EQ(unset["agent.profile"], "-");
    EXPECT_EQ(unset["clr.0.v4"], kCancel);
    EXPECT_THAT(installation.diagnosticLog("app"), ElementsAre("Failed to get com.tarn.harrowlite.agentProfile."));

    const std::string missing = installation.profiles() + "/missing.properties";
    const ProbeProcess absent = installation.run(
        "app.exe", {}, {"com.tarn.harrowlite.agentProfile=" + missing, "TMS_DIAGNOSTICS_ENABLED=1", "LD_PRELOAD=" + installation.library()});
    EXPECT_EQ(absent["properties"], "0") << absent.describe();
    EXPECT_EQ(absent["clr.0.v4"], kCancel);
    EXPECT_THAT(installation.diagnosticLog("app"),
                ElementsAre("failed to open: " + installation.profiles() + "/AgentProfile.config", "Opening " + missing,
                            "Failed to open " + missing + "."));
}

TEST(ProfilingManager, AgentProfileComesFromTheFirstSourceAndIsMadeCanonical) {
    GateInstallation installation;
    const std::string canonical = installation.profilePath();
    const std::string relative = "agent/profiles/../profiles/default.properties";
    const std::string other = installation.write("other.properties", "a=b\n");
    const std::vector<std::vector<std::string>> environments{
        {"TMSENV_AGENT_PROFILE=" + relative},
        {"com.tarn.harrowlite.AgentProfile=" + relative},
        {"com.tarn.harrowlite.agentProfile=" + canonical, "TMSENV_AGENT_PROFILE=" + other},
        {"TMSENV_AGENT_PROFILE=" + canonical, "com.tarn.harrowlite.AgentProfile=" + other},
    };
    for (const std::vector<std::string>& environment : environments) {
        const ProbeProcess run = installation.run("dotnet", {"app.dll"}, environment);
        EXPECT_EQ(run["agent.profile"], canonical) << ::testing::PrintToString(environment) << run.describe();
        // Without an AgentProfile.config no custom profile is chosen; a runtime
        // passes only once the profile is read.
        EXPECT_EQ(run["custom.config"], "");
        EXPECT_EQ(run["clr.0.v4"], kPass);
    }
}

