// The runtime's way in: it resolves this symbol by name after loading the library.
#include <new>

#include "hub/DllGetClassObject.h"

#include "hub/CClassFactory.h"

TARN_EXPORT HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    const COCLASS_REGISTER* coClass = g_CoClasses;
    while (coClass->pClsid != nullptr && !(*coClass->pClsid == rclsid)) {
        ++coClass;
    }
    if (coClass->pClsid == nullptr) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    CClassFactory* factory = nullptr;
    try {
        factory = new CClassFactory(coClass);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    HRESULT hr = factory->QueryInterface(riid, ppv);
    factory->Release();
    return hr;
}
