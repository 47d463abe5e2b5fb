#include <gtest/gtest.h>

#include <cstddef>

#include "runtime/MetaDataStructs.h"
#include "runtime/ProfilerStructs.h"

// The layouts below are what the runtime reads and writes; a mismatch would not
// show until the runtime scribbles past a field.
static_assert(sizeof(GUID) == 16);
static_assert(offsetof(GUID, Data2) == 4 && offsetof(GUID, Data3) == 6 && offsetof(GUID, Data4) == 8);

static_assert(sizeof(OSINFO) == 12);
static_assert(sizeof(ASSEMBLYMETADATA) == 56);
static_assert(offsetof(ASSEMBLYMETADATA, usRevisionNumber) == 6);
static_assert(offsetof(ASSEMBLYMETADATA, szLocale) == 8);
static_assert(offsetof(ASSEMBLYMETADATA, cbLocale) == 16);
static_assert(offsetof(ASSEMBLYMETADATA, rProcessor) == 24);
static_assert(offsetof(ASSEMBLYMETADATA, ulProcessor) == 32);
static_assert(offsetof(ASSEMBLYMETADATA, rOS) == 40);
static_assert(offsetof(ASSEMBLYMETADATA, ulOS) == 48);
static_assert(sizeof(COR_FIELD_OFFSET) == 8);

static_assert(sizeof(COR_PRF_FUNCTION) == 16 && offsetof(COR_PRF_FUNCTION, reJitId) == 8);
static_assert(sizeof(COR_PRF_CODE_INFO) == 16 && offsetof(COR_PRF_CODE_INFO, size) == 8);
static_assert(sizeof(COR_PRF_METHOD) == 16 && offsetof(COR_PRF_METHOD, methodId) == 8);
static_assert(sizeof(COR_IL_MAP) == 12 && offsetof(COR_IL_MAP, fAccurate) == 8);
static_assert(sizeof(COR_DEBUG_IL_TO_NATIVE_MAP) == 12);
static_assert(sizeof(COR_PRF_FUNCTION_ARGUMENT_RANGE) == 16);
static_assert(sizeof(COR_PRF_FUNCTION_ARGUMENT_INFO) == 24 && offsetof(COR_PRF_FUNCTION_ARGUMENT_INFO, ranges) == 8);
static_assert(sizeof(COR_PRF_GC_GENERATION_RANGE) == 32 && offsetof(COR_PRF_GC_GENERATION_RANGE, rangeStart) == 8);
static_assert(sizeof(COR_PRF_EX_CLAUSE_INFO) == 32 && offsetof(COR_PRF_EX_CLAUSE_INFO, shadowStackPointer) == 24);

static_assert(sizeof(COR_PRF_MONITOR) == 4 && sizeof(COR_PRF_RUNTIME_TYPE) == 4 && sizeof(COR_PRF_JIT_CACHE) == 4);

TEST(StructLayout, EventMaskValuesCombineAsTheRuntimeDefinesThem) {
    EXPECT_EQ(0x00004400u, static_cast<DWORD>(COR_PRF_MONITOR_REMOTING_COOKIE));
    EXPECT_EQ(0x00008400u, static_cast<DWORD>(COR_PRF_MONITOR_REMOTING_ASYNC));
    EXPECT_EQ(0x80000000u, static_cast<DWORD>(COR_PRF_DISABLE_ALL_NGEN_IMAGES));
    EXPECT_EQ(0x20001800u, static_cast<DWORD>(COR_PRF_REQUIRE_PROFILE_IMAGE));
    EXPECT_EQ(static_cast<DWORD>(COR_PRF_CODEGEN_DISABLE_INLINING | COR_PRF_CODEGEN_DISABLE_ALL_OPTIMIZATIONS),
              static_cast<DWORD>(COR_PRF_CODEGEN_DEBUG_INFO));
    // Everything that may be switched on after attach, and nothing immutable among it.
    EXPECT_EQ(0x106502FEu, static_cast<DWORD>(COR_PRF_ALLOWABLE_AFTER_ATTACH));
    EXPECT_EQ(0u, static_cast<DWORD>(COR_PRF_ALLOWABLE_AFTER_ATTACH & COR_PRF_MONITOR_IMMUTABLE));
}
