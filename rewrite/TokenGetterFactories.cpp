// The factories of the descriptive getters: each hands out its getter inside
// a CachedTokenGetter.
#include <algorithm>
#include <memory>

#include "rewrite/CachedTokenGetter.h"
#include "rewrite/MemberTokenGetter.h"
#include "rewrite/OwnMemberTokenGetter.h"
#include "rewrite/TypeSpecTokenGetter.h"

namespace {

// Takes the getter over, also when the wrapper cannot be made.
CachedTokenGetter* wrap(BaseTokenGetter* getter) {
    std::unique_ptr<BaseTokenGetter> owned(getter);
    CachedTokenGetter* cached = new CachedTokenGetter(owned.get());
    owned.release();
    return cached;
}

}  // namespace

ITypeTokenGetter* ITypeTokenGetter::newTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                                   const unsigned char* publicKeyToken, unsigned int length,
                                                   const ASSEMBLYMETADATA* metadata, const char16_t* className) {
    return wrap(new TypeTokenGetter(info, assembly, publicKeyToken, length, metadata, className));
}

IMemberTokenGetter* IMemberTokenGetter::newTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                                       const unsigned char* publicKeyToken, unsigned int length,
                                                       const ASSEMBLYMETADATA* metadata, const char16_t* className,
                                                       const char16_t* memberName, const unsigned char* signature,
                                                       unsigned int signatureLength) {
    return wrap(new MemberTokenGetter(info, assembly, publicKeyToken, length, metadata, className, memberName,
                                      signature, signatureLength));
}

IMemberTokenGetter* IMemberTokenGetter::newOwnTokenGetter(ICorProfilerInfo* info, const char16_t* className,
                                                          const char16_t* memberName, const unsigned char* signature,
                                                          unsigned int signatureLength) {
    return wrap(new OwnMemberTokenGetter(info, className, memberName, signature, signatureLength));
}

ISignatureTokenGetter* ISignatureTokenGetter::newTokenGetter(ICorProfilerInfo* info, unsigned char* signature,
                                                             unsigned int length) {
    std::unique_ptr<unsigned char[]> copy(new unsigned char[length == 0 ? 1 : length]);
    std::copy_n(signature, length, copy.get());
    SignatureTokenGetter* getter = new SignatureTokenGetter(info, copy.get(), length);
    copy.release();
    return wrap(getter);
}

ITypeSpecTokenGetter* ITypeSpecTokenGetter::newTokenGetter(ICorProfilerInfo* info, unsigned char* signature,
                                                           unsigned int length) {
    std::unique_ptr<unsigned char[]> owned(signature);
    TypeSpecTokenGetter* getter = new TypeSpecTokenGetter(info, owned.get(), length);
    owned.release();
    return wrap(getter);
}
