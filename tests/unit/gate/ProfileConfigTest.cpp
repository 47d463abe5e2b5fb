#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GateProbeRun.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

namespace {

// An installation with two existing profiles beside the default one.
class ProfileConfig : public ::testing::Test {
protected:
    void SetUp() override
    {
        shop = installation.writeProfile("shop.properties", "agent.name=shop\n");
        billing = installation.writeProfile("billing.properties", "agent.name=billing\n");
    }

    ProbeRun runWithConfig(const std::string& config, const std::string& host, const std::vector<std::string>& arguments)
    {
        installation.writeProfile("AgentProfile.config", config);
        return installation.run(host, arguments, installation.environment());
    }

    // The diagnostic lines written after the environment dump.
    std::vector<std::string> words(const std::string& program) const
    {
        return linesAfterDump(installation.diagnosticLog(program));
    }

    std::string configPath() const { return installation.profiles() + "/AgentProfile.config"; }

    GateInstallation installation;
    std::string shop;
    std::string billing;
};

} // namespace

TEST_F(ProfileConfig, ProcessRuleWithPlainGlobChoosesItsProfile)
{
    const ProbeRun run = runWithConfig("ForProcess app*\n"
                                       "use shop.properties\n"
                                       "ForProcess *\n"
                                       "use billing.properties\n",
                                       "app.exe", {});
    EXPECT_EQ(run["custom.config"], shop) << run.describe();
    EXPECT_EQ(run["agent.profile"], shop);
    EXPECT_EQ(run["clr.0.v4"], "0x00000000");
    EXPECT_THAT(words("app"), ElementsAre("app pool: ", "process name: app.exe", "dll name: ",
                                          "parsed command: ForProcess value: app*",
                                          "parsed command: use value: shop.properties",
                                          "Matched for profile: " + shop, "Opening " + shop));
}

TEST_F(ProfileConfig, DllRuleWithQuotedGlobListAndRegex)
{
    const std::string config = "ForDll \"Billing*,Invoices*\"\n"
                               "use billing.properties\n"
                               "ForProcess /^dot(net|NET)$/\n"
                               "use shop.properties\n";
    const ProbeRun invoices = runWithConfig(config, "dotnet", {"exec", "/srv/Invoices.Api.dll"});
    EXPECT_EQ(invoices["custom.config"], billing) << invoices.describe();
    EXPECT_THAT(words("dotnet"), Contains("dll name: Invoices.Api.dll"));

    // No dll rule fits: the regular expression on the process name does.
    const ProbeRun other = runWithConfig(config, "dotnet", {"Shop.dll"});
    EXPECT_EQ(other["custom.config"], shop) << other.describe();

    // Bare glob list, and a regular expression must match the whole name.
    const ProbeRun bare = runWithConfig("ForDll Other.dll,Shop*\n"
                                        "use billing.properties\n",
                                        "dotnet", {"Shop.dll"});
    EXPECT_EQ(bare["custom.config"], billing) << bare.describe();
    const ProbeRun partial = runWithConfig("ForProcess /dot/\n"
                                           "use shop.properties\n",
                                           "dotnet", {"Shop.dll"});
    EXPECT_EQ(partial["custom.config"], "") << partial.describe();
    EXPECT_EQ(partial["agent.profile"], installation.defaultProfile());
}

TEST_F(ProfileConfig, MissingProfileLetsTheNextRuleTry)
{
    const ProbeRun run = runWithConfig("ForProcess app.exe\n"
                                       "use missing.properties\n"
                                       "ForProcess app.*\n"
                                       "use billing.properties\n",
                                       "app.exe", {});
    EXPECT_EQ(run["custom.config"], billing) << run.describe();
    const std::string missing = installation.profiles() + "/missing.properties";
    EXPECT_THAT(words("app"), ElementsAre("app pool: ", "process name: app.exe", "dll name: ",
                                          "parsed command: ForProcess value: app.exe",
                                          "parsed command: use value: missing.properties",
                                          "Matched for profile: " + missing, "Profile not found: " + missing,
                                          "parsed command: ForProcess value: app.*",
                                          "parsed command: use value: billing.properties",
                                          "Matched for profile: " + billing, "Opening " + billing));

    // Only a missing profile: the default stands.
    const ProbeRun none = runWithConfig("ForProcess app.exe\nuse missing.properties\n", "app.exe", {});
    EXPECT_EQ(none["custom.config"], "") << none.describe();
    EXPECT_EQ(none["agent.profile"], installation.defaultProfile());
}

TEST_F(ProfileConfig, CommandsInAnyCaseAndByLeadingPart)
{
    const ProbeRun upper = runWithConfig("FORPROCESS app.exe\nUSE shop.properties\n", "app.exe", {});
    EXPECT_EQ(upper["custom.config"], shop) << upper.describe();

    const ProbeRun abbreviated = runWithConfig("forproc app.exe\nus shop.properties\n", "app.exe", {});
    EXPECT_EQ(abbreviated["custom.config"], shop) << abbreviated.describe();

    // "For" is first taken for "ForAppPool", whose subject is always empty here.
    const ProbeRun pool = runWithConfig("For *\nuse shop.properties\nForAppPool *\nuse shop.properties\n", "app.exe", {});
    EXPECT_EQ(pool["custom.config"], "") << pool.describe();
}

TEST_F(ProfileConfig, CommentsBlankLinesAndIncompleteLinesCountForLineNumbers)
{
    const ProbeRun run = runWithConfig("# rules for the shop\n"
                                       "\n"
                                       "   \t\n"
                                       "ForProcess\n"
                                       "  \t#ForProcess app.exe\n"
                                       "\tForProcess\tapp.exe\r\n"
                                       "use shop.properties\r\n",
                                       "app.exe", {});
    EXPECT_EQ(run["custom.config"], shop) << run.describe();

    const ProbeRun stopped = runWithConfig("# comment\n"
                                           "\n"
                                           "use shop.properties\n"
                                           "ForProcess app.exe\n"
                                           "use shop.properties\n",
                                           "app.exe", {});
    EXPECT_EQ(stopped["custom.config"], "") << stopped.describe();
    EXPECT_THAT(words("app"), ElementsAre("app pool: ", "process name: app.exe", "dll name: ",
                                          "parsed command: use value: shop.properties",
                                          "Invalid match command  on line: 3", "Opening " + installation.defaultProfile()));
}

TEST_F(ProfileConfig, MalformedLayoutsStopReading)
{
    struct Case {
        std::string config;
        std::vector<std::string> parsed; // the words after the three subject lines
    };
    const std::string shopLine = "parsed command: use value: shop.properties";
    const std::vector<Case> cases {
        {"use shop.properties\nForProcess app.exe\nuse shop.properties\n",
         {shopLine, "Invalid match command  on line: 1"}},
        {"Whatever app.exe\nForProcess app.exe\nuse shop.properties\n",
         {"parsed command: Whatever value: app.exe", "Invalid match command  on line: 1"}},
        {"ForProcess nothing\nForProcess app.exe\nuse shop.properties\n",
         {"parsed command: ForProcess value: nothing", "parsed command: ForProcess value: app.exe",
          "Expected use command on line: 2"}},
        {"ForProcess nothing\nuse shop.properties\nuse shop.properties\nForProcess app.exe\nuse shop.properties\n",
         {"parsed command: ForProcess value: nothing", shopLine, shopLine, "Invalid match command  on line: 3"}},
    };
    for (const Case& c : cases) {
        const ProbeRun run = runWithConfig(c.config, "app.exe", {});
        EXPECT_EQ(run["custom.config"], "") << c.config << run.describe();
        std::vector<std::string> expected {"app pool: ", "process name: app.exe", "dll name: "};
        expected.insert(expected.end(), c.parsed.begin(), c.parsed.end());
        expected.push_back("Opening " + installation.defaultProfile());
        EXPECT_THAT(words("app"), ElementsAreArray(expected)) << c.config;
    }
}

TEST_F(ProfileConfig, OddPatternsMatchNothing)
{
    const ProbeRun run = runWithConfig("ForProcess app.exe \n" // the trailing blank stays in the pattern
                                       "use shop.properties\n"
                                       "ForProcess /\n"
                                       "use shop.properties\n"
                                       "ForProcess \"\n"
                                       "use shop.properties\n"
                                       "ForProcess /(app/\n"
                                       "use shop.properties\n"
                                       "ForDll *\n" // no dll for this host
                                       "use shop.properties\n"
                                       "ForProcess \"\"\n"
                                       "use shop.properties\n"
                                       "ForProcess \",,app.exe\"\n"
                                       "use billing.properties\n",
                                       "app.exe", {});
    EXPECT_EQ(run["custom.config"], billing) << run.describe();
    const std::vector<std::string> log = words("app");
    EXPECT_THAT(log, Contains("parsed command: ForProcess value: app.exe "));
    EXPECT_THAT(log, Contains("Invalid regex: (app"));
    EXPECT_THAT(log, Contains("Matched for profile: " + billing));
    EXPECT_THAT(log, Not(Contains("Matched for profile: " + shop)));
}

TEST_F(ProfileConfig, ProfileFolderAndConfigFileProblems)
{
    // A profile given without any '/' is found in the working directory.
    installation.files().write("plain.properties", "a=b\n");
    const ProbeRun plain = installation.run(
        "app.exe", {}, {"com.tarn.harrowlite.agentProfile=plain.properties", "TMS_DIAGNOSTICS_ENABLED=1", "LD_PRELOAD=" + installation.library()});
    EXPECT_EQ(plain["custom.config"], "") << plain.describe();
    EXPECT_EQ(plain["properties"], "1");
    EXPECT_EQ(plain["agent.profile"], installation.files().path("plain.properties"));
    EXPECT_THAT(words("app"), ElementsAre("invalid agent profile: plain.properties",
                                          "Opening " + installation.files().path("plain.properties")));

    // No AgentProfile.config: the default profile stands.
    const ProbeRun noConfig = installation.run("app.exe", {}, installation.environment());
    EXPECT_EQ(noConfig["custom.config"], "") << noConfig.describe();
    EXPECT_EQ(noConfig["agent.profile"], installation.defaultProfile());
    EXPECT_THAT(words("app"), ElementsAre("failed to open: " + configPath(), "Opening " + installation.defaultProfile()));
}

TEST_F(ProfileConfig, OverlongAndBinaryLinesDoNotStopTheProcess)
{
    const std::string longPattern(3000, 'x');
    const ProbeRun longLine = runWithConfig("ForProcess " + longPattern + "\n"
                                            "use shop.properties\n"
                                            "ForProcess app.exe\n"
                                            "use billing.properties\n",
                                            "app.exe", {});
    EXPECT_EQ(longLine.exitStatus, 0) << longLine.describe();
    EXPECT_EQ(longLine["properties"], "1");
    // The rest of the long line reads as a command without a value and is passed over.
    EXPECT_EQ(longLine["custom.config"], billing);

    const char bytes[] = "ForProcess \x01\xff\0app.exe\nuse shop.properties\nForProcess app.exe\nuse billing.properties\n";
    const ProbeRun binary = runWithConfig(std::string(bytes, sizeof(bytes) - 1), "app.exe", {});
    EXPECT_EQ(binary.exitStatus, 0) << binary.describe();
    EXPECT_EQ(binary["custom.config"], billing);
}
