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
    if (written == kCorSigNoEncoding) return *this;
    marks.push_back({blob.size(), type});
    return add(compressed, written);
}

ShimSignature ShimSignature::rebound(const std::function<mdToken(mdToken)>& map) const {
    ShimSignature other;
    size_t copied = 0;
    for (const Mark& mark : marks) {
        other.add(blob.data() + copied, static_cast<ULONG>(mark.offset - copied)).addToken(map(mark.token));
        COR_SIGNATURE compressed[4];
        copied = mark.offset + CorSigCompressToken(mark.token, compressed);
    }
    return other.add(blob.data() + copied, static_cast<ULONG>(blob.size() - copied));
}
