// Stack sampling on a running program: the test agent opens sessions through
// the exports on threads that are busy in known chains of methods, and reads
// back what the sampler merged. The program's output stays as it is without
// the profiler, and the program ends by itself.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <tuple>

#include "AgentInstall.h"
#include "hub/MethodTraceRecords.h"

namespace {

using e2e::AgentInstall;

struct Sample {
    std::string function, parent, token, module, className;
    int depth = 0;
    int count = 0;
};

// The samples of the session whose description follows the line beginning
// with head, up to the next empty or unrelated line.
std::vector<Sample> samplesAfter(const std::vector<std::string>& lines, const std::string& head, std::string* summary) {
    std::vector<Sample> samples;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].rfind(head, 0) != 0) continue;
        *summary = lines[i];
        for (size_t j = i + 1; j < lines.size(); ++j) {
            std::istringstream fields(lines[j]);
            Sample sample;
            if (!(fields >> sample.function >> sample.parent >> sample.depth >> sample.count >> sample.token >>
                  sample.module)) {
                break;
            }
            std::getline(fields >> std::ws, sample.className);
            samples.push_back(sample);
        }
        break;
    }
    return samples;
}

// Token of each method of the program, from the program's own note.
std::map<std::string, std::string> tokensOf(const std::vector<std::string>& lines) {
    std::map<std::string, std::string> tokens;
    for (const auto& line : lines) {
        if (line.rfind("tokens ", 0) != 0) continue;
        std::istringstream fields(line.substr(7));
        std::string name, token;
        while (fields >> name >> token) tokens[name] = token;
    }
    return tokens;
}

const Sample* findToken(const std::vector<Sample>& samples, const std::string& token, const std::string& parent = "") {
    for (const auto& sample : samples) {
        if (sample.token == token && (parent.empty() || sample.parent == parent)) return &sample;
    }
    return nullptr;
}

class Sampling : public ::testing::Test {
protected:
    void SetUp() override {
        install.directives("TraceAllMethodsOfClass: Sampled.Traced\n");
        install.set("harrowlite.agent.deep.instrumentation.useClassCache", "true");
        install.set("harrowlite.agent.deep.instrumentation.logLevel", "DEBUG");
    }

    // Runs the program in mode with and without the profiler: same output, a
    // normal end. The lines of samples.txt of the profiled run.
    std::vector<std::string> run(const std::vector<std::string>& args) {
        const e2e::Comparison compared = install.compare("Sampled", install.options(args));
        EXPECT_EQ(compared.reference.exitCode, 0) << compared.reference.describe();
        EXPECT_TRUE(compared.unchanged());
        return splitLines(readFile(install.workDir() + "/samples.txt"));
    }

    std::string why(const std::vector<std::string>& lines) {
        return "--- samples.txt ---\n" + joinLines(lines) + "\n--- native log ---\n" + install.logText();
    }

    // Each of these lines stands in samples.txt.
    void expectLines(const std::vector<std::string>& lines, std::initializer_list<const char*> expected) {
        for (const char* line : expected) {
            EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line << "\n" << why(lines);
        }
    }

    AgentInstall install;
};

TEST_F(Sampling, SessionsFindTheChainsTheirThreadsAreIn) {
    const auto lines = run({"chain"});
    auto tokens = tokensOf(lines);
    ASSERT_FALSE(tokens.empty()) << why(lines);

    // A thread in A -> B -> C: C under B under A, each named by its class.
    std::string summary;
    auto chain = samplesAfter(lines, "chain ", &summary);
    const Sample* a = findToken(chain, tokens["A"]);
    ASSERT_NE(a, nullptr) << why(lines);
    const Sample* b = findToken(chain, tokens["B"], a->function);
    ASSERT_NE(b, nullptr) << why(lines);
    const Sample* c = findToken(chain, tokens["C"], b->function);
    ASSERT_NE(c, nullptr) << why(lines);
    EXPECT_EQ(b->depth, a->depth + 1);
    EXPECT_EQ(c->depth, b->depth + 1);
    EXPECT_EQ(a->className, "Sampled.Chain, Sampled");
    EXPECT_EQ(a->module, "Sampled.dll");
    // At 5 ms for 600 ms the thread is nearly always in B or C.
    EXPECT_GT(b->count, 20) << why(lines);
    EXPECT_GE(a->count, b->count);
    expectLines(lines, {"stop 0", "close 0 -1"});

    // From inside the traced Watch: its own thread, from C out to Watch, five samples.
    auto watch = samplesAfter(lines, "watch ", &summary);
    EXPECT_NE(summary.find(" samples 5 failed 0"), std::string::npos) << why(lines);
    const Sample* root = findToken(watch, tokens["Watch"]);
    ASSERT_NE(root, nullptr) << why(lines);
    EXPECT_EQ(root->depth, 1);
    EXPECT_EQ(root->parent, "0");
    EXPECT_EQ(root->className, "Sampled.Traced, Sampled");
    for (const auto& sample : watch) EXPECT_TRUE(sample.depth > 1 || sample.token == tokens["Watch"]) << why(lines);

    // A thread blocked in native code: its managed frames down to the sleep.
    auto asleep = samplesAfter(lines, "asleep ", &summary);
    const Sample* sleep = findToken(asleep, tokens["Sleep"]);
    ASSERT_NE(sleep, nullptr) << why(lines);
    EXPECT_GT(sleep->count, 10) << why(lines);

    // A thread that ended: stopped by its end, and readable.
    auto ended = samplesAfter(lines, "ended ", &summary);
    EXPECT_EQ(summary.find("samples -1"), std::string::npos) << why(lines);
    EXPECT_NE(findToken(ended, tokens["B"]), nullptr) << why(lines);

    // A kernel thread number with no managed thread: the session stops, and
    // the number is refused from then on.
    expectLines(lines, {"unknown thread again -42"});
    EXPECT_NE(install.logText().find("Failed to resolve the managed ThreadID for 1 during snapshot."), std::string::npos);
}

// The table holds 64 sessions; a closed entry is reused only once it is full.
// A sample limit ends each session by itself.
TEST_F(Sampling, SixtyFourSessionsFillTheTable) {
    const auto lines = run({"table"});
    expectLines(lines, {"started 64 last 63", "65th -1", "close 10 0", "reused 10", "limited 3"});
}

// Main returns while eight threads 64 frames deep are sampled every
// millisecond: the runtime's shutdown meets passes in flight, and the program
// still ends normally, each time.
TEST_F(Sampling, ShutdownDuringSamplingLeavesAProgramThatEnds) {
    for (int round = 0; round < 3; ++round) {
        run({"exit", "8"});
        EXPECT_NE(install.logText().find("Start profiling"), std::string::npos) << install.logText();
    }
}

// The registry's exports, reached by their decorated names from the agent:
// each answers 0, and with no hooks installed on this runtime no method is
// recorded. The agent's record of a method is laid out as ours.
TEST_F(Sampling, RegistryExportsAnswerTheAgentByTheirDecoratedNames) {
    const auto lines = run({"registry"});
    expectLines(lines,
                {"register class 0", "register method 0", "hooks on 0", "records 0", "unregister 0", "hooks off 0"});
    std::string hex;
    for (const auto& line : lines) {
        if (line.rfind("method data ", 0) == 0) hex = line.substr(12);
    }
    ASSERT_EQ(hex.size(), 2 * sizeof(MethodData)) << why(lines);
    MethodData data;
    auto* bytes = reinterpret_cast<unsigned char*>(&data);
    for (size_t i = 0; i < sizeof(data); ++i) bytes[i] = std::stoi(hex.substr(2 * i, 2), nullptr, 16);
    // The fields in their order, numbered 1 to 7 by the agent.
    EXPECT_EQ(
        std::make_tuple(data.state, data.depth, data.index, data.active, data.startTime, data.endTime, data.methodId),
        std::make_tuple(1u, 2u, 3u, 4u, 5, 6, 7u));
}

}  // namespace
