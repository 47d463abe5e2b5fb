// TypeSpec tokens for generic parameters by number: !n for ELEMENT_TYPE_VAR,
// !!n for ELEMENT_TYPE_MVAR. Numbers from 0 to 9 only.
//
// Contract: no lock inside. Destroyed through this interface by its owner.
#pragma once

#include "runtime/CorProfilerInfo.h"

class IVarTypeSpecTokenGetter {
public:
    // The most generic parameters that the rewrite can box.
    static constexpr unsigned int kParameterLimit = 10;

    // Null if it cannot be made.
    static IVarTypeSpecTokenGetter* newTokenGetter(ICorProfilerInfo* info, unsigned char elementType);

    virtual ~IVarTypeSpecTokenGetter() = default;

    // E_FAIL for a number of kParameterLimit or more.
    [[nodiscard]] virtual HRESULT getToken(unsigned long moduleID, unsigned char number, unsigned int* token) = 0;
    // Forgets what was resolved in the module, which is going away.
    virtual void forgetModule(unsigned long moduleID) = 0;
};
