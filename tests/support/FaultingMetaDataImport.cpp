#include "support/FaultingMetaDataImport.h"

#include "runtime/Guids.h"

FaultingMetaDataImport* FaultingMetaDataImport::wrap(IMetaDataImport* inner) {
    inner->AddRef();
    return new FaultingMetaDataImport(inner);
}

HRESULT FaultingMetaDataImport::QueryInterface(REFIID riid, void** ppvObject) {
    if (riid == IID_IUnknown || riid == IID_IMetaDataImport) {
        AddRef();
        *ppvObject = static_cast<IMetaDataImport*>(this);
        return S_OK;
    }
    return inner->QueryInterface(riid, ppvObject);
}

ULONG FaultingMetaDataImport::AddRef() {
    return ++references;
}

ULONG FaultingMetaDataImport::Release() {
    ULONG left = --references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT FaultingMetaDataImport::FindTypeDefByName(LPCWSTR szTypeDef, mdToken tkEnclosingClass, mdTypeDef* ptd) {
    soughtTypes.emplace_back(szTypeDef);
    auto failure = typeFailures.find(szTypeDef);
    if (failure != typeFailures.end()) {
        return failure->second;
    }
    return inner->FindTypeDefByName(szTypeDef, tkEnclosingClass, ptd);
}

HRESULT FaultingMetaDataImport::FindMethod(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                                           mdMethodDef* pmb) {
    auto failure = methodFailures.find(szName);
    if (failure != methodFailures.end()) {
        return failure->second;
    }
    return inner->FindMethod(td, szName, pvSigBlob, cbSigBlob, pmb);
}
