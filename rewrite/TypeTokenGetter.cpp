#include "rewrite/TypeTokenGetter.h"

TypeTokenGetter::TypeTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                 const unsigned char* publicKeyToken, unsigned int length,
                                 const ASSEMBLYMETADATA* metadata, const char16_t* className)
    : AssemblyTokenGetter(info, assembly, publicKeyToken, length, metadata), className(className) {}

HRESULT TypeTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    unsigned int assembly = 0;
    HRESULT hr = AssemblyTokenGetter::getToken(module, &assembly);
    return SUCCEEDED(hr) ? classIn(module, assembly, className.c_str(), token) : hr;
}

HRESULT TypeTokenGetter::classIn(const ModuleMetaData& module, unsigned int assembly, const char16_t* name,
                                 unsigned int* token) {
    unsigned int type = 0;
    HRESULT hr = S_OK;
    if (TypeFromToken(assembly) == mdtAssembly) {
        hr = module.import->FindTypeDefByName(name, mdTokenNil, &type);
    } else {
        hr = module.import->FindTypeRef(assembly, name, &type);
        if (FAILED(hr)) hr = module.emit->DefineTypeRefByName(assembly, name, &type);
    }
    if (FAILED(hr)) return E_FAIL;
    *token = type;
    return hr;
}
