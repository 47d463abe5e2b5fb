// Records and function types that cross the runtime's profiling interfaces.
#pragma once

#include "runtime/CorTypes.h"
#include "runtime/ProfilerEnums.h"

struct COR_PRF_FUNCTION {
    FunctionID functionId;
    ReJITID reJitId;
};

struct COR_PRF_CODE_INFO {
    UINT_PTR startAddress;
    SIZE_T size;
};

struct COR_PRF_METHOD {
    ModuleID moduleId;
    mdMethodDef methodId;
};

struct COR_IL_MAP {
    ULONG32 oldOffset;
    ULONG32 newOffset;
    BOOL fAccurate;
};

struct COR_DEBUG_IL_TO_NATIVE_MAP {
    ULONG32 ilOffset;
    ULONG32 nativeStartOffset;
    ULONG32 nativeEndOffset;
};

struct COR_PRF_FUNCTION_ARGUMENT_RANGE {
    UINT_PTR startAddress;
    ULONG length;
};

// Variable length: numRanges entries follow in ranges.
struct COR_PRF_FUNCTION_ARGUMENT_INFO {
    ULONG numRanges;
    ULONG totalArgumentSize;
    COR_PRF_FUNCTION_ARGUMENT_RANGE ranges[1];
};

struct COR_PRF_GC_GENERATION_RANGE {
    COR_PRF_GC_GENERATION generation;
    ObjectID rangeStart;
    UINT_PTR rangeLength;
    UINT_PTR rangeLengthReserved;
};

struct COR_PRF_EX_CLAUSE_INFO {
    COR_PRF_CLAUSE_TYPE clauseType;
    UINT_PTR programCounter;
    UINT_PTR framePointer;
    UINT_PTR shadowStackPointer;
};

// Called for each frame of DoStackSnapshot; funcId 0 stands for a run of native
// frames. Note the order (size, array), the reverse of DoStackSnapshot's.
using StackSnapshotCallback = HRESULT(FunctionID funcId, UINT_PTR ip, COR_PRF_FRAME_INFO frameInfo,
                                      ULONG32 contextSize, BYTE context[], void* clientData);
using ObjectReferenceCallback = BOOL (*)(ObjectID root, ObjectID* reference, void* clientData);
using FunctionIDMapper = UINT_PTR(FunctionID funcId, BOOL* pbHookFunction);
using FunctionIDMapper2 = UINT_PTR(FunctionID funcId, void* clientData, BOOL* pbHookFunction);
using FunctionEnter = void(FunctionID funcID);
using FunctionLeave = void(FunctionID funcID);
using FunctionTailcall = void(FunctionID funcID);
using FunctionEnter2 = void(FunctionID funcId, UINT_PTR clientData, COR_PRF_FRAME_INFO func,
                            COR_PRF_FUNCTION_ARGUMENT_INFO* argumentInfo);
using FunctionLeave2 = void(FunctionID funcId, UINT_PTR clientData, COR_PRF_FRAME_INFO func,
                            COR_PRF_FUNCTION_ARGUMENT_RANGE* retvalRange);
using FunctionTailcall2 = void(FunctionID funcId, UINT_PTR clientData, COR_PRF_FRAME_INFO func);
using FunctionEnter3 = void(FunctionIDOrClientID functionIDOrClientID);
using FunctionLeave3 = void(FunctionIDOrClientID functionIDOrClientID);
using FunctionTailcall3 = void(FunctionIDOrClientID functionIDOrClientID);
using FunctionEnter3WithInfo = void(FunctionIDOrClientID functionIDOrClientID, COR_PRF_ELT_INFO eltInfo);
using FunctionLeave3WithInfo = void(FunctionIDOrClientID functionIDOrClientID, COR_PRF_ELT_INFO eltInfo);
using FunctionTailcall3WithInfo = void(FunctionIDOrClientID functionIDOrClientID, COR_PRF_ELT_INFO eltInfo);

// The layouts the runtime reads and writes through the profiling interfaces.
static_assert(sizeof(COR_PRF_FUNCTION) == 16 && offsetof(COR_PRF_FUNCTION, reJitId) == 8);
static_assert(sizeof(COR_PRF_CODE_INFO) == 16 && offsetof(COR_PRF_CODE_INFO, size) == 8);
static_assert(sizeof(COR_PRF_METHOD) == 16 && offsetof(COR_PRF_METHOD, methodId) == 8);
static_assert(sizeof(COR_IL_MAP) == 12 && offsetof(COR_IL_MAP, fAccurate) == 8);
static_assert(sizeof(COR_DEBUG_IL_TO_NATIVE_MAP) == 12);
static_assert(sizeof(COR_PRF_FUNCTION_ARGUMENT_RANGE) == 16);
static_assert(sizeof(COR_PRF_FUNCTION_ARGUMENT_INFO) == 24 && offsetof(COR_PRF_FUNCTION_ARGUMENT_INFO, ranges) == 8);
static_assert(sizeof(COR_PRF_GC_GENERATION_RANGE) == 32 && offsetof(COR_PRF_GC_GENERATION_RANGE, rangeStart) == 8);
static_assert(sizeof(COR_PRF_EX_CLAUSE_INFO) == 32 && offsetof(COR_PRF_EX_CLAUSE_INFO, shadowStackPointer) == 24);
