// TypeSpecs of single generic parameters (!n or !!n), one getter per number,
// made at the first request for it.
#pragma once

#include "platform/AutoPointer.h"
#include "rewrite/ITypeSpecTokenGetter.h"
#include "rewrite/IVarTypeSpecTokenGetter.h"

class VarTypeSpecTokenGetter : public IVarTypeSpecTokenGetter {
public:
    VarTypeSpecTokenGetter(ICorProfilerInfo* info, unsigned char elementType)
        : info(info), elementType(elementType) {}

    HRESULT getToken(unsigned long moduleID, unsigned char number, unsigned int* token) override;
    void forgetModule(unsigned long moduleID) override {
        for (AutoPointer<ITypeSpecTokenGetter>& getter : getters) {
            if (getter.get() != nullptr) getter->forgetModule(moduleID);
        }
    }

private:
    AutoPointer<ITypeSpecTokenGetter> getters[kParameterLimit];
    ICorProfilerInfo* info;
    unsigned char elementType;
};
