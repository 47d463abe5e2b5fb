#include "shim/AgentLocation.h"

#include <gtest/gtest.h>

#include "support/RealAssemblies.h"
#include "support/ScopedEnvironment.h"

namespace {

std::string location(bool dotnetCore) {
    return RealAssemblies::narrow(AgentLocation::find(dotnetCore).c_str());
}

TEST(AgentLocation, ProfileFolderGivesTheBinFolderWithNetcoreOnlyOnCore) {
    ScopedEnvironment environment;
    environment.set("com.tarn.harrowlite.agentLocation", nullptr);
    environment.set("com.tarn.harrowlite.agentProfile", "/opt/tarn/conf/AgentProfile.config");
    environment.set("com.tarn.harrowlite.AgentProfile", "/ignored/AgentProfile.config");
    EXPECT_EQ(location(true), "/opt/tarn/conf/bin/netcore/tarn.Agent.dll");
    EXPECT_EQ(location(false), "/opt/tarn/conf/bin/tarn.Agent.dll");

    // The capitalised form is the fallback.
    environment.set("com.tarn.harrowlite.agentProfile", nullptr);
    EXPECT_EQ(location(true), "/ignored/bin/netcore/tarn.Agent.dll");

    // A bare file name is taken whole as the folder; a file at the root
    // leaves an empty folder.
    environment.set("com.tarn.harrowlite.AgentProfile", "AgentProfile.config");
    EXPECT_EQ(location(false), "AgentProfile.config/bin/tarn.Agent.dll");
    environment.set("com.tarn.harrowlite.AgentProfile", "/AgentProfile.config");
    EXPECT_EQ(location(true), "/bin/netcore/tarn.Agent.dll");
}

TEST(AgentLocation, LocationVariableWinsAsItStandsAndNothingSetGivesNothing) {
    ScopedEnvironment environment;
    environment.set("com.tarn.harrowlite.agentLocation", "relative/My.Agent.dll");
    environment.set("com.tarn.harrowlite.agentProfile", "/opt/tarn/AgentProfile.config");
    EXPECT_EQ(location(true), "relative/My.Agent.dll");
    EXPECT_EQ(location(false), "relative/My.Agent.dll");

    environment.set("com.tarn.harrowlite.agentLocation", nullptr);
    environment.set("com.tarn.harrowlite.agentProfile", nullptr);
    environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
    EXPECT_TRUE(AgentLocation::find(true).empty());
}

}  // namespace
