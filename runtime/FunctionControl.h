// What the runtime offers the profiler during GetReJITParameters to shape the
// recompilation of one method.
#pragma once

#include "runtime/ProfilerStructs.h"
#include "runtime/Unknown.h"

struct ICorProfilerFunctionControl : public IUnknown {
    virtual HRESULT SetCodegenFlags(DWORD flags) = 0;
    // Size first, then the body: the reverse of ICorProfilerInfo::SetILFunctionBody.
    virtual HRESULT SetILFunctionBody(ULONG cbNewILMethodHeader, LPCBYTE pbNewILMethodHeader) = 0;
    virtual HRESULT SetILInstrumentedCodeMap(ULONG cILMapEntries, COR_IL_MAP rgILMapEntries[]) = 0;
};
