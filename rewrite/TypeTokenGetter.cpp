#include "rewrite/TypeTokenGetter.h"

TypeTokenGetter::TypeTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                 const unsigned char* publicKeyToken, unsigned int length,
                                 const ASSEMBLYMETADATA* metadata, const char16_t* className)
    : AssemblyTokenGetter(info, assembly, publicKeyToken, length, metadata), className(className) {}

HRESULT TypeTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    unsigned int assembly = 0;
    HRESULT hr = AssemblyTokenGetter::getToken(module, &assembly);
    if (FAILED(hr)) return hr;

    unsigned int type = 0;
    if (TypeFromToken(assembly) == mdtAssembly) {
        hr = module.import->FindTypeDefByName(className.c_str(), mdTokenNil, &type);
    } else {
        hr = module.import->FindTypeRef(assembly, className.c_str(), &type);
        if (FAILED(hr)) hr = module.emit->DefineTypeRefByName(assembly, className.c_str(), &type);
    }
    if (FAILED(hr)) return E_FAIL;
    *token = type;
    return hr;
}
