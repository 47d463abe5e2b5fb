// The whole road of a traced call in a real runtime: directives select methods
// of a program, the runtime compiles them through our rewriting, the synthetic
// shim loads the test agent, and the agent records every trace call.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "AgentInstall.h"
#include "ProgramRun.h"

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
            std::string hex = match[3];
            unsigned long long id = std::stoull(hex, nullptr, 16);
            ids[match[2]].push_back(std::to_string(static_cast<int>(static_cast<unsigned int>(id))));
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

const char* const kDirectives =
    "TraceAllMethodsOfClass: Traced.Subject\n"
    "TraceAllMethodsOfClass: Traced.Point\n"
    "TraceAllMethodsOfClass: Traced.Box`1\n";

class TraceTest : public ::testing::Test {
protected:
    void SetUp() override {
        install.directives(kDirectives);
        install.set("harrowlite.nativeprofiler.logBytecode", "true");
        reference = e2e::runPlain("Traced", {"7"});
        run = install.run("Traced", install.options({"7"}));
        log = install.log();
        record = install.record();
        ids = instrumentedIds(log, "Traced");
    }

    std::string why() const {
        return run.describe() + "--- native log ---\n" + joinLines(log) + "--- record ---\n" + joinLines(record);
    }

    std::vector<std::string> blockOf(const std::string& method) {
        auto found = ids.find(method);
        if (found == ids.end()) {
            ADD_FAILURE() << method << " was not instrumented\n" << why();
            return {};
        }
        return callBlock(record, found->second.front());
    }

    // The block of the method's first call is its initTrace, then these lines.
    void expectBlock(const std::string& method, std::vector<std::string> rest) {
        const std::vector<std::string> block = blockOf(method);
        rest.insert(rest.begin(), ids.count(method) != 0 ? "initTrace " + ids[method].front() : "(not instrumented)");
        EXPECT_EQ(block, rest) << why();
    }

    AgentInstall install;
    e2e::RunResult reference;
    e2e::RunResult run;
    std::vector<std::string> log;
    std::vector<std::string> record;
    std::map<std::string, std::vector<std::string>> ids;
};

TEST_F(TraceTest, ProgramBehavesAsWithoutTheProfilerAndOnlySelectedMethodsAreRewritten) {
    ASSERT_EQ(reference.exitCode, 7) << reference.describe();
    EXPECT_EQ(run.exitCode, 7) << why();
    EXPECT_EQ(run.out, reference.out) << why();
    EXPECT_NE(run.out.find("caught=InvalidOperationException:bad 5\n"), std::string::npos) << why();

    // Start-up and the first module.
    EXPECT_EQ(linesStartingWith(log, "Runtime Info: Core CLR (0x2) version " + e2e::runtimeVersion() + " (" +
                                         e2e::runtimeMajor() + ".0_")
                  .size(),
              1u)
        << why();
    EXPECT_EQ(linesStartingWith(log, "Defined Synthetic Shim").size(), 1u) << why();
    EXPECT_EQ(linesStartingWith(log, "Module Loaded System.Private.CoreLib (").size(), 1u) << why();
    EXPECT_EQ(linesStartingWith(log, "Module Loaded Traced (1.0.0-0) [ngen:0] Domain: clrhost from ").size(), 1u) << why();
    EXPECT_EQ(linesStartingWith(log, "Failed to instrument").size(), 0u) << why();

    // Exactly the classes of the directives, and the hidden Main.
    std::set<std::string> methods;
    std::set<std::string> knownIds;
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
    EXPECT_EQ(methods, expected) << why();
    // No instrumented method of any other assembly but the program's; each
    // is followed by the listing of its new body.
    for (const auto& line : linesStartingWith(log, "Instrumented [")) {
        EXPECT_EQ(line.rfind("Instrumented [Traced]", 0), 0u) << line;
    }
    EXPECT_EQ(linesStartingWith(log, "HEADER").size(), linesStartingWith(log, "Instrumented [").size()) << why();
    // Every initTrace of the record belongs to one of those methods.
    for (const auto& line : linesStartingWith(record, "initTrace ")) {
        EXPECT_EQ(knownIds.count(line.substr(10)), 1u) << line << "\n" << why();
    }
}

TEST_F(TraceTest, EachParameterArrivesBoxedAtItsPositionWithTheResult) {
    ASSERT_EQ(run.exitCode, 7) << why();
    expectBlock("Traced.Subject::Scalars",
                {"loadTrace", "pushTrace 0 System.Boolean:True", "pushTrace 1 System.Char:x",
                 "pushTrace 2 System.SByte:-8", "pushTrace 3 System.Byte:8", "pushTrace 4 System.Int16:-16",
                 "pushTrace 5 System.UInt16:16", "pushTrace 6 System.Int32:-32", "pushTrace 7 System.UInt32:32",
                 "pushTrace 8 System.Int64:-64", "pushTrace 9 System.UInt64:64", "pushTrace 10 System.Single:1.5",
                 "pushTrace 11 System.Double:2.25", "startTrace", "finishTrace result=System.Double:124.75"});
    expectBlock("Traced.Subject::Mixed",
                {"loadTrace this=Traced.Subject", "pushTrace 0 Traced.Color:Green", "pushTrace 1 Traced.Point:(3,4)",
                 "pushTrace 2 System.String:text", "pushTrace 3 System.Int64:42", "pushTrace 4 System.Int32[3]",
                 "startTrace", "finishTrace result=System.String:Green/(3,4)/text/42/3"});
    // ref, out and the byref-like Span are left out; the others keep their positions.
    expectBlock("Traced.Subject::WithRefs", {"loadTrace", "pushTrace 0 System.Int32:7", "pushTrace 4 System.Int32:9",
                                             "startTrace", "finishTrace result=System.Int32:16"});
    expectBlock("Traced.Subject::Nothing", {"loadTrace", "startTrace", "finishTrace"});
}

TEST_F(TraceTest, StructsGenericsAndExceptions) {
    ASSERT_EQ(run.exitCode, 7) << why();
    // A struct's this travels as a boxed copy, before and after the body; on
    // entry the agent records it by its type alone.
    std::vector<std::string> sum = blockOf("Traced.Point::Sum");
    ASSERT_GE(sum.size(), 4u) << why();
    EXPECT_EQ(sum[1], "loadTrace this=Traced.Point") << why();
    EXPECT_EQ(sum[2], "pushTrace 0 System.Int32:10") << why();
    EXPECT_EQ(sum.back(), "finishTrace result=System.Int32:13") << why();
    EXPECT_NE(std::find(sum.begin(), sum.end(), "finishValueTypeTrace result=Traced.Point:(1,2)"), sum.end())
        << why();

    // T of the class, boxed as what it stands for.
    expectBlock("Traced.Box::Keep",
                {"loadTrace this=Traced.Box`1[[System.String, System.Private.CoreLib, Version=" + e2e::runtimeMajor() +
                     ".0.0.0, Culture=neutral, PublicKeyToken=7cec85d7bea7798e]]",
                 "pushTrace 0 System.String:kept", "startTrace", "finishTrace result=System.String:kept"});
    std::vector<std::string> get = blockOf("Traced.Box::Get");
    ASSERT_FALSE(get.empty()) << why();
    EXPECT_EQ(get.back(), "finishTrace result=System.String:content") << why();

    // The exception reaches the agent (the first case sees it reach the caller unchanged).
    expectBlock("Traced.Subject::Throws", {"loadTrace this=Traced.Subject", "pushTrace 0 System.Int32:5", "startTrace",
                                           "catchTrace System.InvalidOperationException:bad 5"});

    // The hidden Main, with its argument array, and its result at the end.
    std::vector<std::string> main = blockOf("Traced.Program::Main");
    ASSERT_GE(main.size(), 3u) << why();
    EXPECT_EQ(main[1], "loadTrace") << why();
    EXPECT_EQ(main[2], "pushTrace 0 System.String[1]") << why();
    EXPECT_EQ(main.back(), "finishTrace result=System.Int32:7") << why();

    // Type parameters of the method itself (!!T), alone and beside one of the
    // class (T).
    ASSERT_NE(reference.out.find("echo=98\npair=99\n"), std::string::npos) << reference.describe();
    const std::vector<std::string> echo = blockOf("Traced.Box::Echo");
    ASSERT_GE(echo.size(), 3u) << why();
    EXPECT_EQ(echo[2], "pushTrace 0 System.Int32:98") << why();
    EXPECT_EQ(echo.back(), "finishTrace result=System.Int32:98") << why();
    const std::vector<std::string> pair = blockOf("Traced.Box::Pair");
    EXPECT_EQ(std::vector<std::string>(pair.begin() + std::min<size_t>(pair.size(), 2), pair.end()),
              (std::vector<std::string>{"pushTrace 0 System.String:first", "pushTrace 1 System.Int32:99", "startTrace",
                                        "finishTrace result=System.Int32:99"}))
        << why();
}

}  // namespace
