// Resolves a member of a class that the module defines itself, by name: the
// trace functions of the shim that a module gets of its own.
#pragma once

#include <string>
#include <vector>

#include "rewrite/BaseTokenGetter.h"

class OwnMemberTokenGetter : public BaseTokenGetter {
public:
    OwnMemberTokenGetter(ICorProfilerInfo* info, const char16_t* className, const char16_t* memberName,
                         const unsigned char* signature, unsigned int signatureLength)
        : BaseTokenGetter(info),
          className(className),
          memberName(memberName),
          signature(signature, signature + signatureLength) {}

    using BaseTokenGetter::getToken;
    HRESULT getToken(const ModuleMetaData& module, unsigned int* token) override;

private:
    std::u16string className;
    std::u16string memberName;
    std::vector<unsigned char> signature;
};
