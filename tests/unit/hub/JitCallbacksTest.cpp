#include <gtest/gtest.h>


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
