// The test agent, called directly by a probe program: it answers initTrace as
// configured and records every call as one whole line, in the invariant
// culture, from many threads at once.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ProgramRun.h"

namespace {

using e2e::RunOptions;
using e2e::runProgram;

const std::string kAgent = std::string(TARN_E2E_DIR) + "/agent/tarn.Agent.dll";

std::vector<std::string> lines(const std::string& text, const std::string& prefix = "") {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.compare(0, prefix.size(), prefix) == 0) {
            result.push_back(line.substr(prefix.size()));
        }
    }
    return result;
}

RunOptions probeOptions(std::map<std::string, std::string> env) {
    RunOptions options;
    options.profiled = false;
    options.args = {kAgent};
    options.env = std::move(env);
    return options;
}

TEST(TestAgent, RecordsEveryTraceCallAsOneLine) {
    auto run = runProgram("AgentProbe", probeOptions({{"TARN_AGENT_RECORD", "agent-record.txt"}}));
    ASSERT_EQ(run.exitCode, 0) << run.describe();

    // The program's own view: all ten contract methods exist with their
    // return types, and initTrace asks for parameters.
    std::vector<std::string> found = lines(run.out, "found ");
    EXPECT_EQ(found.size(), 10u) << run.describe();
    EXPECT_NE(run.out.find("found pushTrace(Int32,Object) -> Void\n"), std::string::npos) << run.describe();
    EXPECT_NE(run.out.find("found initTrace(Int32) -> Int32\n"), std::string::npos) << run.describe();
    EXPECT_NE(run.out.find("initTrace=2\ncorInitTrace=2\n"), std::string::npos) << run.describe();

    // The agent's view, read from its file.
    std::vector<std::string> record = lines(e2e::readFile(run.workDir + "/agent-record.txt"));
    ASSERT_EQ(record.size(), 15u + 4 * 250) << run.describe();
    const std::vector<std::string> expected = {
        "initTrace 123",
        "corInitTrace 7",
        "loadTrace",
        "loadTrace this=Program+Named:probe",
        "pushTrace 0 System.Int32:42",
        "pushTrace 1 System.Double:2.5",
        "pushTrace 2 System.String:two\\nlines",
        "pushTrace 3 null",
        "pushTrace 4 System.Int32[3]",
        "pushTrace 5 Program+Throwing:<System.InvalidOperationException in ToString>",
        "startTrace",
        "finishValueTypeTrace result=System.Int64:5",
        "finishTrace",
        "finishTrace result=System.String:done",
        "catchTrace System.InvalidOperationException:boom",
    };
    EXPECT_EQ(std::vector<std::string>(record.begin(), record.begin() + 15), expected) << run.describe();
    // The probe runs under a culture with a decimal comma; the record does not.
    EXPECT_NE(run.out.find("culture sample=2,5\n"), std::string::npos) << run.describe();

    // Four threads, 250 calls each: every line whole, every value once, in
    // order within its thread.
    std::map<int, int> next;
    for (size_t i = 15; i < record.size(); ++i) {
        int thread = 0;
        int value = 0;
        char tail = 0;
        ASSERT_EQ(sscanf(record[i].c_str(), "pushTrace %d System.Int32:%d%c", &thread, &value, &tail), 2)
            << record[i];
        EXPECT_EQ(value, next[thread]++) << record[i];
    }
    EXPECT_EQ(next, (std::map<int, int>{{100, 250}, {101, 250}, {102, 250}, {103, 250}}));
    // The probe prints what the agent wrote while it was still running.
    EXPECT_EQ(lines(run.out, "record: "), record);
}

TEST(TestAgent, TraceValueComesFromTheEnvironmentAndNoRecordFileMeansNoRecord) {
    auto run = runProgram("AgentProbe", probeOptions({{"TARN_AGENT_RECORD", ""}, {"TARN_AGENT_TRACE_VALUE", "0"}}));
    ASSERT_EQ(run.exitCode, 0) << run.describe();
    EXPECT_NE(run.out.find("initTrace=0\ncorInitTrace=0\n"), std::string::npos) << run.describe();
    EXPECT_TRUE(lines(run.out, "record: ").empty()) << run.describe();
    EXPECT_NE(run.out.find("done\n"), std::string::npos) << run.describe();

    // A value that is no number leaves the default.
    auto other = runProgram("AgentProbe", probeOptions({{"TARN_AGENT_RECORD", "record.txt"},
                                                        {"TARN_AGENT_TRACE_VALUE", "seven"}}));
    ASSERT_EQ(other.exitCode, 0) << other.describe();
    EXPECT_NE(other.out.find("initTrace=2\n"), std::string::npos) << other.describe();
    EXPECT_EQ(lines(e2e::readFile(other.workDir + "/record.txt")).front(), "initTrace 123") << other.describe();
}

}  // namespace
