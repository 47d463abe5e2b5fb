// Resolves a class of an assembly in a module: its TypeDef where the module
// is that assembly, else a TypeRef, found or defined.
#pragma once

#include "rewrite/AssemblyTokenGetter.h"

class TypeTokenGetter : public AssemblyTokenGetter {
public:
    TypeTokenGetter(ICorProfilerInfo* info, const char16_t* assembly, const unsigned char* publicKeyToken,
                    unsigned int length, const ASSEMBLYMETADATA* metadata, const char16_t* className);

    using AssemblyTokenGetter::getToken;
    HRESULT getToken(const ModuleMetaData& metadata, unsigned int* token) override;
    // The class under the assembly token that AssemblyTokenGetter gave.
    [[nodiscard]] static HRESULT classIn(const ModuleMetaData& module, unsigned int assembly, const char16_t* name,
                                         unsigned int* token);

protected:
    std::u16string className;
};
