// Every method of a program, or of a real library, selected at once: the
// program must print and return what it does without the profiler, and no
// rewritten body may be refused by the runtime.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AgentInstall.h"
#include "ProgramRun.h"

namespace {

using e2e::AgentInstall;
using e2e::joinLines;
using e2e::linesStartingWith;

std::string allMethodsOf(const std::string& assembly) {
    return "IdentifyAssemblyAs: " + assembly + " Everything\n"
           "TraceAllMethodsIfFlagged: Everything\n"
           "TurnOn: Everything\n";
}

e2e::RunResult plainRun(const std::string& program) {
    e2e::RunOptions plain;
    plain.profiled = false;
    return e2e::runProgram(program, plain);
}

// Instrumented lines of the compile path for one assembly.
std::vector<std::string> instrumented(const std::vector<std::string>& log, const std::string& assembly) {
    return linesStartingWith(log, "Instrumented [" + assembly + "]");
}

TEST(WholeProgram, ShapesThatBreakRewritersRunUnchanged) {
    AgentInstall install;
    // StressTail is the assembly the program emits and loads from memory.
    install.directives(allMethodsOf("Stress") + allMethodsOf("StressTail"));
    auto reference = plainRun("Stress");
    auto run = install.run("Stress", install.options());
    auto log = install.log();
    const std::string why = run.describe() + "--- native log ---\n" + joinLines(log);

    ASSERT_EQ(reference.exitCode, 0) << reference.describe();
    ASSERT_NE(reference.out.find("wide: "), std::string::npos) << reference.describe();
    EXPECT_NE(reference.out.find(" more than 255 locals: True\n"), std::string::npos) << reference.describe();
    EXPECT_EQ(run.exitCode, reference.exitCode) << why;
    EXPECT_EQ(run.out, reference.out) << why;
    EXPECT_EQ(run.out.find("INVALID PROGRAM"), std::string::npos) << why;
    // The core library of this runtime is served by the synthetic shim: nothing is hijacked.
    EXPECT_TRUE(linesStartingWith(log, "Hijacked").empty() && linesStartingWith(log, "Failed to hijack").empty()) << why;
    // Stack traces name the source lines of a run without the profiler.
    EXPECT_NE(reference.out.find("lines: Stress.Hostile.Thrower:line "), std::string::npos) << reference.describe();
    // Three shapes keep their own bodies, each with its reason: a ref return,
    // whose result cannot be parked in a local and handed back as the address
    // the caller expects, and methods that end in tail calls, which leave their
    // frame before an exit could be traced.
    const std::vector<std::string> failed = linesStartingWith(log, "Failed to instrument");
    ASSERT_EQ(failed.size(), 3u) << why;
    unsigned int tailCalls = 0;
    for (const std::string& line : failed) {
        if (line.find("[StressTail]StressTail.Parity::") != std::string::npos) {
            EXPECT_NE(line.find("(Methods with tail calls are not traced.)"), std::string::npos) << why;
            ++tailCalls;
        } else {
            EXPECT_NE(line.find("]Stress.Shapes::Find - 0x80004005(02)"), std::string::npos) << why;
            EXPECT_NE(line.find("(ByRef and TypedReference return types are not supported.)"), std::string::npos)
                << why;
        }
    }
    EXPECT_EQ(tailCalls, 2u) << why;
    // The shapes went through the rewriting, compiler-made classes included.
    const std::vector<std::string> done = instrumented(log, "Stress");
    for (const std::string method : {"Stress.Derived::.ctor", "Stress.Counter::Add", "Stress.Shapes::Nested",
                                     "Stress.Hostile::Sum", "Stress.Hostile::AfterVoid", "Stress.Hostile::Apply",
                                     "Stress.Hostile::Typed", "Stress.Hostile::Next", "Stress.Hostile::Tail",
                                     "Stress.Hostile::Make", "Stress.Hostile::Same", "Stress.Cell::.ctor",
                                     "Stress.Holder::.ctor", "Stress.Hostile::Thrower",
                                     "Stress.Shapes::SumAsync", "Stress.Shapes::Evens", "Stress.Shapes::Max",
                                     "Stress.Wide::Many", "Stress.Shapes::Ackermann", "Stress.Program::Main"}) {
        bool found = false;
        for (const auto& line : done) {
            found = found || line.find("]" + method + " - 0x0(") != std::string::npos;
        }
        EXPECT_TRUE(found) << method << "\n" << why;
    }
    EXPECT_GT(done.size(), 40u) << why;
    // The account at shutdown agrees with the log's lines.
    const std::string counts = ", instrumented " + std::to_string(linesStartingWith(log, "Instrumented ").size()) +
                               ", refused 3";
    const std::vector<std::string> account = linesStartingWith(log, "  methods compiled ");
    ASSERT_EQ(account.size(), 1u) << why;
    EXPECT_NE(account[0].find(counts), std::string::npos) << account[0] << " vs " << counts;
    EXPECT_FALSE(linesStartingWith(log, "  refused 2: Methods with tail calls are not traced.").empty()) << why;
    // The agent saw the calls: exceptions of the throwing shapes among them.
    const std::vector<std::string> record = install.record();
    EXPECT_FALSE(linesStartingWith(record, "catchTrace System.NotSupportedException:always").empty()) << why;
    EXPECT_FALSE(linesStartingWith(record, "catchTrace System.TimeoutException:late").empty()) << why;
}

TEST(WholeProgram, EveryMethodOfARealLibrary) {
    AgentInstall install;
    install.directives(allMethodsOf("Newtonsoft.Json"));
    auto reference = plainRun("JsonRoundTrip");
    auto run = install.run("JsonRoundTrip", install.options());
    auto log = install.log();
    const std::string why = run.describe() + "--- native log (failures) ---\n" +
                            joinLines(linesStartingWith(log, "Failed"));

    ASSERT_EQ(reference.exitCode, 6) << reference.describe();
    ASSERT_NE(reference.out.find("round trip equal: True\n"), std::string::npos) << reference.describe();
    EXPECT_EQ(run.exitCode, reference.exitCode) << why;
    EXPECT_EQ(run.out, reference.out) << why;
    EXPECT_EQ(run.err, "") << why;
    EXPECT_EQ(linesStartingWith(log, "Failed to instrument").size(), 0u) << why;
    // Hundreds of the library's methods were compiled through the rewriting.
    EXPECT_GT(instrumented(log, "Newtonsoft.Json").size(), 300u) << why;
    EXPECT_GT(linesStartingWith(install.record(), "initTrace ").size(), 1000u) << why;
}

}  // namespace
