#include <gtest/gtest.h>

#include <string>

#include "ProfilerCallbackTestAccess.h"
#include "StartupChild.h"
#include "RecordingEngine.h"
#include "offline/RefusingProfilerInfo.h"

TEST(ProfilerCallback, QueryInterfaceStopsAtCallback4) {
    ProfilerCallback* callback = ProfilerCallbackTestAccess::create();
    for (const IID* later : {&IID_ICorProfilerCallback11, &IID_ICorProfilerCallback10, &IID_ICorProfilerCallback9,
                             &IID_ICorProfilerCallback8, &IID_ICorProfilerCallback7, &IID_ICorProfilerCallback6,
                             &IID_ICorProfilerCallback5, &IID_IClassFactory, &IID_ICorProfilerInfo}) {
        void* out = callback;
        EXPECT_EQ(E_NOINTERFACE, callback->QueryInterface(*later, &out));
        EXPECT_EQ(nullptr, out);
    }
    ULONG references = 1;
    for (const IID* implemented : {&IID_IUnknown, &IID_ICorProfilerCallback, &IID_ICorProfilerCallback2,
                                   &IID_ICorProfilerCallback3, &IID_ICorProfilerCallback4}) {
        void* out = nullptr;
        EXPECT_EQ(S_OK, callback->QueryInterface(*implemented, &out));
        EXPECT_EQ(static_cast<ICorProfilerCallback4*>(callback), out);
        ++references;
    }
    // Each successful QueryInterface added one reference.
    while (references > 0) EXPECT_EQ(--references, callback->Release());
}



TEST(ProfilerCallback, InitializeWithoutAnyInfoIsRefused) {
    RefusingProfilerInfo info(0);
    ProfilerCallback* callback = ProfilerCallbackTestAccess::create();
    EXPECT_EQ(CORPROF_E_PROFILER_CANCEL_ACTIVATION, callback->Initialize(&info));
    EXPECT_EQ(nullptr, fpc);
    EXPECT_EQ(nullptr, callback->getProfilerInfo());
    EXPECT_EQ(3u, info.queried().size());
    callback->Release();
}

// Shutdown keeps the object, its fpc and its controller, but stops every
// compile: the test puts a context and a recording engine back after it, so
// that only the disabled state can keep the method away from them.
TEST(ProfilerCallback, ShutdownStopsCompileEventsAndReleasesTheRuntime) {
    StartupSetup setup;
    setup.makeInfo = [] {
        auto* info = new ProfilerInfoDouble();
        info->addMethod(RealAssemblies::testAsset("PolicyShapes"), u"Program", u"Main", 0xA700);
        return info;
    };
    setup.body = [](ProfilerCallback* callback, ProfilerInfoDouble* info, std::ostream& notes) {
        notes << info->error() << callback->isDisabled() << " " << std::hex << callback->getEventMask() << std::dec
              << " " << (info->references() > 0) << " ";
        notes << callback->Shutdown() << " " << info->calls("SetEventMask") << " " << std::hex
              << info->lastEventMask() << std::dec << " " << callback->isDisabled() << " "
              << callback->getTraceProfiler().isShuttingDown() << callback->getTraceProfiler().isEnabled() << " "
              << (callback->getProfilerInfo() == nullptr) << (ProfilerCallbackTestAccess::context(*callback) == nullptr)
              << " " << info->references() << " " << (fpc == callback) << " ";

        ProfilerCallbackTestAccess::replaceContext(*callback, IMetaDataContext::newInstance(info));
        auto* engine = new RecordingEngine();
        ProfilerCallbackTestAccess::replaceEngine(*callback, engine);
        const int before = info->totalCalls();
        notes << callback->JITCompilationStarted(0xA700, TRUE) << " " << info->totalCalls() - before << " "
              << engine->calls;
    };
    StartupOutcome outcome = runStartup(setup);
    ASSERT_EQ(S_OK, outcome.result) << outcome.log;
    // Before: enabled, with compile events in the mask; after: the same mask
    // without them, the runtime's references given back but the one the test
    // handed to its own context, and fpc still in place.
    EXPECT_EQ("0 1006022c 1 0 2 1006020c 1 10 11 0 1 0 0 0", outcome.notes) << outcome.log;
    EXPECT_NE(std::string::npos, outcome.log.find("Begin shutdown\n")) << outcome.log;
    EXPECT_TRUE(outcome.released);
}
