// Enumerators handed out by the runtime's profiling interfaces. All share one
// shape: Skip, Reset, Clone, GetCount, Next(count, array, fetched).
#pragma once

#include "runtime/ProfilerStructs.h"
#include "runtime/Unknown.h"

struct ICorProfilerModuleEnum : public IUnknown {
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(ICorProfilerModuleEnum** ppEnum) = 0;
    virtual HRESULT GetCount(ULONG* pcelt) = 0;
    virtual HRESULT Next(ULONG celt, ModuleID ids[], ULONG* pceltFetched) = 0;
};

struct ICorProfilerFunctionEnum : public IUnknown {
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(ICorProfilerFunctionEnum** ppEnum) = 0;
    virtual HRESULT GetCount(ULONG* pcelt) = 0;
    virtual HRESULT Next(ULONG celt, COR_PRF_FUNCTION ids[], ULONG* pceltFetched) = 0;
};

struct ICorProfilerThreadEnum : public IUnknown {
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(ICorProfilerThreadEnum** ppEnum) = 0;
    virtual HRESULT GetCount(ULONG* pcelt) = 0;
    virtual HRESULT Next(ULONG celt, ThreadID ids[], ULONG* pceltFetched) = 0;
};

struct ICorProfilerObjectEnum : public IUnknown {
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(ICorProfilerObjectEnum** ppEnum) = 0;
    virtual HRESULT GetCount(ULONG* pcelt) = 0;
    virtual HRESULT Next(ULONG celt, ObjectID objects[], ULONG* pceltFetched) = 0;
};

struct ICorProfilerMethodEnum : public IUnknown {
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(ICorProfilerMethodEnum** ppEnum) = 0;
    virtual HRESULT GetCount(ULONG* pcelt) = 0;
    virtual HRESULT Next(ULONG celt, COR_PRF_METHOD elements[], ULONG* pceltFetched) = 0;
};
