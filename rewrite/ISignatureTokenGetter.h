// A stand-alone signature blob, turned into a StandAloneSig token of any module.
//
// Contract: no lock inside. Destroyed through this interface by its owner.
#pragma once

#include "runtime/CorProfilerInfo.h"

class ISignatureTokenGetter {
public:
    // The getter behind a caching wrapper; null if it cannot be made. The
    // bytes are copied.
    static ISignatureTokenGetter* newTokenGetter(ICorProfilerInfo* info, unsigned char* signature,
                                                 unsigned int length);

    virtual ~ISignatureTokenGetter() = default;

    [[nodiscard]] virtual HRESULT getToken(unsigned long moduleID, unsigned int* token) = 0;
};
