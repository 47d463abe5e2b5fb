// The whole road of a traced call in a real runtime: directives select methods
// of a program, the runtime compiles them through our rewriting, the synthetic
// shim loads the test agent, and the agent records every trace call.
#include <algorithm>
#include <regex>
#include <set>
#include <tuple>

#include "AgentInstall.h"

namespace {

using e2e::AgentInstall;

// Method ids by "Class::Method", from the compile path's "Instrumented" lines
// of one assembly: the id that initTrace receives is the low half of the
// function id.
std::map<std::string, std::vector<std::string>> instrumentedIds(const std::vector<std::string>& log,
                                                                const std::string& assembly) {
    static const std::regex line(R"(Instrumented \[([^\]]*)\](.*) - 0x0\(\d+\) - \[functionID = 0x([0-9a-f]+)\])");
    std::map<std::string, std::vector<std::string>> ids;
    for (const auto& text : log) {
        std::smatch match;
        if (std::regex_match(text, match, line) && match[1] == assembly) {
            const auto id = static_cast<unsigned int>(std::stoull(match[3].str(), nullptr, 16));
            ids[match[2]].push_back(std::to_string(static_cast<int>(id)));
        }
    }
    return ids;
}

// The record lines of the first call with this id: from its initTrace up to
// the end line of the same call, skipping the lines of calls nested in it.
std::vector<std::string> callBlock(const std::vector<std::string>& record, const std::string& id) {
    std::vector<std::string> block;
    int depth = -1;  // of nesting in the call, once its initTrace is reached
    for (auto line = std::find(record.begin(), record.end(), "initTrace " + id); line != record.end(); ++line) {
        if (line->rfind("initTrace ", 0) == 0) ++depth;
        if (depth == 0) block.push_back(*line);
        const bool closes = line->rfind("finishTrace", 0) == 0 || line->rfind("catchTrace", 0) == 0;
        if (closes && depth == 0) return block;
        if (closes) --depth;
    }
    return block;
}

// One run of the Traced program with three classes selected, read three ways:
// it behaves as without the profiler, exactly the selected methods are
// rewritten, and each call reaches the agent with its parameters and result.
TEST(Trace, SelectedMethodsReachTheAgentWithTheirParametersAndResults) {
    AgentInstall install;
    install.directives(
        "TraceAllMethodsOfClass: Traced.Subject\nTraceAllMethodsOfClass: Traced.Point\n"
        "TraceAllMethodsOfClass: Traced.Box`1\n");
    install.set("harrowlite.nativeprofiler.logBytecode", "true");
    const e2e::Comparison compared = install.compare("Traced", install.options({"7"}));
    const auto& [reference, run, log, runWhy] = compared;
    const std::vector<std::string> record = install.record();
    const std::string why = runWhy + "--- record ---\n" + joinLines(record);
    const auto ids = instrumentedIds(log, "Traced");
    const std::string version = e2e::runtimeVersion(), major = version.substr(0, version.find('.'));

    ASSERT_EQ(reference.exitCode, 7) << reference.describe();
    ASSERT_NE(reference.out.find("caught=InvalidOperationException:bad 5\n"), std::string::npos);
    ASSERT_NE(reference.out.find("echo=98\npair=99\n"), std::string::npos) << reference.describe();
    EXPECT_TRUE(compared.unchanged());

    // Start-up and the first module.
    for (const std::string& once :
         {"Runtime Info: Core CLR (0x2) version " + version + " (" + major + ".0_",
          std::string("Defined Synthetic Shim in Traced"), std::string("Module Loaded System.Private.CoreLib ("),
          std::string("Module Loaded Traced (1.0.0-0) [ngen:0] Domain: clrhost from ")}) {
        EXPECT_EQ(linesStartingWith(log, once).size(), 1u) << once << "\n" << why;
    }
    EXPECT_EQ(linesStartingWith(log, "Failed to instrument").size(), 0u) << why;

    // Exactly the classes of the directives, and the hidden Main.
    std::set<std::string> methods, knownIds;
    for (const auto& [method, idList] : ids) {
        methods.insert(method);
        knownIds.insert(idList.begin(), idList.end());
    }
    const std::set<std::string> expected = {
        "Traced.Program::Main",     "Traced.Subject::.ctor",  "Traced.Subject::Scalars", "Traced.Subject::Mixed",
        "Traced.Subject::WithRefs", "Traced.Subject::Throws", "Traced.Subject::Nothing", "Traced.Point::.ctor",
        "Traced.Point::Sum",        "Traced.Point::ToString", "Traced.Box::.ctor",       "Traced.Box::Get",
        "Traced.Box::Keep",         "Traced.Box::Echo",       "Traced.Box::Pair",
    };
    ASSERT_EQ(methods, expected) << why;
    // No instrumented method of any other assembly but the program's; each
    // is followed by the listing of its new body.
    for (const auto& line : linesStartingWith(log, "Instrumented [")) {
        EXPECT_EQ(line.rfind("Instrumented [Traced]", 0), 0u) << line;
    }
    EXPECT_EQ(linesStartingWith(log, "HEADER").size(), linesStartingWith(log, "Instrumented [").size()) << why;
    // Every initTrace of the record belongs to one of those methods.
    for (const auto& line : linesStartingWith(record, "initTrace ")) {
        EXPECT_EQ(knownIds.count(line.substr(10)), 1u) << line << "\n" << why;
    }

    // The first call of each method, after its initTrace: each parameter
    // boxed at its position, then the result or the exception.
    const std::string box = "loadTrace this=Traced.Box`1[[System.String, System.Private.CoreLib, Version=" + major +
                            ".0.0.0, Culture=neutral, PublicKeyToken=7cec85d7bea7798e]]";
    const std::pair<const char*, std::vector<std::string>> calls[] = {
        {"Traced.Subject::Scalars",
         {"loadTrace", "pushTrace 0 System.Boolean:True", "pushTrace 1 System.Char:x", "pushTrace 2 System.SByte:-8",
          "pushTrace 3 System.Byte:8", "pushTrace 4 System.Int16:-16", "pushTrace 5 System.UInt16:16",
          "pushTrace 6 System.Int32:-32", "pushTrace 7 System.UInt32:32", "pushTrace 8 System.Int64:-64",
          "pushTrace 9 System.UInt64:64", "pushTrace 10 System.Single:1.5", "pushTrace 11 System.Double:2.25",
          "startTrace", "finishTrace result=System.Double:124.75"}},
        {"Traced.Subject::Mixed",
         {"loadTrace this=Traced.Subject", "pushTrace 0 Traced.Color:Green", "pushTrace 1 Traced.Point:(3,4)",
          "pushTrace 2 System.String:text", "pushTrace 3 System.Int64:42", "pushTrace 4 System.Int32[3]", "startTrace",
          "finishTrace result=System.String:Green/(3,4)/text/42/3"}},
        // ref, out and the byref-like Span are left out; the others keep their positions.
        {"Traced.Subject::WithRefs",
         {"loadTrace", "pushTrace 0 System.Int32:7", "pushTrace 4 System.Int32:9", "startTrace",
          "finishTrace result=System.Int32:16"}},
        {"Traced.Subject::Nothing", {"loadTrace", "startTrace", "finishTrace"}},
        // A struct's this travels as a boxed copy, before and after the body;
        // on entry the agent records it by its type alone.
        {"Traced.Point::Sum",
         {"loadTrace this=Traced.Point", "pushTrace 0 System.Int32:10", "startTrace",
          "finishValueTypeTrace result=Traced.Point:(1,2)", "finishTrace result=System.Int32:13"}},
        // T of the class, boxed as what it stands for.
        {"Traced.Box::Keep",
         {box, "pushTrace 0 System.String:kept", "startTrace", "finishTrace result=System.String:kept"}},
        {"Traced.Box::Get", {box, "startTrace", "finishTrace result=System.String:content"}},
        // Type parameters of the method itself (!!T), alone and beside one of the class (T).
        {"Traced.Box::Echo", {box, "pushTrace 0 System.Int32:98", "startTrace", "finishTrace result=System.Int32:98"}},
        {"Traced.Box::Pair",
         {box, "pushTrace 0 System.String:first", "pushTrace 1 System.Int32:99", "startTrace",
          "finishTrace result=System.Int32:99"}},
        // The exception reaches the agent (and the caller unchanged, as the output shows).
        {"Traced.Subject::Throws",
         {"loadTrace this=Traced.Subject", "pushTrace 0 System.Int32:5", "startTrace",
          "catchTrace System.InvalidOperationException:bad 5"}},
        // The hidden Main, with its argument array, and its result at the end.
        {"Traced.Program::Main",
         {"loadTrace", "pushTrace 0 System.String[1]", "startTrace", "finishTrace result=System.Int32:7"}},
    };
    for (auto [method, block] : calls) {
        const std::string id = ids.at(method).front();
        block.insert(block.begin(), "initTrace " + id);
        EXPECT_EQ(callBlock(record, id), block) << method << "\n" << why;
    }
}

// VB's "On Error" handlers leave for a place inside their own try block: such
// methods are rewritten, and return and reach the agent as without it.
TEST(Trace, VisualBasicOnErrorHandlersResumeInsideTheirTry) {
    AgentInstall install;
    install.directives("TraceAllMethodsOfClass: Resumed.Program\n");
    const e2e::Comparison compared = install.compare("Resumed", install.options());
    const std::vector<std::string> record = install.record();
    const std::string why = compared.why + "--- record ---\n" + joinLines(record);
    const auto ids = instrumentedIds(compared.log, "Resumed");

    ASSERT_EQ(compared.reference.out, "resumed 11 6\nhandled zero, fine 7\n") << compared.reference.describe();
    EXPECT_TRUE(compared.unchanged());
    EXPECT_EQ(linesStartingWith(compared.log, "Failed to instrument").size(), 0u) << why;
    for (const auto& [method, argument, result] :
         {std::tuple{"Resumed.Program::ResumeNext", "System.String:ten", "System.Int32:11"},
          std::tuple{"Resumed.Program::GoToHandler", "System.Int32:0", "System.String:handled zero"}}) {
        ASSERT_EQ(ids.count(method), 1u) << method << "\n" << why;
        const std::string id = ids.at(method).front();
        const std::vector<std::string> expected = {"initTrace " + id, "loadTrace",
                                                   std::string("pushTrace 0 ") + argument, "startTrace",
                                                   std::string("finishTrace result=") + result};
        EXPECT_EQ(callBlock(record, id), expected) << method << "\n" << why;
    }
}

}  // namespace
