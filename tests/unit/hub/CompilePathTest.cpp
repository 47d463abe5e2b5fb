// The compile path with real methods: each case starts the callback object in
// a child process on a runtime that maps function ids to methods of the
// PolicyShapes and PolicyConsole assemblies, with directives beside the agent
// profile, and a recording engine in place of the real one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "ProfilerCallbackTestAccess.h"
#include "StartupChild.h"
#include "RecordingEngine.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr FunctionID kPlace = 0xA100;    // Shop.Order::Place, selected by a directive of its own
constexpr FunctionID kDispose = 0xA200;  // Shop.Order::Dispose, not selected
constexpr FunctionID kGetName = 0xA300;  // Shop.Order::GetName, not selected
constexpr FunctionID kPost = 0xA400;     // Billing.Internal.Ledger::Post, selected with its class
constexpr FunctionID kClose = 0xA500;    // Billing.Internal.Ledger::Close, selected with its class
constexpr FunctionID kCancel = 0xA600;   // Shop.Invoice::Cancel, not selected
constexpr FunctionID kMain = 0xA700;     // Program::Main, selected by the hidden directives
constexpr FunctionID kAdvance = 0xB100;  // PolicyConsole.Cursor::Advance, of a byref-like type
constexpr FunctionID kUnknown = 0xF000;  // unknown to the runtime

const char* const kPlaceName = "[PolicyShapes]Shop.Order::Place";
const char* const kDisposeName = "[PolicyShapes]Shop.Order::Dispose";
const char* const kPostName = "[PolicyShapes]Billing.Internal.Ledger::Post";

const char* const kDirectives =
    "TraceOneMethodOfClass: Shop.Order Place\n"
    "TraceAllMethodsOfClass: Billing.Internal.Ledger\n";

using CompileBody = std::function<void(ProfilerCallback&, ProfilerInfoDouble&, RecordingEngine&, std::ostream&)>;

// Runs the body after a start-up (a launch, or an attach) with the directives
// beside the profile and the recording engine in place; a refused start-up
// fails the test.
StartupOutcome runCompile(CompileBody body, const std::map<std::string, std::string>& properties = {},
                          const std::string& directives = kDirectives, bool attach = false) {
    StartupSetup setup;
    for (const auto& [key, value] : properties) setup.properties.insert_or_assign(key, value);
    setup.files["program.fmd"] = directives;
    setup.properties["harrowlite.fieldmark.directivesFile"] = "program.fmd";
    setup.attach = attach;
    setup.makeInfo = [] {
        auto* info = new ProfilerInfoDouble();
        const std::string shapes = RealAssemblies::testAsset("PolicyShapes");
        for (auto [type, method, id] : {std::tuple{u"Shop.Order", u"Place", kPlace}, {u"Shop.Order", u"Dispose", kDispose},
                                        {u"Shop.Order", u"GetName", kGetName}, {u"Billing.Internal.Ledger", u"Post", kPost},
                                        {u"Billing.Internal.Ledger", u"Close", kClose},
                                        {u"Shop.Invoice", u"Cancel", kCancel}, {u"Program", u"Main", kMain}}) {
            info->addMethod(shapes, type, method, id);
        }
        info->addMethod(RealAssemblies::testAsset("PolicyConsole"), u"PolicyConsole.Cursor", u"Advance", kAdvance);
        return info;
    };
    setup.body = [body](ProfilerCallback* callback, ProfilerInfoDouble* info, std::ostream& notes) {
        if (!info->error().empty()) {
            notes << "setup: " << info->error();
            return;
        }
        auto* engine = new RecordingEngine();
        ProfilerCallbackTestAccess::replaceEngine(*callback, engine);
        body(*callback, *info, *engine, notes);
    };
    StartupOutcome outcome = runStartup(setup);
    EXPECT_EQ(outcome.result, S_OK) << outcome.log;
    return outcome;
}

// Asks, as Main compiles, whether each callee may be inlined and be taken
// precompiled: both results, then both answers, a group per callee; then the
// number of engine calls.
CompileBody inliningAnswers(std::vector<FunctionID> callees) {
    return [callees](ProfilerCallback& callback, ProfilerInfoDouble&, RecordingEngine& engine, std::ostream& notes) {
        for (FunctionID callee : callees) {
            BOOL shouldInline = TRUE, useCached = TRUE;
            notes << callback.JITInlining(kMain, callee, &shouldInline)
                  << callback.JITCachedFunctionSearchStarted(callee, &useCached) << shouldInline << useCached << " ";
        }
        notes << engine.calls;
    };
}

// Whether the controller's memo holds a function.
bool remembered(ProfilerCallback& callback, FunctionID id) {
    return ProfilerCallbackTestAccess::controller(callback)->getCompiledMethods().count(id) != 0;
}

TEST(CompilePath, OnlySelectedMethodsReachTheEngineAndAreLogged) {
    StartupOutcome outcome =
        runCompile([](ProfilerCallback& callback, ProfilerInfoDouble&, RecordingEngine& engine, std::ostream& notes) {
            for (FunctionID id : {kPlace, kDispose, kPost, kCancel, kMain, kGetName}) {
                notes << callback.JITCompilationStarted(id, TRUE);
            }
            // A second compile of a selected method goes to the engine again,
            // which answers from its history with stage 0.
            engine.stepReached = 0;
            notes << callback.JITCompilationStarted(kPlace, TRUE) << "\n" << engine.instrumentedList();
        });
    EXPECT_EQ(outcome.notes, std::string("0000000\n") + kPlaceName + ";" + kPostName +
                                 ";[PolicyShapes]Program::Main;" + kPlaceName + ";")
        << outcome.log;
    // Unselected methods leave no line while the uninstrumented ones are not logged.
    for (const char* method : {"::Dispose", "::Cancel", "::GetName"}) EXPECT_THAT(outcome.log, Not(HasSubstr(method)));
}

TEST(CompilePath, ReentrantAndUnsafeCompilesPassUntouched) {
    StartupOutcome outcome = runCompile([](ProfilerCallback& callback, ProfilerInfoDouble& info,
                                           RecordingEngine& engine, std::ostream& notes) {
        // A compile that the engine's own work sets off on the same thread.
        engine.duringInstrument = [&] {
            const int lookups = info.calls("GetFunctionInfo");
            notes << "nested " << callback.JITCompilationStarted(kPost, TRUE) << " "
                  << info.calls("GetFunctionInfo") - lookups << " " << remembered(callback, kPost) << "\n";
        };
        callback.JITCompilationStarted(kPlace, TRUE);
        notes << engine.instrumentedList() << "\n";

        // Where the runtime says the profiler may not block, nothing is touched.
        const int lookups = info.calls("GetFunctionInfo");
        notes << "unsafe " << callback.JITCompilationStarted(kClose, FALSE) << " "
              << info.calls("GetFunctionInfo") - lookups << " " << remembered(callback, kClose) << "\n";

        // The guard is down again: both methods now take the whole path.
        callback.JITCompilationStarted(kPost, TRUE);
        callback.JITCompilationStarted(kClose, TRUE);
        notes << engine.instrumentedList();
    });
    EXPECT_EQ(outcome.notes, std::string("nested 0 0 0\n") + kPlaceName + ";\nunsafe 0 0 0\n" + kPlaceName + ";" +
                                 kPostName + ";[PolicyShapes]Billing.Internal.Ledger::Close;")
        << outcome.log;
}

TEST(CompilePath, EngineFailureIsLoggedAndLaterMethodsGoOn) {
    StartupOutcome outcome = runCompile(
        [](ProfilerCallback& callback, ProfilerInfoDouble&, RecordingEngine& engine, std::ostream& notes) {
            engine.instrumentResult = E_FAIL;
            engine.stepReached = 7;
            engine.lastError = u"Cannot resolve the trace functions";
            notes << callback.JITCompilationStarted(kPlace, TRUE) << callback.isDisabled();
            engine.instrumentResult = S_OK;
            engine.stepReached = 12;
            notes << callback.JITCompilationStarted(kPost, TRUE) << callback.JITCompilationStarted(kDispose, TRUE)
                  << "\n" << engine.instrumentedList();
        },
        {{"harrowlite.nativeprofiler.logAllMethodsNoticed", "true"}});
    EXPECT_EQ(outcome.notes, std::string("0000\n") + kPlaceName + ";" + kPostName + ";");
    // The failure line carries the result, the stage and the reason; the
    // method is not reported as processed, and the runtime compiles its own body.
    EXPECT_THAT(outcome.log, HasSubstr(std::string("Failed to instrument ") + kPlaceName + " - 0x80004005(07) - " +
                                       "[functionID = 0xa100] (Cannot resolve the trace functions)\n"));
    EXPECT_THAT(outcome.log, HasSubstr(std::string("Processed ") + kPostName + " \nProcessed " + kDisposeName + " \n"));
    EXPECT_THAT(outcome.log, Not(HasSubstr(std::string("Processed ") + kPlaceName)));
}

TEST(CompilePath, SelectedMethodsAreNeverInlinedNorTakenPrecompiled) {
    EXPECT_EQ(runCompile(inliningAnswers({kPlace, kPost, kDispose, kCancel, kUnknown})).notes,
              "0000 0000 0011 0011 0011 0");
}

TEST(CompilePath, DynamicInstrumentationKeepsEveryUnskippedCalleeACall) {
    const StartupOutcome outcome =
        runCompile(inliningAnswers({kPlace, kDispose, kCancel, kUnknown}),
                   {{"harrowlite.agent.remoteagentdynamicinstrumentation.enabled", "true"}},
                   std::string(kDirectives) + "SkipDynamicInstrumentationClass: Shop.Invoice\n");
    // Precompiled code is refused for the selected method alone; inlining for
    // every method that the dynamic skips do not name.
    EXPECT_EQ(outcome.notes, "0000 0001 0011 0011 0");
}

TEST(CompilePath, FirstMethodAfterAttachIsForcedThroughTheEngineAndReverted) {
    // The first method: unselected (forced, then reverted), selected anyway,
    // and of a byref-like type (never forced).
    for (auto [first, reachesEngine, reverted] :
         {std::tuple{kDispose, kDisposeName, true}, {kPlace, kPlaceName, false}, {kAdvance, "", false}}) {
        auto body = [first](ProfilerCallback& callback, ProfilerInfoDouble& info, RecordingEngine& engine,
                            std::ostream& notes) {
            callback.JITCompilationStarted(first, TRUE);
            notes << engine.instrumentedList() << "\n";
            const auto& reverts = ProfilerCallbackTestAccess::revertRequests(callback);
            ModuleID module = 0;
            mdToken token = 0;
            info.GetFunctionInfo(first, nullptr, &module, &token);
            for (const rejit_requests& batch : reverts) {
                for (unsigned int i = 0; i < batch.count; ++i) {
                    notes << "revert " << (batch.modules[i] == module && batch.methods[i] == token) << " ";
                }
            }
            notes << ProfilerCallbackTestAccess::rejitRequests(callback).size() << "\n";
            // The chance is used up: a later unselected method is left alone.
            engine.instrumented.clear();
            callback.JITCompilationStarted(kGetName, TRUE);
            callback.JITCompilationStarted(kCancel, TRUE);
            notes << engine.instrumentedList() << reverts.size();
        };
        StartupOutcome outcome = runCompile(body, {}, kDirectives, true);
        const std::string firstLine = *reachesEngine == 0 ? "" : std::string(reachesEngine) + ";";
        EXPECT_EQ(outcome.notes, firstLine + "\n" + (reverted ? "revert 1 " : "") + "0\n" + (reverted ? "1" : "0"))
            << first << " " << outcome.log;
    }
}

}  // namespace
