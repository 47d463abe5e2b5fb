// The common shape of the descriptive token getters: gather the module's
// metadata interfaces, then resolve. One object serves whichever of the three
// interfaces its holder needs.
#pragma once

#include "rewrite/IMemberTokenGetter.h"
#include "rewrite/ISignatureTokenGetter.h"
#include "rewrite/ITypeTokenGetter.h"
#include "rewrite/ModuleMetaData.h"

class BaseTokenGetter : public ITypeTokenGetter, public IMemberTokenGetter, public ISignatureTokenGetter {
public:
    explicit BaseTokenGetter(ICorProfilerInfo* info) : info(info) {}

    HRESULT getToken(unsigned long moduleID, unsigned int* token) override;
    [[nodiscard]] virtual HRESULT getToken(const ModuleMetaData& metadata, unsigned int* token) = 0;
    // The module's metadata interfaces, for resolutions of one's own.
    [[nodiscard]] static HRESULT gather(ICorProfilerInfo* info, unsigned long moduleID, ModuleMetaData& metadata);
    // Keeps nothing.
    void forgetModule(unsigned long) override {}

protected:
    ICorProfilerInfo* info;
};
