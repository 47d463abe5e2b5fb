// The factory that DllGetClassObject hands the runtime for one row of
// g_CoClasses. Deleted by its last Release.
#pragma once

#include <atomic>

#include "hub/CoClasses.h"

class CClassFactory final : public IClassFactory {
public:
    // Starts with one reference, the caller's.
    explicit CClassFactory(const COCLASS_REGISTER* coClass);

    HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override;
    HRESULT LockServer(BOOL fLock) override;

private:
    std::atomic<ULONG> referenceCount;
    const COCLASS_REGISTER* coClass;
};
