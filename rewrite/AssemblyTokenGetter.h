// Resolves an assembly identity in a module: the module's own Assembly token
// if it is that assembly, else an AssemblyRef, found among the module's
// references or defined once.
#pragma once

#include <string>
#include <vector>

#include "rewrite/BaseTokenGetter.h"

class AssemblyTokenGetter : public BaseTokenGetter {
public:
    AssemblyTokenGetter(ICorProfilerInfo* info, const char16_t* assembly, const unsigned char* publicKeyToken,
                        unsigned int length, const ASSEMBLYMETADATA* metadata);

    using BaseTokenGetter::getToken;
    HRESULT getToken(const ModuleMetaData& metadata, unsigned int* token) override;

protected:
    // Versions do not count; name matches when it begins with assemblyName.
    bool matchAssembly(const char16_t* name, const void* key, unsigned long keyLength) const;

    std::u16string assemblyName;
    std::vector<unsigned char> publicKeyToken;
    unsigned int publicKeyTokenLength;
    ASSEMBLYMETADATA metadata;
};
