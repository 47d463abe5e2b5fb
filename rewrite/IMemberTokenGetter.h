// A method described by its class, name and signature, turned into a token of
// any module on demand: a MethodDef in the module that defines it, else a
// MemberRef, found or defined.
//
// Contract: no lock inside; called where instrumentMethod runs. Destroyed
// through this interface by its owner.
#pragma once

#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataStructs.h"

class IMemberTokenGetter {
public:
    // The getter behind a caching wrapper; null if it cannot be made. The
    // arguments are copied.
    static IMemberTokenGetter* newTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                              const unsigned char* publicKeyToken, unsigned int length,
                                              const ASSEMBLYMETADATA* metadata, const char16_t* className,
                                              const char16_t* memberName, const unsigned char* signature,
                                              unsigned int signatureLength);

    // A member of a class that each module defines for itself, found by
    // name in the module in hand; behind the same caching wrapper.
    static IMemberTokenGetter* newOwnTokenGetter(ICorProfilerInfo* info, const char16_t* className,
                                                 const char16_t* memberName, const unsigned char* signature,
                                                 unsigned int signatureLength);

    virtual ~IMemberTokenGetter() = default;

    [[nodiscard]] virtual HRESULT getToken(unsigned long moduleID, unsigned int* token) = 0;
    // Forgets what was resolved in the module, which is going away.
    virtual void forgetModule(unsigned long moduleID) = 0;
};
