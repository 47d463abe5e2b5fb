// The release tarball unpacked into a fresh folder, its checksums checked, the
// agent dropped into its bin/netcore/ as an operator would: a program runs
// from that installation alone, traced, with its output unchanged, and the
// tools it brings answer with the library's version.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ReloadProgram.h"

namespace {

TEST(Install, AProgramRunsTracedFromAnInstalledAgentHome) {
    const std::string folder = e2e::newWorkDir();
    const auto removed = e2e::removedUnlessFailed(folder);
    const std::string steps = folder + "/steps.txt";
    // Unpacked and checked as an operator would; the home, then the tools' versions.
    const std::string unpack = "tar -xzf \"$(" + std::string(TARN_SOURCE_DIR) + "/scripts/release.sh " +
                               TARN_BUILD_DIR + ")\" -C " + folder + " && cd " + folder +
                               "/tarn-native-profiler-* && pwd && sha256sum --check --quiet SHA256SUMS && "
                               "ls tarn.NativeProfiler.so default.properties directives.fmd AgentProfile.config "
                               "OPERATING.md bin/netcore/README.txt packages/tarn-attach.*.nupkg > /dev/null && "
                               "bin/tarn-attach --version && bin/tarn-directives --version";
    ASSERT_EQ(std::system(("(" + unpack + ") > " + steps + " 2>&1").c_str()), 0) << readFile(steps);
    const std::vector<std::string> versions = splitLines(readFile(steps));
    ASSERT_EQ(versions.size(), 3u) << readFile(steps);
    const std::string& home = versions[0];
    EXPECT_EQ(versions[1].rfind("tarn-attach ", 0), 0u);
    EXPECT_EQ(versions[2].rfind("tarn-directives ", 0), 0u);
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
    const std::string version = versions[2].substr(std::string("tarn-directives ").size());
    EXPECT_EQ(log.rfind("tarn.NativeProfiler " + version + "\n", 0), 0u) << log;
    EXPECT_NE(readFile(home + "/record.txt").find("initTrace "), std::string::npos);

    // The installed attach tool, with the home's library by default, brings
    // tracing into a program started without it.
    e2e::AgentInstall target;
    e2e::RunningReload program(target, e2e::awaitingAttach(target));
    const std::string pid = e2e::waitForPid(target);
    const e2e::RunResult attached =
        e2e::runPlain(home + "/lib/attach/tarn-attach.dll", {"--pid", pid, "--profile", target.profilePath()});
    EXPECT_EQ(attached.exitCode, 0) << target.explain(attached);
    EXPECT_TRUE(e2e::waitUntil([&] { return e2e::lastCall(target, "alpha") >= 0; })) << target.explain(attached);
}

}  // namespace
