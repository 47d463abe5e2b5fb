#include "CountingMetaDataImport.h"

#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

CountingMetaDataImport* CountingMetaDataImport::wrap(IMetaDataImport* inner) {
    inner->AddRef();
    return new CountingMetaDataImport(inner);
}

CountingMetaDataImport::CountingMetaDataImport(IMetaDataImport* real) : inner(real) {}

int CountingMetaDataImport::calls(const std::string& method) const {
    auto found = perMethod.find(method);
    return found == perMethod.end() ? 0 : found->second;
}

void CountingMetaDataImport::resetCalls() {
    perMethod.clear();
    total = 0;
}

void CountingMetaDataImport::count(const char* method) {
    ++perMethod[method];
    ++total;
}

HRESULT CountingMetaDataImport::QueryInterface(REFIID riid, void** ppvObject) {
    if (riid == IID_IUnknown || riid == IID_IMetaDataImport) {
        AddRef();
        *ppvObject = static_cast<IMetaDataImport*>(this);
        return S_OK;
    }
    count("QueryInterface");
    return inner->QueryInterface(riid, ppvObject);
}

ULONG CountingMetaDataImport::AddRef() {
    return ++references;
}

ULONG CountingMetaDataImport::Release() {
    ULONG left = --references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT CountingMetaDataImport::FindTypeDefByName(LPCWSTR szTypeDef, mdToken tkEnclosingClass, mdTypeDef* ptd) {
    count("FindTypeDefByName");
    soughtTypes.emplace_back(szTypeDef);
    auto failure = typeFailures.find(szTypeDef);
    return failure != typeFailures.end() ? failure->second : inner->FindTypeDefByName(szTypeDef, tkEnclosingClass, ptd);
}

HRESULT CountingMetaDataImport::FindMethod(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                                           mdMethodDef* pmb) {
    count("FindMethod");
    auto failure = methodFailures.find(szName);
    return failure != methodFailures.end() ? failure->second : inner->FindMethod(td, szName, pvSigBlob, cbSigBlob, pmb);
}
