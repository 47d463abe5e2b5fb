// The factories of the descriptive getters: each hands out its getter inside
// a CachedTokenGetter.
#include <new>

#include "rewrite/CachedTokenGetter.h"
#include "rewrite/MemberTokenGetter.h"
#include "rewrite/TypeSpecTokenGetter.h"

namespace {

CachedTokenGetter* wrap(BaseTokenGetter* getter) {
    if (getter == nullptr) return nullptr;
    CachedTokenGetter* cached = new (std::nothrow) CachedTokenGetter(getter);
    if (cached == nullptr) delete getter;
    return cached;
}

unsigned char* copyBytes(const unsigned char* bytes, unsigned int length) {
    unsigned char* copy = new (std::nothrow) unsigned char[length == 0 ? 1 : length];
    if (copy != nullptr) {
        for (unsigned int i = 0; i < length; ++i) copy[i] = bytes[i];
    }
    return copy;
}

}  // namespace

ITypeTokenGetter* ITypeTokenGetter::newTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                                   unsigned char* publicKeyToken, unsigned int length,
                                                   ASSEMBLYMETADATA* metadata, const char16_t* className) {
    try {
        return wrap(new TypeTokenGetter(info, assembly, publicKeyToken, length, metadata, className));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

IMemberTokenGetter* IMemberTokenGetter::newTokenGetter(ICorProfilerInfo* info, const char16_t* assembly,
                                                       unsigned char* publicKeyToken, unsigned int length,
                                                       ASSEMBLYMETADATA* metadata, const char16_t* className,
                                                       const char16_t* memberName, unsigned char* signature,
                                                       unsigned int signatureLength) {
    try {
        return wrap(new MemberTokenGetter(info, assembly, publicKeyToken, length, metadata, className, memberName,
                                          signature, signatureLength));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

ISignatureTokenGetter* ISignatureTokenGetter::newTokenGetter(ICorProfilerInfo* info, unsigned char* signature,
                                                             unsigned int length) {
    unsigned char* copy = copyBytes(signature, length);
    if (copy == nullptr) return nullptr;
    SignatureTokenGetter* getter = new (std::nothrow) SignatureTokenGetter(info, copy, length);
    if (getter == nullptr) delete[] copy;
    return wrap(getter);
}

ITypeSpecTokenGetter* ITypeSpecTokenGetter::newTokenGetter(ICorProfilerInfo* info, unsigned char* signature,
                                                           unsigned int length) {
    TypeSpecTokenGetter* getter = new (std::nothrow) TypeSpecTokenGetter(info, signature, length);
    if (getter == nullptr) delete[] signature;
    return wrap(getter);
}
