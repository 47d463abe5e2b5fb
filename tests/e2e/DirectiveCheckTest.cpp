// The directive checker agrees with the profiler: over a real program and
// Newtonsoft.Json, every method that the run compiled was rewritten exactly
// when the checker, reading the same profile offline, says it is selected.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

// "[Assembly]Class::Method" of a log line that begins with head.
std::string methodOf(const std::string& line, const std::string& head) {
    const size_t end = line.find(" ", line.find("::"));
    return line.substr(head.size(), end == std::string::npos ? std::string::npos : end - head.size());
}

TEST(DirectiveCheck, VerdictsAgreeWithARealRun) {
    AgentInstall install;
    install.directives(
        "TraceAllMethodsOfClass: Newtonsoft.Json.JsonConvert\n"
        "TraceAllMethodsOfClass: Newtonsoft.Json.JsonTextWriter\n"
        "TraceOneMethodOfClass: Newtonsoft.Json.Linq.JObject Parse\n"
        "TraceAllMethodsOfClass: JsonRoundTrip.Part\n"
        "TraceOneMethodOfClass: NoSuchClass\n");
    install.set("harrowlite.nativeprofiler.logAllMethodsNoticed", "true");
    const e2e::RunResult run = install.run("JsonRoundTrip", install.options());
    ASSERT_EQ(run.exitCode, 6) << run.describe();  // the program returns its count of children

    std::map<std::string, bool> compiled;  // method -> rewritten in the run
    for (const std::string& line : install.log()) {
        for (const char* head : {"Processed ", "Instrumented ", "Failed to instrument "}) {
            const std::string text(head);
            if (line.rfind(text, 0) != 0) continue;
            const std::string method = methodOf(line, text);
            if (method.rfind("[JsonRoundTrip]", 0) != 0 && method.rfind("[Newtonsoft.Json]", 0) != 0) continue;
            compiled[method] = compiled[method] || text != "Processed ";
        }
    }

    const std::string dir = std::string(TARN_E2E_DIR) + "/JsonRoundTrip/";
    const std::string command = std::string(TARN_DIRECTIVES_TOOL) + " --profile " + install.profilePath() + " " + dir +
                                "JsonRoundTrip.dll " + dir + "Newtonsoft.Json.dll";
    FILE* output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    std::set<std::string> selected;
    std::vector<std::string> ignored;
    char buffer[4096];
    while (fgets(buffer, sizeof(buffer), output) != nullptr) {
        const std::string line(buffer);
        if (line.rfind("ignored ", 0) == 0) ignored.push_back(line);
        if (line.rfind("selected ", 0) == 0) selected.insert(line.substr(9, line.rfind(" (") - 9));
    }
    ASSERT_EQ(pclose(output), 0) << command;
    ASSERT_EQ(ignored.size(), 1u);
    EXPECT_NE(ignored[0].find(":5: too few arguments for TraceOneMethodOfClass"), std::string::npos) << ignored[0];

    size_t rewritten = 0;
    for (const auto& [method, instrumented] : compiled) {
        EXPECT_EQ(selected.count(method) != 0, instrumented) << method;
        rewritten += instrumented;
    }
    // Enough of both kinds for the agreement to mean something.
    EXPECT_GT(rewritten, 20u);
    EXPECT_GT(compiled.size() - rewritten, 100u);
}

}  // namespace
