#include "rewrite/BaseTokenGetter.h"

#include "runtime/Guids.h"

HRESULT BaseTokenGetter::getToken(unsigned long moduleID, unsigned int* token) {
    ModuleMetaData metadata;
    HRESULT hr = gather(info, moduleID, metadata);
    return SUCCEEDED(hr) ? getToken(metadata, token) : hr;
}

HRESULT BaseTokenGetter::gather(ICorProfilerInfo* info, unsigned long moduleID, ModuleMetaData& metadata) {
    metadata.moduleID = moduleID;
    HRESULT hr = info->GetModuleMetaData(moduleID, 0, IID_IMetaDataImport,
                                         reinterpret_cast<IUnknown**>(&metadata.import));
    if (SUCCEEDED(hr)) {
        hr = metadata.import->QueryInterface(IID_IMetaDataEmit, reinterpret_cast<void**>(&metadata.emit));
    }
    if (SUCCEEDED(hr)) {
        hr = metadata.import->QueryInterface(IID_IMetaDataAssemblyImport,
                                             reinterpret_cast<void**>(&metadata.assemblyImport));
    }
    if (SUCCEEDED(hr)) {
        hr = metadata.import->QueryInterface(IID_IMetaDataAssemblyEmit,
                                             reinterpret_cast<void**>(&metadata.assemblyEmit));
    }
    return hr;
}
