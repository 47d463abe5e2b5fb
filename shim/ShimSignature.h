// A signature blob assembled by hand from bytes and compressed type tokens,
// for the signatures the shim emits and looks up.
#pragma once

#include <vector>

#include "runtime/CorTypes.h"

class ShimSignature {
public:
    ShimSignature& add(COR_SIGNATURE value);
    ShimSignature& add(const COR_SIGNATURE* values, ULONG count);
    // ELEMENT_TYPE_CLASS and the compressed token.
    ShimSignature& addClass(mdToken type);
    // ELEMENT_TYPE_VALUETYPE and the compressed token.
    ShimSignature& addValueType(mdToken type);

    const COR_SIGNATURE* bytes() const { return blob.data(); }
    ULONG length() const { return static_cast<ULONG>(blob.size()); }

private:
    ShimSignature& addToken(mdToken type);

    std::vector<COR_SIGNATURE> blob;
};
