// The name under which a value type's own methods box `this`: the TypeDef of a
// plain struct, or a TypeSpec over its own type parameters (Struct<!0, !1>)
// for a generic one. Tokens are kept per module for the life of the getter.
//
// Contract: no lock inside. Destroyed through this interface by its owner.
#pragma once

#include "runtime/CorProfilerInfo.h"

class IValueTypeSpecTokenGetter {
public:
    // Null if it cannot be made.
    static IValueTypeSpecTokenGetter* newTokenGetter(ICorProfilerInfo* info);

    virtual ~IValueTypeSpecTokenGetter() = default;

    [[nodiscard]] virtual HRESULT getToken(unsigned long moduleID, unsigned int typeDef, unsigned int* token) = 0;
    // Drops the tokens of an unloaded module, whose identifier may come again.
    virtual void forgetModule(unsigned long moduleID) = 0;
};
