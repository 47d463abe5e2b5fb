// The last check of a rewritten body before the runtime gets it: the rules the
// runtime's compiler enforces with an InvalidProgramException, checked here so
// that a body that breaks one is never installed and the method keeps its own.
//
// It decodes with the rewrite's opcode table and walks every path: branch,
// switch and clause places on instruction starts; blocks entered only at a
// try's start and left only by leave, throw or the handler's own end; filter
// blocks left only by their last instruction, endfilter, with one number on
// the stack; clauses nested; the stack depth equal where paths meet, empty
// at a try's start, never below zero nor above MaxStack; argument and local
// numbers in range; `tail.` followed by a call and ret; and no unboxed value
// or pointer handed where a call expects an object.
//
// Contract: no lock inside, nothing thrown, nothing kept between calls but the
// callees' signatures, in the map the caller hands in for that.
#pragma once

#include "rewrite/VerifiedCallees.h"
#include "runtime/MetaDataInterfaces.h"

// What a body is checked against: the method it belongs to.
struct VerifiedMethod {
    const unsigned char* body;
    unsigned int size;  // bytes readable at body
    unsigned int argumentCount;  // `this` included
    unsigned int localCount;
    bool returnsValue;
    // The method's own signature and its local signature (null when it has no
    // locals), for the kinds of arguments and locals.
    const unsigned char* signature;
    unsigned int signatureLength;
    const unsigned char* localSignature;
    unsigned int localSignatureLength;
    // Where the callees' signatures are found.
    IMetaDataImport* import;
    // The module's callees already read, and where those read now are added;
    // null to read each one at each call.
    VerifiedCallees* callees = nullptr;
};

class BodyVerifier {
public:
    // S_OK when the body keeps every rule; E_FAIL with the first fault found
    // in reason (reasonSize units, terminated); E_OUTOFMEMORY.
    [[nodiscard]] static HRESULT verify(const VerifiedMethod& method, char16_t* reason, unsigned int reasonSize);
};
