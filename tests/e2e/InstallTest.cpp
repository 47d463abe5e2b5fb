// An agent home made by `cmake --install`, with the agent dropped into its
// bin/netcore/ as an operator would: a program runs from that installation
// alone, traced, with its output unchanged.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "AgentInstall.h"

namespace {

TEST(Install, AProgramRunsTracedFromAnInstalledAgentHome) {
    const std::string home = e2e::newWorkDir() + "/tarn";
    const std::string install = std::string(TARN_CMAKE) + " --install " + TARN_BUILD_DIR + " --prefix " + home +
                                " > " + home + ".install.txt 2>&1";
    ASSERT_EQ(std::system(install.c_str()), 0) << readFile(home + ".install.txt");
    for (const char* file : {"tarn.NativeProfiler.so", "default.properties", "directives.fmd", "AgentProfile.config",
                             "OPERATING.md", "bin/netcore/README.txt"}) {
        EXPECT_TRUE(std::filesystem::exists(home + "/" + file)) << file;
    }
    std::filesystem::copy(std::string(TARN_E2E_DIR) + "/agent", home + "/bin/netcore",
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
    std::ofstream(home + "/directives.fmd", std::ios::app) << "TraceAllMethodsOfClass: Traced.Subject\n";

    const e2e::RunResult reference = e2e::runPlain("Traced", {"7"});
    e2e::RunOptions installed;
    installed.args = {"7"};
    installed.env = {{"CORECLR_PROFILER_PATH", home + "/tarn.NativeProfiler.so"},
                     {"TMSENV_AGENT_PROFILE", home + "/default.properties"},
                     {"TARN_AGENT_RECORD", home + "/record.txt"}};
    const e2e::RunResult run = e2e::runProgram("Traced", installed);
    ASSERT_EQ(run.exitCode, reference.exitCode) << run.describe();
    EXPECT_EQ(run.out, reference.out) << run.describe();

    const std::string log = readFilesStartingWith(home, "native_");
    EXPECT_NE(log.find("Instrumented [Traced]Traced.Subject::"), std::string::npos) << log;
    EXPECT_NE(log.find("Looking for agent at " + home + "/bin/netcore/tarn.Agent.dll"), std::string::npos) << log;
    EXPECT_NE(log.find("Profiler account:"), std::string::npos) << log;
    EXPECT_NE(readFile(home + "/record.txt").find("initTrace "), std::string::npos);
}

}  // namespace
