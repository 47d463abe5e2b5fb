// The method trace registry under contention: the agent's threads register and
// mark at once. (Nothing installs the runtime's enter and leave hooks, so the
// records they would keep are never made in a process.)
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ProfilerCallbackTestAccess.h"
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

constexpr unsigned long kClass = 0x5000;
constexpr unsigned long kEnclosingClass = 0x6000;

// Eight threads register and mark at once: every registration is kept, and
// each thread finds its own books and only those.
TEST(MethodTraceRegistry, EightThreadsLoseNoUpdate) {
    ThreadsInfo info;
    ProfilerCallback* callback = ProfilerCallbackTestAccess::create();
    ProfilerCallbackTestAccess::replaceInfo(*callback, &info);
    callback->ToggleEnterLeaveFunctionHooks(true);
    // A BSTR as the agent's marshalling makes it: the byte length in front.
    const std::u16string text = u"Shop.Cart";
    std::vector<char16_t> units(text.size() + 3);
    const uint32_t bytes = static_cast<uint32_t>(text.size() * 2);
    std::memcpy(units.data(), &bytes, sizeof(bytes));
    std::copy(text.begin(), text.end(), units.begin() + 2);
    BSTR name = units.data() + 2;
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
    callback->Release();
}

}  // namespace
