// Resolves a member of a class in a module: FindMember where the module
// defines the class, else a MemberRef, found or defined.
#pragma once

#include <vector>

#include "rewrite/TypeTokenGetter.h"

class MemberTokenGetter : public TypeTokenGetter {
public:
    MemberTokenGetter(ICorProfilerInfo* info, const char16_t* assembly, const unsigned char* publicKeyToken,
                      unsigned int length, const ASSEMBLYMETADATA* metadata, const char16_t* className,
                      const char16_t* memberName, const unsigned char* signature, unsigned int signatureLength);

    using TypeTokenGetter::getToken;
    HRESULT getToken(const ModuleMetaData& metadata, unsigned int* token) override;
    // The member of the class that TypeTokenGetter gave.
    [[nodiscard]] static HRESULT memberOf(const ModuleMetaData& module, unsigned int type, const char16_t* name,
                                          const unsigned char* bytes, unsigned int length, unsigned int* token);

protected:
    std::u16string memberName;
    std::vector<unsigned char> signature;
    unsigned int signatureLength;
};
