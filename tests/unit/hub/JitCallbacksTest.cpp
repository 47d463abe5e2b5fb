#include <gtest/gtest.h>

#include <set>

#include "ProfilerCallbackTestAccess.h"
#include "hub/ProfilerCallback.h"
#include "runtime/Guids.h"

namespace {

ProfilerCallback* newCallback() {
    void* out = nullptr;
    EXPECT_EQ(S_OK, ProfilerCallback::CreateObject(IID_ICorProfilerCallback4, &out));
    return static_cast<ProfilerCallback*>(static_cast<ICorProfilerCallback4*>(out));
}

}  // namespace

TEST(JitCallbacks, BeforeInitializeEveryEventLeavesTheRuntimeDefaults) {
    ProfilerCallback* callback = newCallback();
    EXPECT_EQ(S_OK, callback->JITCompilationStarted(0x1234, TRUE));
    EXPECT_EQ(S_OK, callback->JITCompilationStarted(0x1234, FALSE));
    BOOL useCached = TRUE;
    EXPECT_EQ(S_OK, callback->JITCachedFunctionSearchStarted(0x1234, &useCached));
    EXPECT_EQ(TRUE, useCached);
    BOOL shouldInline = TRUE;
    EXPECT_EQ(S_OK, callback->JITInlining(0x1, 0x1234, &shouldInline));
    EXPECT_EQ(TRUE, shouldInline);
    // Null answers are no reason to fail the runtime's call.
    EXPECT_EQ(S_OK, callback->JITCachedFunctionSearchStarted(0x1234, nullptr));
    EXPECT_EQ(S_OK, callback->JITInlining(0x1, 0x1234, nullptr));
    callback->Release();
}

TEST(JitCallbacks, RequestsAreBatchedByHundredTwentyEight) {
    ProfilerCallback* callback = newCallback();
    const int first = callback->RequestReJIT(0x10, 0x06000001, false);
    EXPECT_EQ(1, first);
    for (unsigned int i = 1; i < 127; ++i) {
        EXPECT_EQ(first, callback->RequestReJIT(0x10, 0x06000001 + i, false));
    }
    // The 128th entry fills the batch; the next one opens a new batch.
    EXPECT_EQ(first, callback->RequestReJIT(0x10, 0x06000080, false));
    EXPECT_EQ(2, callback->RequestReJIT(0x10, 0x06000081, false));

    // Reverts have batches of their own, numbered from the same counter.
    const int revert = callback->RequestReJIT(0x20, 0x06000001, true);
    EXPECT_EQ(3, revert);
    std::set<int> identifiers;
    for (unsigned int i = 1; i < 300; ++i) {
        identifiers.insert(callback->RequestReJIT(0x20, 0x06000001 + i, true));
    }
    // A full revert batch opens a ReJIT batch (4, 6) and a revert batch (5, 7).
    EXPECT_EQ((std::set<int> {3, 5, 7}), identifiers);
    callback->Release();
}

TEST(JitCallbacks, StatusRingKeepsTheNewestSixtyThreePairs) {
    ProfilerCallback* callback = newCallback();
    auto put = [&](int identifier) { ProfilerCallbackTestAccess::putReJITStatus(*callback, identifier, 0x100 + identifier); };
    // Before any batch went to the runtime every identifier is unknown.
    EXPECT_EQ(-1, callback->GetReJITStatus(1));
    EXPECT_EQ(-1, callback->GetReJITStatus(0));
    for (int identifier = 1; identifier <= 63; ++identifier) put(identifier);
    EXPECT_EQ(0x101, callback->GetReJITStatus(1));
    EXPECT_EQ(0x13F, callback->GetReJITStatus(63));
    // The newest pair in the slot before the last: a search for an absent
    // identifier ends all the same.
    EXPECT_EQ(-1, callback->GetReJITStatus(999));
    put(64);
    put(65);
    // 65 overwrote 1, and 2 is the next to go: neither is found.
    EXPECT_EQ(-1, callback->GetReJITStatus(1));
    EXPECT_EQ(-1, callback->GetReJITStatus(2));
    EXPECT_EQ(0x103, callback->GetReJITStatus(3));
    EXPECT_EQ(0x141, callback->GetReJITStatus(65));
    // Without a service thread a reload is only asked for, never waited on;
    // without the runtime's interface a round leaves the queues as they are.
    callback->ReloadDirectives(true);
    callback->RequestReJIT(0x10, 0x06000001, false);
    callback->ServiceReJITRequests();
    EXPECT_EQ(1u, ProfilerCallbackTestAccess::rejitRequests(*callback).size());
    callback->Release();
}
