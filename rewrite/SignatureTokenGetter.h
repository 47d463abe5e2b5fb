// A stand-alone signature in a module, by GetTokenFromSig, which finds an
// equal blob or adds it.
#pragma once

#include "platform/AutoPointer.h"
#include "rewrite/BaseTokenGetter.h"

class SignatureTokenGetter : public BaseTokenGetter {
public:
    // Takes over signature (new[]).
    SignatureTokenGetter(ICorProfilerInfo* info, unsigned char* signature, unsigned int length)
        : BaseTokenGetter(info), signature(signature), signatureLength(length) {}

    using BaseTokenGetter::getToken;
    HRESULT getToken(const ModuleMetaData& metadata, unsigned int* token) override;

protected:
    AutoArrayPointer<unsigned char> signature;
    unsigned int signatureLength;
};
