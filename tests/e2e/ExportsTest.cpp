// The agent's door with no profiler behind it: the library loaded by dlopen
// into a process whose runtime never started it, each export giving the
// answer an agent must be able to rely on when the profiler is not there.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

namespace {

template <typename Function>
Function exported(void* library, const char* name) {
    void* symbol = dlsym(library, name);
    EXPECT_NE(symbol, nullptr) << name;
    return reinterpret_cast<Function>(symbol);
}

TEST(Exports, WithoutAProfilerEachGivesItsFixedAnswer) {
    void* library = dlopen(TARN_PROFILER_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();

    EXPECT_FALSE(exported<bool (*)()>(library, "Native_SupportsReJIT")());
    EXPECT_FALSE(exported<bool (*)()>(library, "Native_IsProfilerAttached")());
    EXPECT_TRUE(exported<bool (*)()>(library, "Native_isGenericAgentTriggerEnabled")());
    EXPECT_EQ(exported<int (*)(const char16_t*, const char16_t*, int)>(library, "Native_RequestReJIT")(
                  u"Shop.dll", u"Shop", 0x06000001),
              -1);
    exported<void (*)(bool)>(library, "Native_ReloadDirectives")(true);
    exported<void (*)(const char16_t*)>(library, "Native_AddDynamicDirective")(u"TraceAllMethodsOfClass: Shop");
    char16_t buffer[8] = {u'x', u'x'};
    exported<void (*)(char16_t*, int)>(library, "Native_GetAgentAttachEnvironmentVars")(buffer, 8);
    EXPECT_EQ(std::u16string(buffer), u"");
    EXPECT_NE(exported<unsigned int (*)()>(library, "Native_GetCurrentNativeThreadId")(), 0u);

    EXPECT_EQ(exported<int (*)(const char16_t*, unsigned int, int)>(library, "Native_StartProfilingForMethod")(
                  u"Shop.dll", 0x06000001, 0),
              -3);
    EXPECT_EQ(exported<int (*)(int, int)>(library, "Native_StartProfilingForThread")(1, 0), -3);
    for (const char* reader :
         {"Native_GetReJITStatus", "Native_StopProfiling", "Native_ReadStackSnapshotEntryCount",
          "Native_ReadStackSampleCount", "Native_ReadFailedStackSampleCount", "Native_CloseProfilingSession"}) {
        EXPECT_EQ(exported<int (*)(int)>(library, reader)(0), -1) << reader;
    }
    unsigned long functions[1], parents[1];
    int depths[1], counts[1];
    EXPECT_EQ(exported<int (*)(int, unsigned long*, unsigned long*, int*, int*)>(library, "Native_ReadStackSnapshots")(
                  0, functions, parents, depths, counts),
              -1);
    exported<void (*)(unsigned int)>(library, "Native_PushSamplingInterval")(5);
    exported<void (*)()>(library, "Native_PopSamplingInterval")();
    char16_t name[8] = {u'x', 0};
    exported<void (*)(unsigned long, char16_t*, int)>(library, "Native_GetClassForFunctionId")(1, name, 8);
    EXPECT_EQ(std::u16string(name), u"x");
    unsigned int token = 7;
    EXPECT_EQ(exported<int (*)(unsigned long, char16_t*, unsigned int, unsigned int*)>(
                  library, "Native_GetModuleAndMetadataTokensForFunctionId")(1, name, 8, &token),
              -1);
    EXPECT_EQ(token, 7u);
    EXPECT_EQ(exported<unsigned int (*)(unsigned long)>(library, "Native_GetMetadataTokenForFunctionId")(1), 0u);

    // The registry's decorated exports are called by the sampled program.
    EXPECT_EQ(dlsym(library, "Native_GetTraceData"), nullptr) << "only the decorated name";

    // The clock and thread exports, under their decorated names, need no profiler.
    void* thread = exported<void* (*)()>(library, "_Z23Native_GetCurrentThreadv")();
    EXPECT_NE(thread, nullptr);
    struct Time {
        unsigned int low, high;
    } times[4] = {};
    auto threadTimes =
        exported<int (*)(void*, Time*, Time*, Time*, Time*)>(library, "_Z21Native_GetThreadTimesPvP8FILETIMES1_S1_S1_");
    EXPECT_EQ(threadTimes(thread, &times[0], &times[1], &times[2], &times[3]), 1);
    EXPECT_NE(times[3].low | times[3].high, 0u);
    EXPECT_EQ(threadTimes(&times[0], &times[0], &times[1], &times[2], &times[3]), 0);
    long long counter = 0, frequency = 0;
    EXPECT_EQ(exported<int (*)(long long*)>(library, "_Z30Native_QueryPerformanceCounterP13LARGE_INTEGER")(&counter), 1);
    EXPECT_EQ(exported<int (*)(long long*)>(library, "_Z32Native_QueryPerformanceFrequencyP13LARGE_INTEGER")(&frequency),
              1);
    EXPECT_GT(counter, 0);
    EXPECT_GT(frequency, 0);
    dlclose(library);
}

}  // namespace
