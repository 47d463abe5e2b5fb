// The method trace registry without hooks installed by the runtime: the test
// calls the hooks' operations itself on the records the mapper would have made.
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

#include "ProfilerCallbackTestAccess.h"
#include "runtime/Guids.h"
#include "offline/RefusingProfilerInfo.h"

namespace {

// The runtime's thread identifier: one for each kernel thread.
class ThreadsInfo : public RefusingProfilerInfo {
public:
    HRESULT GetCurrentThreadID(ThreadID* thread) override {
        *thread = 0x10000 + static_cast<ThreadID>(syscall(SYS_gettid));
        return S_OK;
    }
};

// A BSTR as the agent's marshalling makes it: the byte length in front.
class Bstr {
public:
    explicit Bstr(const std::u16string& text) : units(text.size() + 3) {
        const uint32_t bytes = static_cast<uint32_t>(text.size() * 2);
        std::memcpy(units.data(), &bytes, sizeof(bytes));
        std::copy(text.begin(), text.end(), units.begin() + 2);
    }
    BSTR get() { return units.data() + 2; }

private:
    std::vector<char16_t> units;
};

class MethodTraceRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        void* out = nullptr;
        ASSERT_EQ(ProfilerCallback::CreateObject(IID_ICorProfilerCallback2, &out), S_OK);
        callback = static_cast<ProfilerCallback*>(static_cast<ICorProfilerCallback4*>(out));
        ProfilerCallbackTestAccess::replaceInfo(*callback, &info);
    }
    void TearDown() override { callback->Release(); }

    ThreadsInfo info;
    ProfilerCallback* callback = nullptr;
};

constexpr unsigned long kClass = 0x5000;
constexpr unsigned long kEnclosingClass = 0x6000;
constexpr unsigned int kEnclosingToken = 0x06000010;

TEST_F(MethodTraceRegistry, RecordsOfTracedMethodsWithinOneEnclosingRun) {
    Bstr text(u"Shop.Cart");
    BSTR name = text.get();
    EXPECT_EQ(callback->RegisterClassIdentifier(name, kClass), 0);
    // Owned by the callback from here on, as the mapper's records are.
    FunctionData& outer = *new FunctionData {0xF1, 0x06000001, name, false, 0};
    FunctionData& inner = *new FunctionData {0xF2, 0x06000002, name, false, 0};
    ProfilerCallbackTestAccess::addFunction(*callback, &outer);
    ProfilerCallbackTestAccess::addFunction(*callback, &inner);
    EXPECT_EQ(callback->RegisterMethodTrace(kClass, 0x06000001, kEnclosingClass, kEnclosingToken), 0);
    EXPECT_EQ(callback->RegisterMethodTrace(kClass, 0x06000002, kEnclosingClass, kEnclosingToken), 0);
    EXPECT_TRUE(outer.traced && inner.traced);
    EXPECT_EQ(outer.enclosingId, kEnclosingClass + kEnclosingToken);

    // Hooks off: the mark makes no books.
    callback->MarkEnteredEnclosingMethod(kEnclosingClass, kEnclosingToken, 1000);
    EXPECT_EQ(callback->GetMethodDataSlot(kEnclosingClass, kEnclosingToken), nullptr);

    callback->ToggleEnterLeaveFunctionHooks(true);
    callback->MarkEnteredEnclosingMethod(kEnclosingClass, kEnclosingToken, 1000);
    callback->FunctionEntered(&outer);
    callback->FunctionEntered(&inner);
    callback->FunctionEntered(&inner);  // recursion keeps one record
    callback->FunctionLeft(&inner);
    callback->FunctionLeft(&inner);

    MethodData out[2] = {};
    EXPECT_EQ(callback->GetTraceData(kEnclosingClass, kEnclosingToken, out, 0), 0);
    ASSERT_EQ(callback->GetTraceData(kEnclosingClass, kEnclosingToken, out, 2), 2);
    // Order of first entry, depth on entry, the state before this read.
    EXPECT_EQ(out[0].depth, 1u);
    EXPECT_EQ(out[1].depth, 2u);
    EXPECT_EQ(out[0].state, 0u);
    EXPECT_EQ(out[0].endTime, 0);
    EXPECT_GE(out[1].endTime, 1000);
    EXPECT_GE(out[0].startTime, 1000);
    EXPECT_EQ(callback->GetTraceData(kEnclosingClass, kEnclosingToken, out, 2), 2);
    EXPECT_EQ(out[0].state, 1u) << "seen while running";
    EXPECT_EQ(out[1].state, 2u) << "seen after it ended";

    // Unregistered: the hooks leave it alone. Unknown classes change nothing.
    EXPECT_EQ(callback->UnregsiterMethodTrace(kClass, 0x06000001), 0);
    EXPECT_FALSE(outer.traced);
    EXPECT_EQ(callback->UnregsiterMethodTrace(0x9999, 0x06000002), 0);
    EXPECT_TRUE(inner.traced);

    callback->MarkExitEnclosingMethod(kEnclosingClass, kEnclosingToken);
    EXPECT_EQ(callback->GetTraceData(kEnclosingClass, kEnclosingToken, out, 2), 0);
}

// Eight threads register and mark at once: every registration is kept, and
// each thread finds its own books and only those.
TEST_F(MethodTraceRegistry, EightThreadsLoseNoUpdate) {
    callback->ToggleEnterLeaveFunctionHooks(true);
    Bstr text(u"Shop.Cart");
    BSTR name = text.get();
    std::vector<std::thread> threads;
    std::vector<int> found(8, 0);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned int i = 0; i < 500; ++i) {
                callback->RegisterClassIdentifier(name, kClass + t);
                callback->MarkEnteredEnclosingMethod(kEnclosingClass * (t + 1), i, 0);
            }
            for (unsigned int i = 0; i < 500; ++i) {
                found[t] += callback->GetMethodDataSlot(kEnclosingClass * (t + 1), i) != nullptr;
                found[t] += callback->GetMethodDataSlot(kEnclosingClass * (t == 0 ? 2 : 1), i) != nullptr;
                callback->MarkExitEnclosingMethod(kEnclosingClass * (t + 1), i);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(ProfilerCallbackTestAccess::classIdentifierCount(*callback), 4000u);
    for (int t = 0; t < 8; ++t) EXPECT_EQ(found[t], 500) << "thread " << t;
}

}  // namespace
