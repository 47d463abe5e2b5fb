// A signature blob assembled by hand from bytes and compressed type tokens,
// for the signatures the shim emits and looks up.
#pragma once

#include <functional>
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

    // The same signature with each type token replaced by what map gives for
    // it: the form of a core library signature in another module.
    ShimSignature rebound(const std::function<mdToken(mdToken)>& map) const;

    const COR_SIGNATURE* bytes() const { return blob.data(); }
    ULONG length() const { return static_cast<ULONG>(blob.size()); }

private:
    ShimSignature& addToken(mdToken type);

    std::vector<COR_SIGNATURE> blob;
    // Where each type token begins, and the token.
    struct Mark {
        size_t offset;
        mdToken token;
    };
    std::vector<Mark> marks;
};
