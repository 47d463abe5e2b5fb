#include "hub/CClassFactory.h"

#include "runtime/Guids.h"

CClassFactory::CClassFactory(const COCLASS_REGISTER* coClass) : referenceCount(1), coClass(coClass) {}

HRESULT CClassFactory::QueryInterface(REFIID riid, void** ppvObject) {
    if (ppvObject == nullptr) {
        return E_POINTER;
    }
    if (riid == IID_IUnknown || riid == IID_IClassFactory) {
        *ppvObject = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    *ppvObject = nullptr;
    return E_NOINTERFACE;
}

ULONG CClassFactory::AddRef() {
    return ++referenceCount;
}

ULONG CClassFactory::Release() {
    ULONG count = --referenceCount;
    if (count == 0) {
        delete this;
    }
    return count;
}

HRESULT CClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) {
    if (pUnkOuter != nullptr) {
        return CLASS_E_NOAGGREGATION;
    }
    return coClass->pfnCreateObject(riid, ppvObject);
}

HRESULT CClassFactory::LockServer(BOOL fLock) {
    return S_OK;
}
