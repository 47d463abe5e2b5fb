#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GateInstallation.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

// An installation with two existing profiles beside the default one.
class ProfileConfig : public ::testing::Test {
protected:
    ProbeProcess runWithConfig(const std::string& config, const std::string& host, const std::vector<std::string>& arguments) {
        installation.write("AgentProfile.config", config);
        return installation.run(host, arguments, installation.environment());
    }

    GateInstallation installation;
    const std::string shop = installation.write("shop.properties", "agent.name=shop\n");
    const std::string billing = installation.write("billing.properties", "agent.name=billing\n");
};

} // namespace

TEST_F(ProfileConfig, RulesChooseTheFirstProfileThatFits) {
    struct Case {
        std::string config;
        std::string host;
        std::vector<std::string> arguments;
        std::string chosen; // "" for none: the default profile stands
        std::string logged = "";
    };
    const char binary[] = "ForProcess \x01\xff\0app.exe\nuse shop.properties\nForProcess app.exe\nuse billing.properties\n";
    const std::string dllThenRegex = "ForDll \"Billing*,Invoices*\"\nuse billing.properties\n"
                                     "ForProcess /^dot(net|NET)$/\nuse shop.properties\n";
    const std::vector<Case> cases {
        {"ForProcess app*\nuse shop.properties\nForProcess *\nuse billing.properties\n", "app.exe", {}, shop},
        // A quoted glob list on the dll; where no dll rule fits, the regular expression on the process.
        {dllThenRegex, "dotnet", {"exec", "/srv/Invoices.Api.dll"}, billing, "dll name: Invoices.Api.dll"},
        {dllThenRegex, "dotnet", {"Shop.dll"}, shop},
        // A bare glob list; a regular expression must match the whole name.
        {"ForDll Other.dll,Shop*\nuse billing.properties\n", "dotnet", {"Shop.dll"}, billing},
        {"ForProcess /dot/\nuse shop.properties\n", "dotnet", {"Shop.dll"}, ""},
        // Only a missing profile.
        {"ForProcess app.exe\nuse missing.properties\n", "app.exe", {}, ""},
        // Commands in any case and by their leading part; "For" is first taken
        // for "ForAppPool", whose subject is always empty here.
        {"FORPROCESS app.exe\nUSE shop.properties\n", "app.exe", {}, shop},
        {"forproc app.exe\nus shop.properties\n", "app.exe", {}, shop},
        {"For *\nuse shop.properties\nForAppPool *\nuse shop.properties\n", "app.exe", {}, ""},
        // Comments, blank lines and a command without a value are passed over.
        {"# rules for the shop\n\n   \t\nForProcess\n  \t#ForProcess app.exe\n\tForProcess\tapp.exe\r\n"
         "use shop.properties\r\n",
         "app.exe", {}, shop},
        // The rest of an overlong line reads as a command without a value.
        {"ForProcess " + std::string(3000, 'x') + "\nuse shop.properties\nForProcess app.exe\nuse billing.properties\n",
         "app.exe", {}, billing},
        {std::string(binary, sizeof(binary) - 1), "app.exe", {}, billing},
    };
    for (const Case& c : cases) {
        const ProbeProcess run = runWithConfig(c.config, c.host, c.arguments);
        SCOPED_TRACE(c.config + run.describe());
        ASSERT_EQ(run.exitStatus, 0);
        EXPECT_EQ(run["properties"], "1");
        EXPECT_EQ(run["custom.config"], c.chosen);
        EXPECT_EQ(run["agent.profile"], c.chosen.empty() ? installation.profilePath() : c.chosen);
        if (!c.logged.empty()) {
            EXPECT_THAT(installation.diagnosticLog(c.host.substr(0, c.host.find('.'))), Contains(c.logged));
        }
    }
}

TEST_F(ProfileConfig, RuleWalksAreLoggedAndMalformedLayoutsStopReading) {
    struct Case {
        std::string config;
        std::vector<std::string> parsed;  // the words after the three subject lines
        std::string chosen = "";          // "" for none: the default profile is opened
    };
    const std::string shopLine = "parsed command: use value: shop.properties";
    const std::string missing = installation.profiles() + "/missing.properties";
    const std::vector<Case> cases{
        // A missing profile lets the next rule try.
        {"ForProcess app.exe\nuse missing.properties\nForProcess app.*\nuse billing.properties\n",
         {"parsed command: ForProcess value: app.exe", "parsed command: use value: missing.properties",
          "Matched for profile: " + missing, "Profile not found: " + missing, "parsed command: ForProcess value: app.*",
          "parsed command: use value: billing.properties", "Matched for profile: " + billing},
         billing},
        {"use shop.properties\nForProcess app.exe\nuse shop.properties\n",
         {shopLine, "Invalid match command  on line: 1"}},
        {"Whatever app.exe\nForProcess app.exe\nuse shop.properties\n",
         {"parsed command: Whatever value: app.exe", "Invalid match command  on line: 1"}},
        {"ForProcess nothing\nForProcess app.exe\nuse shop.properties\n",
         {"parsed command: ForProcess value: nothing", "parsed command: ForProcess value: app.exe",
          "Expected use command on line: 2"}},
        {"ForProcess nothing\nuse shop.properties\nuse shop.properties\nForProcess app.exe\nuse shop.properties\n",
         {"parsed command: ForProcess value: nothing", shopLine, shopLine, "Invalid match command  on line: 3"}},
        // Comments and blank lines count for line numbers.
        {"# comment\n\nuse shop.properties\nForProcess app.exe\nuse shop.properties\n",
         {shopLine, "Invalid match command  on line: 3"}},
    };
    for (const Case& c : cases) {
        const ProbeProcess run = runWithConfig(c.config, "app.exe", {});
        EXPECT_EQ(run["custom.config"], c.chosen) << c.config << run.describe();
        std::vector<std::string> expected {"app pool: ", "process name: app.exe", "dll name: "};
        expected.insert(expected.end(), c.parsed.begin(), c.parsed.end());
        expected.push_back("Opening " + (c.chosen.empty() ? installation.profilePath() : c.chosen));
        EXPECT_THAT(installation.diagnosticLog("app"), ElementsAreArray(expected)) << c.config;
    }
}

TEST_F(ProfileConfig, AProfileWithoutASlashIsFoundInTheWorkingDirectory) {
    installation.files().write("plain.properties", "a=b\n");
    const ProbeProcess plain = installation.run(
        "app.exe", {}, {"com.tarn.harrowlite.agentProfile=plain.properties", "TMS_DIAGNOSTICS_ENABLED=1", "LD_PRELOAD=" + installation.library()});
    EXPECT_EQ(plain["custom.config"], "") << plain.describe();
    EXPECT_EQ(plain["properties"], "1");
    EXPECT_EQ(plain["agent.profile"], installation.files().path("plain.properties"));
    EXPECT_THAT(installation.diagnosticLog("app"),
                ElementsAre("invalid agent profile: plain.properties",
                            "Opening " + installation.files().path("plain.properties")));
}
