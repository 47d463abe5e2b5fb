// Stack sampling on a running program: the test agent opens sessions through
// the exports on threads that are busy in known chains of methods, and reads
// back what the sampler merged. The program's output stays as it is without
// the profiler, and the program ends by itself.
#include <algorithm>
#include <sstream>
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

// A session in samples.txt: the line that describes it, beginning with a
// head, and the samples on the lines after it.
struct Session {
    std::string summary;
    std::vector<Sample> samples;

    Session(const std::vector<std::string>& lines, const std::string& head) {
        auto line = std::find_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.starts_with(head); });
        if (line == lines.end()) return;
        for (summary = *line++; line != lines.end(); ++line) {
            std::istringstream fields(*line);
            Sample sample;
            if (!(fields >> sample.function >> sample.parent >> sample.depth >> sample.count >> sample.token >>
                  sample.module)) {
                break;
            }
            std::getline(fields >> std::ws, sample.className);
            samples.push_back(sample);
        }
    }

    // The sample of the method of this token (under the parent function, if given).
    const Sample* find(const std::string& token, const std::string& parent = "") const {
        for (const auto& sample : samples) {
            if (sample.token == token && (parent.empty() || sample.parent == parent)) return &sample;
        }
        return nullptr;
    }
};

// Token of each method of the program, from the program's own note.
std::map<std::string, std::string> tokensOf(const std::vector<std::string>& lines) {
    std::map<std::string, std::string> tokens;
    for (const auto& line : linesStartingWith(lines, "tokens ")) {
        std::istringstream fields(line.substr(7));
        for (std::string name, token; fields >> name >> token;) tokens[name] = token;
    }
    return tokens;
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
    const Session chain(lines, "chain ");
    const Sample* a = chain.find(tokens["A"]);
    ASSERT_NE(a, nullptr) << why(lines);
    const Sample* b = chain.find(tokens["B"], a->function);
    ASSERT_NE(b, nullptr) << why(lines);
    const Sample* c = chain.find(tokens["C"], b->function);
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
    const Session watch(lines, "watch ");
    EXPECT_NE(watch.summary.find(" samples 5 failed 0"), std::string::npos) << why(lines);
    const Sample* root = watch.find(tokens["Watch"]);
    ASSERT_NE(root, nullptr) << why(lines);
    EXPECT_EQ(root->depth, 1);
    EXPECT_EQ(root->parent, "0");
    EXPECT_EQ(root->className, "Sampled.Traced, Sampled");
    for (const auto& sample : watch.samples) {
        EXPECT_TRUE(sample.depth > 1 || sample.token == tokens["Watch"]) << why(lines);
    }

    // A thread blocked in native code: its managed frames down to the sleep.
    const Session asleep(lines, "asleep ");
    const Sample* sleep = asleep.find(tokens["Sleep"]);
    ASSERT_NE(sleep, nullptr) << why(lines);
    EXPECT_GT(sleep->count, 10) << why(lines);

    // A thread that ended: stopped by its end, and readable.
    const Session ended(lines, "ended ");
    EXPECT_EQ(ended.summary.find("samples -1"), std::string::npos) << why(lines);
    EXPECT_NE(ended.find(tokens["B"]), nullptr) << why(lines);

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

// Plugins, one after another, each sampled in its own method. While one is
// there, its frame is named after it; once it has been unloaded, its function
// ids are refused, as the runtime has freed what they pointed at, and the
// program's own frames still answer. The next plugins get the freed ids (of
// functions, classes, assemblies) again, and are still named after themselves.
TEST_F(Sampling, PluginsAreNamedAfterThemselvesAndRefusedOnceUnloaded) {
    constexpr int kPlugins = 10;
    const auto lines = run({"plugins", std::to_string(kPlugins)});
    const auto plugin = linesStartingWith(lines, "plugin token ");
    ASSERT_EQ(plugin.size(), size_t{kPlugins}) << why(lines);
    for (int round = 0; round < kPlugins; ++round) {
        const std::string name = "SampledPlugin" + std::to_string(round);
        const Session loaded(lines, "loaded " + std::to_string(round) + " ");
        const Sample* entry = loaded.find(plugin[round].substr(13));
        ASSERT_NE(entry, nullptr) << name << "\n" << why(lines);
        EXPECT_EQ(std::tie(entry->module, entry->className), std::make_tuple(name, name + ".Host, " + name));

        const Session unloaded(lines, "unloaded " + std::to_string(round) + " ");
        const auto again = std::find_if(unloaded.samples.begin(), unloaded.samples.end(),
                                        [&](const Sample& sample) { return sample.function == entry->function; });
        ASSERT_NE(again, unloaded.samples.end()) << why(lines);
        EXPECT_EQ(std::tie(again->token, again->module, again->className), std::make_tuple("0", "?", "")) << name;
        // The work that the plugin's method called, a lambda of the program.
        const auto work = std::find_if(unloaded.samples.begin(), unloaded.samples.end(),
                                       [&](const Sample& sample) { return sample.parent == entry->function; });
        ASSERT_NE(work, unloaded.samples.end()) << why(lines);
        EXPECT_EQ(std::tie(work->module, work->className),
                  std::make_tuple("Sampled.dll", "Sampled.Program+<>c, Sampled"));
    }
}

// The registry's exports, reached by their decorated names from the agent:
// each answers 0, and with no hooks installed on this runtime no method is
// recorded. The agent's record of a method is laid out as ours.
TEST_F(Sampling, RegistryExportsAnswerTheAgentByTheirDecoratedNames) {
    const auto lines = run({"registry"});
    expectLines(lines,
                {"register class 0", "register method 0", "hooks on 0", "records 0", "unregister 0", "hooks off 0"});
    const std::vector<std::string> data = linesStartingWith(lines, "method data ");
    const std::string hex = data.empty() ? "" : data.back().substr(12);
    ASSERT_EQ(hex.size(), 2 * sizeof(MethodData)) << why(lines);
    MethodData record;
    auto* bytes = reinterpret_cast<unsigned char*>(&record);
    for (size_t i = 0; i < sizeof(record); ++i) bytes[i] = std::stoi(hex.substr(2 * i, 2), nullptr, 16);
    // The fields in their order, numbered 1 to 7 by the agent.
    EXPECT_EQ(std::make_tuple(record.state, record.depth, record.index, record.active, record.startTime, record.endTime,
                              record.methodId),
              std::make_tuple(1u, 2u, 3u, 4u, 5, 6, 7u));
}

}  // namespace
