// A TypeSpec blob, turned into a TypeSpec token of any module.
//
// Contract: no lock inside. Destroyed through this interface by its owner.
#pragma once

#include "runtime/CorProfilerInfo.h"

class ITypeSpecTokenGetter {
public:
    // Takes over signature (new[]), also when it returns null because the
    // getter cannot be made.
    static ITypeSpecTokenGetter* newTokenGetter(ICorProfilerInfo* info, unsigned char* signature,
                                                unsigned int length);

    virtual ~ITypeSpecTokenGetter() = default;

    [[nodiscard]] virtual HRESULT getToken(unsigned long moduleID, unsigned int* token) = 0;
    // Forgets what was resolved in the module, which is going away.
    virtual void forgetModule(unsigned long moduleID) = 0;
};
