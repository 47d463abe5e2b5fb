#include <gtest/gtest.h>

#include "hub/ProfilerCallback.h"
#include "runtime/Guids.h"
#include "support/FakeProfilerInfo.h"
#include "support/VtableSlotOf.h"

namespace {
ProfilerCallback* newCallback() {
    void* out = nullptr;
    EXPECT_EQ(S_OK, ProfilerCallback::CreateObject(IID_ICorProfilerCallback2, &out));
    return static_cast<ProfilerCallback*>(static_cast<ICorProfilerCallback4*>(out));
}
}  // namespace

TEST(ProfilerCallback, SlotsStandWhereTheRuntimeCallsThem) {
    EXPECT_EQ(3, vtableSlotOf(&ProfilerCallback::Initialize));
    EXPECT_EQ(4, vtableSlotOf(&ProfilerCallback::Shutdown));
    EXPECT_EQ(23, vtableSlotOf(&ProfilerCallback::JITCompilationStarted));
    EXPECT_EQ(80, vtableSlotOf(&ProfilerCallback::InitializeForAttach));
    EXPECT_EQ(88, vtableSlotOf(&ProfilerCallback::SurvivingReferences2));
}

TEST(ProfilerCallback, QueryInterfaceStopsAtCallback4) {
    ProfilerCallback* callback = newCallback();
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
    for (; references > 1; --references) {
        EXPECT_EQ(references - 1, callback->Release());
    }
    EXPECT_EQ(0u, callback->Release());
}

TEST(ProfilerCallback, ReferenceCountingAndFinalReleaseClearsFpc) {
    FakeProfilerInfo info;
    ProfilerCallback* callback = newCallback();
    EXPECT_EQ(nullptr, fpc);
    ASSERT_EQ(S_OK, callback->Initialize(&info));
    EXPECT_EQ(callback, fpc);
    EXPECT_EQ(1u, info.references());

    EXPECT_EQ(2u, callback->AddRef());
    EXPECT_EQ(3u, callback->AddRef());
    EXPECT_EQ(2u, callback->Release());
    EXPECT_EQ(1u, callback->Release());
    EXPECT_EQ(callback, fpc);
    EXPECT_EQ(0u, callback->Release());
    EXPECT_EQ(nullptr, fpc);
    // The info reference went with the object, and nothing else was asked of the runtime.
    EXPECT_EQ(0u, info.references());
    EXPECT_EQ(0, info.totalCalls());
}

TEST(ProfilerCallback, DestructionClearsFpcWhicheverObjectItPointsTo) {
    FakeProfilerInfo info;
    ProfilerCallback* first = newCallback();
    ASSERT_EQ(S_OK, first->Initialize(&info));
    ProfilerCallback* refused = newCallback();
    EXPECT_EQ(first, fpc);
    refused->Release();
    EXPECT_EQ(nullptr, fpc);
    first->Release();
}

TEST(ProfilerCallback, InitializeKeepsTheHighestInfoOffered) {
    struct Case {
        int offered;
        long clrVersion;
        bool reJIT;
        std::vector<const IID*> asked;
    };
    const Case cases[] = {
        {10, 4, true, {&IID_ICorProfilerInfo3, &IID_ICorProfilerInfo4}},
        {4, 4, true, {&IID_ICorProfilerInfo3, &IID_ICorProfilerInfo4}},
        {3, 4, false, {&IID_ICorProfilerInfo3, &IID_ICorProfilerInfo4}},
        {2, 2, false, {&IID_ICorProfilerInfo3, &IID_ICorProfilerInfo2}},
        {1, 1, false, {&IID_ICorProfilerInfo3, &IID_ICorProfilerInfo2, &IID_ICorProfilerInfo}},
    };
    for (const Case& c : cases) {
        FakeProfilerInfo info(c.offered);
        ProfilerCallback* callback = newCallback();
        EXPECT_EQ(S_OK, callback->Initialize(&info)) << c.offered;
        EXPECT_EQ(c.clrVersion, callback->getClrVersion()) << c.offered;
        EXPECT_EQ(c.reJIT, callback->getSupportsReJIT()) << c.offered;
        ASSERT_EQ(c.asked.size(), info.queried().size()) << c.offered;
        for (size_t i = 0; i < c.asked.size(); ++i) {
            EXPECT_TRUE(*c.asked[i] == info.queried()[i]) << c.offered << " question " << i;
        }
        EXPECT_EQ(static_cast<ICorProfilerInfo*>(&info), callback->getProfilerInfo());
        // Only the info kept holds a reference; the probe for Info4 gave its back.
        EXPECT_EQ(1u, info.references()) << c.offered;
        callback->Release();
    }
}

TEST(ProfilerCallback, InitializeWithoutAnyInfoIsRefused) {
    FakeProfilerInfo info(0);
    ProfilerCallback* callback = newCallback();
    EXPECT_EQ(CORPROF_E_PROFILER_CANCEL_ACTIVATION, callback->Initialize(&info));
    EXPECT_EQ(nullptr, fpc);
    EXPECT_EQ(nullptr, callback->getProfilerInfo());
    EXPECT_EQ(3u, info.queried().size());
    callback->Release();
}

TEST(ProfilerCallback, ShutdownStopsCompileEventsAndReleasesTheRuntime) {
    FakeProfilerInfo info;
    ProfilerCallback* callback = newCallback();
    ASSERT_EQ(S_OK, callback->Initialize(&info));
    EXPECT_FALSE(callback->isDisabled());
    EXPECT_EQ(static_cast<DWORD>(COR_PRF_MONITOR_JIT_COMPILATION), callback->getEventMask());

    EXPECT_EQ(S_OK, callback->Shutdown());
    EXPECT_EQ(1, info.calls("SetEventMask"));
    EXPECT_EQ(0u, info.lastEventMask() & COR_PRF_MONITOR_JIT_COMPILATION);
    EXPECT_TRUE(callback->isDisabled());
    EXPECT_TRUE(callback->getTraceProfiler().isShuttingDown());
    EXPECT_FALSE(callback->getTraceProfiler().isEnabled());
    EXPECT_EQ(nullptr, callback->getProfilerInfo());
    EXPECT_EQ(0u, info.references());
    // A late export call still finds the object.
    EXPECT_EQ(callback, fpc);

    int before = info.totalCalls();
    EXPECT_EQ(S_OK, callback->JITCompilationStarted(0x1234, TRUE));
    EXPECT_EQ(before, info.totalCalls());
    callback->Release();
    EXPECT_EQ(nullptr, fpc);
}

TEST(ProfilerCallback, AssemblyLoadsAndUnloadsAreUnsafeForSampling) {
    ProfilerCallback* callback = newCallback();
    TraceProfiler& sampling = callback->getTraceProfiler();
    EXPECT_FALSE(sampling.isUnsafe());
    EXPECT_EQ(S_OK, callback->AssemblyLoadStarted(1));
    EXPECT_TRUE(sampling.isUnsafe());
    EXPECT_EQ(S_OK, callback->AssemblyLoadFinished(1, S_OK));
    EXPECT_FALSE(sampling.isUnsafe());
    EXPECT_EQ(S_OK, callback->AssemblyUnloadStarted(1));
    EXPECT_TRUE(sampling.isUnsafe());
    EXPECT_EQ(S_OK, callback->AssemblyUnloadFinished(1, E_FAIL));
    EXPECT_FALSE(sampling.isUnsafe());
    callback->Release();
}

TEST(ProfilerCallback, AttachIsRecordedBeforeInitializing) {
    FakeProfilerInfo info;
    ProfilerCallback* callback = newCallback();
    EXPECT_FALSE(callback->IsProfilerAttached());
    EXPECT_EQ(S_OK, callback->InitializeForAttach(&info, nullptr, 0));
    EXPECT_TRUE(callback->IsProfilerAttached());
    EXPECT_EQ(callback, fpc);
    callback->Release();
}
