#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "AgentInstallation.h"
#include "support/ProfilerInfoDouble.h"
#include "support/RealAssemblies.h"

namespace {

class ProfilerControllerTest : public ::testing::Test {
protected:
    AutoCOMPointer<ProfilerInfoDouble> info {ProfilerInfoDouble::newInstance()};
    AgentInstallation installation;
};

} // namespace

TEST_F(ProfilerControllerTest, RelativeProfileIsMadeAbsoluteFromTheWorkingDirectory) {
    const std::string cwd = std::filesystem::current_path().string();
    setenv("com.tarn.harrowlite.agentProfile", "profiles/agent.properties", 1);
    std::unique_ptr<ProfilerController> controller = installation.controller(info);
    ASSERT_NE(controller, nullptr);
    EXPECT_EQ(RealAssemblies::narrow(controller->getAgentProfilePath().c_str()), cwd + "/profiles/agent.properties");
    EXPECT_EQ(RealAssemblies::narrow(controller->getAgentDirectory().c_str()), cwd + "/profiles");
}

TEST_F(ProfilerControllerTest, NativeLogIsAFileOfThisProcessOrAStandardStream) {
    std::unique_ptr<ProfilerController> controller = installation.controller(info);
    ASSERT_NE(controller, nullptr);
    FILE* log = controller->getNativeLog();
    ASSERT_NE(log, stdout);
    EXPECT_EQ(controller->getNativeLog(), log);
    fprintf(log, "first line\n");
    // The executable's name makes the log this process's own, beside the profile.
    EXPECT_EQ(installation.log(), std::vector<std::string> {"first line"}) << installation.logPath();

    // An absolute path keeps its folder, which is made; a name without a dot is taken whole.
    const std::string folder = installation.root() + "/elsewhere/deeper";
    installation.set("harrowlite.nativeprofiler.logfile", folder + "/trace");
    std::unique_ptr<ProfilerController> absolute = installation.controller(info);
    ASSERT_NE(absolute, nullptr);
    ASSERT_NE(absolute->getNativeLog(), stdout);
    EXPECT_TRUE(std::filesystem::exists(folder + "/trace_" + AgentInstallation::executableName() + ".log"));

    installation.unset("harrowlite.nativeprofiler.logfile");
    std::unique_ptr<ProfilerController> unset = installation.controller(info);
    ASSERT_NE(unset, nullptr);
    EXPECT_EQ(unset->getNativeLog(), stdout);
}
