#include "shim/ShimSignature.h"

#include "rewrite/CorSig.h"
#include "runtime/CorMetadataEnums.h"

ShimSignature& ShimSignature::add(COR_SIGNATURE value) {
    blob.push_back(value);
    return *this;
}

ShimSignature& ShimSignature::add(const COR_SIGNATURE* values, ULONG count) {
    blob.insert(blob.end(), values, values + count);
    return *this;
}

ShimSignature& ShimSignature::addClass(mdToken type) {
    return add(ELEMENT_TYPE_CLASS).addToken(type);
}

ShimSignature& ShimSignature::addValueType(mdToken type) {
    return add(ELEMENT_TYPE_VALUETYPE).addToken(type);
}

ShimSignature& ShimSignature::addToken(mdToken type) {
    // A token of another table has no encoding: nothing is written, and the
    // signature then matches nothing and defines nothing of use.
    COR_SIGNATURE compressed[4];
    ULONG written = CorSigCompressToken(type, compressed);
    return written == kCorSigNoEncoding ? *this : add(compressed, written);
}
