// The two basic interfaces of the runtime's object model. Declarations here are
// binary layouts: pure virtual methods in slot order, no destructor, nothing else.
#pragma once

#include "runtime/CorErrors.h"
#include "runtime/CorTypes.h"

struct IUnknown {
    virtual HRESULT QueryInterface(REFIID riid, void** ppvObject) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;
};

struct IClassFactory : public IUnknown {
    virtual HRESULT CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
    virtual HRESULT LockServer(BOOL fLock) = 0;
};
