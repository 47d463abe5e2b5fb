// The release tarball unpacked into a fresh folder, its checksums checked, the
// agent dropped into its bin/netcore/ as an operator would: a program runs
// from that installation alone, traced, with its output unchanged, and the
// tools it brings answer with the library's version.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "AgentInstall.h"

namespace {

TEST(Install, AProgramRunsTracedFromAnInstalledAgentHome) {
    const std::string folder = e2e::newWorkDir();
    const std::string steps = folder + "/steps.txt";
    const std::string unpack = "tar -xzf \"$(" + std::string(TARN_SOURCE_DIR) + "/scripts/release.sh " +
                               TARN_BUILD_DIR + ")\" -C " + folder + " && cd " + folder +
                               "/tarn-native-profiler-* && sha256sum --check --quiet SHA256SUMS && "
                               "bin/tarn-attach --version && bin/tarn-directives --version";
    ASSERT_EQ(std::system(("(" + unpack + ") > " + steps + " 2>&1").c_str()), 0) << readFile(steps);
    std::string home;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_directory()) home = entry.path();
    }
    const std::vector<std::string> versions = splitLines(readFile(steps));
    ASSERT_EQ(versions.size(), 2u) << readFile(steps);
    EXPECT_EQ(versions[0].rfind("tarn-attach ", 0), 0u);
    EXPECT_EQ(versions[1].rfind("tarn-directives ", 0), 0u);
    for (const char* file : {"tarn.NativeProfiler.so", "default.properties", "directives.fmd", "AgentProfile.config",
                             "OPERATING.md", "bin/netcore/README.txt"}) {
        EXPECT_TRUE(std::filesystem::exists(home + "/" + file)) << file;
    }
    bool toolPackage = false;
    for (const auto& entry : std::filesystem::directory_iterator(home + "/packages")) {
        toolPackage = toolPackage || entry.path().extension() == ".nupkg";
    }
    EXPECT_TRUE(toolPackage) << "the attach tool as a .NET tool";
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
    // The first line names the build, as the tools do.
    const std::string version = versions[1].substr(std::string("tarn-directives ").size());
    EXPECT_EQ(log.rfind("tarn.NativeProfiler " + version + "\n", 0), 0u) << log;
    EXPECT_NE(readFile(home + "/record.txt").find("initTrace "), std::string::npos);
}

}  // namespace
