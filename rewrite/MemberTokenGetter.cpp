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
    return SUCCEEDED(hr) ? memberOf(module, type, memberName.c_str(), signature.data(), signatureLength, token) : hr;
}

HRESULT MemberTokenGetter::memberOf(const ModuleMetaData& module, unsigned int type, const char16_t* name,
                                    const unsigned char* bytes, unsigned int length, unsigned int* token) {
    unsigned int member = 0;
    HRESULT hr = S_OK;
    if (TypeFromToken(type) == mdtTypeDef) {
        hr = module.import->FindMember(type, name, bytes, length, &member);
    } else {
        hr = module.import->FindMemberRef(type, name, bytes, length, &member);
        if (FAILED(hr)) hr = module.emit->DefineMemberRef(type, name, bytes, length, &member);
    }
    if (FAILED(hr)) return E_FAIL;
    *token = member;
    return hr;
}
