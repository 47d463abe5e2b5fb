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
    EXPECT_EQ(exported<int (*)(int)>(library, "Native_GetReJITStatus")(1), -1);
    exported<void (*)(bool)>(library, "Native_ReloadDirectives")(true);
    exported<void (*)(const char16_t*)>(library, "Native_AddDynamicDirective")(u"TraceAllMethodsOfClass: Shop");
    char16_t buffer[8] = {u'x', u'x'};
    exported<void (*)(char16_t*, int)>(library, "Native_GetAgentAttachEnvironmentVars")(buffer, 8);
    EXPECT_EQ(std::u16string(buffer), u"");
    EXPECT_NE(exported<unsigned int (*)()>(library, "Native_GetCurrentNativeThreadId")(), 0u);
    dlclose(library);
}

}  // namespace
