#include "rewrite/MemberTokenGetter.h"

MemberTokenGetter::MemberTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                     const unsigned char* publicKeyToken, unsigned int length,
                                     const ASSEMBLYMETADATA* metadata, const char16_t* className,
                                     const char16_t* memberName, const unsigned char* signature,
                                     unsigned int signatureLength)
    : TypeTokenGetter(info, assembly, publicKeyToken, length, metadata, className),
      memberName(memberName),
      signature(signature, signature + signatureLength),
      signatureLength(signatureLength) {}

HRESULT MemberTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    unsigned int type = 0;
    HRESULT hr = TypeTokenGetter::getToken(module, &type);
    if (FAILED(hr)) return hr;

    unsigned int member = 0;
    if (TypeFromToken(type) == mdtTypeDef) {
        hr = module.import->FindMember(type, memberName.c_str(), signature.data(), signatureLength, &member);
    } else {
        hr = module.import->FindMemberRef(type, memberName.c_str(), signature.data(), signatureLength, &member);
        if (FAILED(hr)) {
            hr = module.emit->DefineMemberRef(type, memberName.c_str(), signature.data(), signatureLength, &member);
        }
    }
    if (FAILED(hr)) return E_FAIL;
    *token = member;
    return hr;
}
