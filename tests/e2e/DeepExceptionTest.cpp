// An exception that leaves thousands of instrumented frames: it must cost the
// program no more stack than without the profiler, reach the agent once per
// frame, and come out as it went in, even when the agent throws while it is
// being told.
#include <algorithm>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

TEST(DeepException, ReportedOncePerFrameAndOtherwiseUntouched) {
    AgentInstall install;
    install.directives(e2e::allMethodsOf("Deep"));
    e2e::RunOptions options = install.options();
    options.env["TARN_AGENT_THROW_IN_CATCH"] = "1";
    const e2e::Comparison compared = install.compare("Deep", options);
    ASSERT_EQ(compared.reference.exitCode, 3) << compared.reference.describe();
    // Output, exit code, finally order and every line of the stack traces.
    EXPECT_TRUE(compared.unchanged());
    EXPECT_TRUE(linesStartingWith(compared.log, "Failed to instrument").empty()) << compared.why;

    const std::vector<std::string> record = install.record();
    // Each recursion frame, the frame that started it and the thread's lambda
    // above it; every iterator of the chain, the loop over it and that lambda.
    const std::string deep = "catchTrace Deep.DepthReached:depth 1000";
    EXPECT_EQ(std::count(record.begin(), record.end(), deep), 1002);
    EXPECT_EQ(std::count(record.begin(), record.end(), "catchTrace Deep.DepthReached:depth 10000"), 10002);
    EXPECT_EQ(std::count(record.begin(), record.end(), "catchTrace System.IO.InvalidDataException:innermost iterator"),
              1003);
    // All frames are told before the first finally block runs (each calls a
    // traced method): the runtime's first pass calls the filters.
    const auto first = std::find(record.begin(), record.end(), deep);
    EXPECT_TRUE(record.end() - first >= 1002 && std::all_of(first, first + 1002, [&](auto& l) { return l == deep; }));
    // Every traced call ends once: by its exit or by an exception, never both.
    EXPECT_EQ(linesStartingWith(record, "initTrace ").size(),
              linesStartingWith(record, "finishTrace").size() + linesStartingWith(record, "catchTrace ").size());
}

// Rewritten when its module loads, each method gets its offset map when it
// compiles: the stack traces still name the lines of the program's own code.
TEST(DeepException, StackTracesKeepTheirLinesWhenRewrittenOnModuleLoad) {
    AgentInstall install;
    install.set("harrowlite.nativeprofiler.instrumentOnModuleLoad", "true");
    install.directives(e2e::allMethodsOf("Deep"));
    const e2e::Comparison compared = install.compare("Deep", install.options());
    EXPECT_TRUE(compared.unchanged());
    EXPECT_TRUE(linesStartingWith(compared.log, "[Deep] Instrumented 0 ").empty()) << compared.why;
    EXPECT_FALSE(linesStartingWith(compared.log, "[Deep] Instrumented ").empty()) << compared.why;
}

}  // namespace
