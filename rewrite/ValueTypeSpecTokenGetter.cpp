#include "rewrite/ValueTypeSpecTokenGetter.h"

#include <new>

#include "rewrite/IBlobOutputStream.h"
#include "runtime/Guids.h"
#include "runtime/MetaDataInterfaces.h"

namespace {

constexpr ULONG kGenericParamBatch = 10;

}  // namespace

IValueTypeSpecTokenGetter* IValueTypeSpecTokenGetter::newTokenGetter(ICorProfilerInfo* info) {
    return new ValueTypeSpecTokenGetter(info);
}

HRESULT ValueTypeSpecTokenGetter::getToken(unsigned long moduleID, unsigned int typeDef, unsigned int* token) {
    std::map<unsigned int, unsigned int>* tokens = nullptr;
    try {
        AutoPointer<std::map<unsigned int, unsigned int>>& slot = modules[moduleID];
        if (slot.get() == nullptr) slot = new std::map<unsigned int, unsigned int>();
        tokens = slot.get();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    auto found = tokens->find(typeDef);
    if (found != tokens->end()) {
        *token = found->second;
        return S_OK;
    }
    unsigned int resolved = 0;
    HRESULT hr = getTokenImpl(moduleID, typeDef, &resolved);
    if (SUCCEEDED(hr)) {
        try {
            (*tokens)[typeDef] = resolved;
        } catch (const std::bad_alloc&) {
            // Not kept: the next request resolves it again.
        }
        *token = resolved;
    }
    return hr;
}

HRESULT ValueTypeSpecTokenGetter::getTokenImpl(unsigned long moduleID, unsigned int typeDef, unsigned int* token) {
    AutoCOMPointer<IMetaDataImport2> import;
    HRESULT hr = info->GetModuleMetaData(moduleID, 0, IID_IMetaDataImport2, reinterpret_cast<IUnknown**>(&import));
    if (FAILED(hr)) return hr;

    unsigned int parameters = 0;
    HCORENUM enumerator = nullptr;
    mdGenericParam batch[kGenericParamBatch];
    ULONG count = 0;
    do {
        hr = import->EnumGenericParams(&enumerator, typeDef, batch, kGenericParamBatch, &count);
        if (FAILED(hr)) count = 0;
        parameters += count;
    } while (count > 0);
    if (enumerator != nullptr) import->CloseEnum(enumerator);
    if (FAILED(hr)) return hr;

    if (parameters == 0) {
        *token = typeDef;
        return S_OK;
    }

    AutoPointer<IBlobOutputStream> blob(IBlobOutputStream::newInstance());
    if (blob.get() == nullptr) return E_OUTOFMEMORY;
    hr = blob->writeByte(ELEMENT_TYPE_GENERICINST);
    if (SUCCEEDED(hr)) hr = blob->writeByte(ELEMENT_TYPE_VALUETYPE);
    if (SUCCEEDED(hr)) hr = blob->writeToken(typeDef);
    if (SUCCEEDED(hr)) hr = blob->writeNumber(parameters);
    for (unsigned int i = 0; i < parameters && SUCCEEDED(hr); ++i) {
        hr = blob->writeByte(ELEMENT_TYPE_VAR);
        if (SUCCEEDED(hr)) hr = blob->writeByte(static_cast<unsigned char>(i));
    }
    AutoCOMPointer<IMetaDataEmit> emit;
    if (SUCCEEDED(hr)) hr = import->QueryInterface(IID_IMetaDataEmit, reinterpret_cast<void**>(&emit));
    if (SUCCEEDED(hr)) hr = emit->GetTokenFromTypeSpec(blob->getBytes(), blob->getLength(), token);
    return hr;
}
