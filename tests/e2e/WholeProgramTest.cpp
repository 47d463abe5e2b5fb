// Every method of a program, or of a real library, selected at once: the
// program must print and return what it does without the profiler, and no
// rewritten body may be refused by the runtime.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>

#include "AgentInstall.h"
#include "support/ChildProcess.h"

namespace {

using e2e::AgentInstall;
using e2e::allMethodsOf;

TEST(WholeProgram, ShapesThatBreakRewritersRunUnchanged) {
    AgentInstall install;
    // Assemblies the program emits: StressTail loaded from memory, StressPlugin
    // too but three times over into contexts it unloads, StressEmitted run
    // without an image.
    install.directives(allMethodsOf("Stress") + allMethodsOf("StressTail") + allMethodsOf("StressEmitted") +
                       allMethodsOf("StressPlugin"));
    const e2e::Comparison compared = install.compare("Stress", install.options());
    const auto& [reference, run, log, why] = compared;

    ASSERT_EQ(reference.exitCode, 0) << reference.describe();
    ASSERT_NE(reference.out.find("wide: "), std::string::npos) << reference.describe();
    EXPECT_NE(reference.out.find(" more than 255 locals: True\n"), std::string::npos) << reference.describe();
    EXPECT_TRUE(compared.unchanged());
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
    auto failures = [&](const std::string& method, const std::string& reason) {
        return std::count_if(failed.begin(), failed.end(), [&](const std::string& line) {
            return line.find(method) != std::string::npos && line.find(reason) != std::string::npos;
        });
    };
    EXPECT_EQ(failed.size(), 3u) << why;
    EXPECT_EQ(failures("[StressTail]StressTail.Parity::", "(Methods with tail calls are not traced.)"), 2) << why;
    EXPECT_EQ(
        failures("]Stress.Shapes::Find - 0x80004005(02)", "(ByRef and TypedReference return types are not supported.)"),
        1)
        << why;
    // The shapes went through the rewriting, compiler-made classes included.
    const std::vector<std::string> done = linesStartingWith(log, "Instrumented [Stress");
    const std::string doneText = joinLines(done);
    for (const std::string method :
         {"Stress.Derived::.ctor",        "Stress.Counter::Add",     "Stress.Shapes::Nested",    "Stress.Hostile::Sum",
          "Stress.Hostile::AfterVoid",    "Stress.Hostile::Apply",   "Stress.Hostile::Typed",    "Stress.Hostile::Next",
          "Stress.Hostile::Tail",         "Stress.Hostile::Make",    "Stress.Hostile::Same",     "Stress.Cell::.ctor",
          "Stress.Holder::.ctor",         "Stress.Hostile::Thrower", "Stress.Shapes::SumAsync",  "Stress.Shapes::Evens",
          "Stress.Shapes::Max",           "Stress.Wide::Many",       "Stress.Shapes::Ackermann", "Stress.Program::Main",
          "StressEmitted.Doubler::Twice", "StressPlugin.Square::Of"}) {
        EXPECT_NE(doneText.find("]" + method + " - 0x0("), std::string::npos) << method << "\n" << why;
    }
    EXPECT_GT(done.size(), 40u) << why;
    // The account at shutdown counts methods as the log's lines do, leaving out
    // further instantiations of a method already rewritten (stage 00).
    const std::vector<std::string> lines = linesStartingWith(log, "Instrumented ");
    const auto firsts = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find(" - 0x0(00) - ") == std::string::npos;
    });
    const std::string counts = ", instrumented " + std::to_string(firsts) + ", refused 3";
    const std::vector<std::string> account = linesStartingWith(log, "  methods compiled ");
    ASSERT_EQ(account.size(), 1u) << why;
    EXPECT_NE(account[0].find(counts), std::string::npos) << account[0] << " vs " << counts;
    EXPECT_FALSE(linesStartingWith(log, "  refused 2: Methods with tail calls are not traced.").empty()) << why;
    // The agent saw the calls: exceptions of the throwing shapes among them.
    const std::vector<std::string> record = install.record();
    EXPECT_FALSE(linesStartingWith(record, "catchTrace System.NotSupportedException:always").empty()) << why;
    EXPECT_FALSE(linesStartingWith(record, "catchTrace System.TimeoutException:late").empty()) << why;
    // A thrown string is no exception: it passes the traced frames untold and
    // reaches the program as it was thrown.
    EXPECT_NE(reference.out.find(" thrown: a string\n"), std::string::npos) << reference.describe();
    EXPECT_EQ(joinLines(record).find("catchTrace System.String"), std::string::npos) << why;
}

// "[Assembly]Class::Method" of a log line that begins with head.
std::string methodOf(const std::string& line, const std::string& head) {
    const size_t end = line.find(" ", line.find("::"));
    return line.substr(head.size(), end == std::string::npos ? std::string::npos : end - head.size());
}

// Every method of the library selected, the program's own left alone; the
// directive checker, reading the same profile offline, agrees on every method
// that the run compiled.
TEST(WholeProgram, EveryMethodOfARealLibrary) {
    AgentInstall install;
    install.directives(allMethodsOf("Newtonsoft.Json") + "TraceOneMethodOfClass: NoSuchClass\n");
    install.set("harrowlite.nativeprofiler.logAllMethodsNoticed", "true");
    const e2e::Comparison compared = install.compare("JsonRoundTrip", install.options());
    // The library's whole log is too long for a report: the failures alone go into it.
    const auto& [reference, run, log, wholeReport] = compared;
    const std::string why = run.describe() + "--- native log (failures) ---\n" +
                            joinLines(linesStartingWith(log, "Failed"));

    ASSERT_EQ(reference.exitCode, 6) << reference.describe();
    ASSERT_NE(reference.out.find("round trip equal: True\n"), std::string::npos) << reference.describe();
    EXPECT_TRUE(compared.unchanged());
    EXPECT_EQ(run.err, "") << why;
    EXPECT_EQ(linesStartingWith(log, "Failed to instrument").size(), 0u) << why;
    // Hundreds of the library's methods were compiled through the rewriting.
    EXPECT_GT(linesStartingWith(log, "Instrumented [Newtonsoft.Json]").size(), 300u) << why;
    EXPECT_GT(linesStartingWith(install.record(), "initTrace ").size(), 1000u) << why;

    std::map<std::string, bool> compiled;  // method -> rewritten in the run
    for (const std::string& line : log) {
        for (const std::string head : {"Processed ", "Instrumented "}) {
            if (line.rfind(head, 0) != 0) continue;
            const std::string method = methodOf(line, head);
            if (method.rfind("[JsonRoundTrip]", 0) != 0 && method.rfind("[Newtonsoft.Json]", 0) != 0) continue;
            compiled[method] = compiled[method] || head == "Instrumented ";
        }
    }
    // The tool reads the program from a folder whose name is not ASCII.
    const std::string dir = std::string(TARN_E2E_DIR) + "/JsonRoundTrip/", copy = install.workDir() + "/Über";
    std::filesystem::create_directory(copy);
    std::filesystem::copy_file(dir + "JsonRoundTrip.dll", copy + "/JsonRoundTrip.dll");
    const ChildProcess checker = ChildProcess::run({TARN_DIRECTIVES_TOOL, "--profile", install.profilePath(),
                                                    copy + "/JsonRoundTrip.dll", dir + "Newtonsoft.Json.dll"},
                                                   {}, dir);
    ASSERT_EQ(checker.exitStatus, 0) << checker.err;
    std::set<std::string> selected;
    std::vector<std::string> ignored = linesStartingWith(splitLines(checker.out), "ignored ");
    for (const std::string& line : linesStartingWith(splitLines(checker.out), "selected ")) {
        selected.insert(line.substr(9, line.rfind(" (") - 9));
    }
    ASSERT_EQ(ignored.size(), 1u);
    EXPECT_NE(ignored[0].find(":4: too few arguments for TraceOneMethodOfClass"), std::string::npos) << ignored[0];
    size_t rewritten = 0;
    for (const auto& [method, instrumented] : compiled) {
        EXPECT_EQ(selected.count(method) != 0, instrumented) << method;
        rewritten += instrumented;
    }
    // Enough of both kinds for the agreement to mean something.
    EXPECT_GT(compiled.size() - rewritten, 10u);
}

}  // namespace
