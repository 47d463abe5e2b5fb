// The sweep: a real web service, serving requests to itself over loopback, run
// with every method of every assembly selected, the core library and the web
// framework included. The service must answer as it does without the profiler,
// and every method the rewriting refused keeps its own body with a reason.
#include <iostream>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

TEST(Sweep, EveryMethodOfAWebServiceAndTheFrameworkBelowIt) {
    AgentInstall install;
    install.directives("IdentifyAllClassesAs: Everything\nTraceAllMethodsIfFlagged: Everything\nTurnOn: Everything\n");
    // Every call reaches the agent, which records it: an agent that looks at
    // what it is handed must not break the program either.
    e2e::RunOptions options = install.options();
    options.timeoutSeconds = 600;
    const e2e::Comparison run = install.compare("Service", options);
    const std::vector<std::string>& log = run.log;

    // The profiler's own account: methods instrumented and refused, by reason.
    for (const std::string& line : linesStartingWith(log, "  ")) std::cout << line << "\n";
    const std::string why = run.run.describe() + "--- native log (failures) ---\n" +
                            joinLines(linesStartingWith(log, "Failed"));

    ASSERT_EQ(run.reference.exitCode, 0) << run.reference.describe();
    ASSERT_NE(run.reference.out.find("total: 200 {\"count\":3,\"sum\":7.50}\n"), std::string::npos)
        << run.reference.describe();
    EXPECT_TRUE(run.unchanged());
    EXPECT_EQ(run.run.err, run.reference.err) << why;
    // The rewriting reached every layer: the core library, the web framework,
    // both serialisers and the service itself.
    for (const std::string assembly : {"System.Private.CoreLib", "Microsoft.AspNetCore.Server.Kestrel.Core",
                                       "System.Text.Json", "Newtonsoft.Json", "Service"}) {
        EXPECT_FALSE(linesStartingWith(log, "Instrumented [" + assembly + "]").empty()) << assembly << "\n" << why;
    }
    // Each refusal of the account has a reason of its own.
    const std::string refusals = joinLines(linesStartingWith(log, "  refused "));
    EXPECT_TRUE(refusals.find("  refused ") != std::string::npos &&
                refusals.find("Unknown error.") == std::string::npos)
        << refusals;
}

}  // namespace
