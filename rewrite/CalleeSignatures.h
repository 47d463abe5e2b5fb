// What the body check reads of signatures: whether a type surely is a
// reference, surely is none (a number, a value type, an address), or may be
// either (a generic parameter).
//
// Contract: static, no lock, nothing thrown, nothing kept.
#pragma once

#include <cstdint>

#include "rewrite/BlobInputStream.h"
#include "runtime/MetaDataInterfaces.h"

// Of a callee: which of its first kArguments arguments surely are
// references, which surely are not, and the kind of its result.
struct VerifiedCallee {
    static constexpr unsigned int kArguments = 64;
    uint64_t objects = 0;
    uint64_t values = 0;
    unsigned int parameters = 0;
    bool hasThis = false;
    bool explicitThis = false;
    bool returns = false;
    unsigned char result = 0;
};
class CalleeSignatures {
public:
    enum Kind : unsigned char { kUnknown, kObject, kValue };

    // The kind of the type at the stream's place, which it reads past.
    [[nodiscard]] static HRESULT readKind(BlobInputStream& stream, Kind* kind);
    // A method signature's parameters and result, into a callee that is
    // cleared.
    [[nodiscard]] static HRESULT read(const unsigned char* bytes, unsigned int length, VerifiedCallee* callee);
    // The same for the token a call names: a method, a member reference, a
    // stand-alone signature, or the method of an instantiation.
    [[nodiscard]] static HRESULT ofToken(IMetaDataImport* import, unsigned int token, VerifiedCallee* callee);
    static Kind kindOf(const VerifiedCallee& callee, unsigned int argument);
};
