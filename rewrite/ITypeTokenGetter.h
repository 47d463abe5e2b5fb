// A type described by assembly identity and name, turned into a token of any
// module on demand: the module's TypeDef if it defines the type, else a
// TypeRef, found or defined.
//
// Contract: no lock inside; called where instrumentMethod runs. Destroyed
// through this interface by its owner.
#pragma once

#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataStructs.h"

class ITypeTokenGetter {
public:
    // The getter behind a caching wrapper; null if it cannot be made. The
    // arguments are copied.
    static ITypeTokenGetter* newTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                            const unsigned char* publicKeyToken, unsigned int length,
                                            const ASSEMBLYMETADATA* metadata, const char16_t* className);

    virtual ~ITypeTokenGetter() = default;

    [[nodiscard]] virtual HRESULT getToken(unsigned long moduleID, unsigned int* token) = 0;
    // Forgets what was resolved in the module, which is going away.
    virtual void forgetModule(unsigned long moduleID) = 0;
};
