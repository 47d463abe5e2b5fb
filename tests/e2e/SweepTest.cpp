// The sweep: a real web service, serving requests to itself over loopback, run
// with every method of every assembly selected, the core library and the web
// framework included. The service must answer as it does without the profiler,
// and every method the rewriting refused keeps its own body with a reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "AgentInstall.h"
#include "ProgramRun.h"

namespace {

using e2e::AgentInstall;

// "Failed to instrument [A]C::M - 0x80004005(02) - [functionID = ...] (reason)":
// the result, the stage and the reason, where the line gives one.
std::string refusalKind(const std::string& line) {
    static const std::regex shape(R"( - (0x[0-9A-F]+\(\d\d\))(?: - \[functionID = 0x[0-9a-f]+\])?(?: \((.*)\))?$)");
    std::smatch match;
    if (!std::regex_search(line, match, shape)) return line;
    return match[1].str() + (match[2].matched ? " " + match[2].str() : "");
}

TEST(Sweep, EveryMethodOfAWebServiceAndTheFrameworkBelowIt) {
    AgentInstall install;
    install.directives("IdentifyAllClassesAs: Everything\nTraceAllMethodsIfFlagged: Everything\nTurnOn: Everything\n");
    // Every call reaches the agent, which records it: an agent that looks at
    // what it is handed must not break the program either.
    e2e::RunOptions options = install.options();
    options.timeoutSeconds = 600;
    const e2e::Comparison run = install.compare("Service", options);
    const std::vector<std::string>& log = run.log;

    // A method compiled again (another instantiation) is logged again with
    // stage 0: each is counted once, by the outcome of its first attempt.
    std::set<std::string> seen;
    unsigned int instrumented = 0;
    std::map<std::string, unsigned int> refusals;
    for (const std::string& line : log) {
        const bool failed = line.rfind("Failed to instrument [", 0) == 0;
        if (!failed && line.rfind("Instrumented [", 0) != 0) continue;
        if (!seen.insert(line.substr(0, line.find(" - 0x"))).second) continue;
        if (failed) {
            ++refusals[refusalKind(line)];
        } else {
            ++instrumented;
        }
    }
    std::cout << "methods instrumented: " << instrumented << "\n";
    for (const auto& [kind, count] : refusals) std::cout << "refused " << count << ": " << kind << "\n";
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
    // The account counts each refused method once, with its own reason.
    const std::vector<std::string> failures = linesStartingWith(log, "Failed to instrument [");
    const auto firstAttempts = std::count_if(failures.begin(), failures.end(), [](const std::string& line) {
        return line.find("(00) - [functionID") == std::string::npos;
    });
    const std::vector<std::string> account = linesStartingWith(log, "  methods compiled ");
    ASSERT_EQ(account.size(), 1u) << why;
    EXPECT_NE(account[0].find(", refused " + std::to_string(firstAttempts)), std::string::npos) << account[0];
    EXPECT_TRUE(linesStartingWith(log, "  refused ").size() > 1 &&
                joinLines(linesStartingWith(log, "  refused ")).find("Unknown error.") == std::string::npos)
        << joinLines(linesStartingWith(log, "  refused "));
}

}  // namespace
