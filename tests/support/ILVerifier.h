// An IL body checker for the rewrite tests, written apart from the rewrite's
// own opcode table and builder: it decodes a body as the runtime would
// receive it, checks that every branch, leave and switch target and every
// clause boundary is an instruction start, simulates the evaluation stack
// along every path (handlers and filters included) and checks the clauses'
// nesting. Callee signatures come from the module's metadata. Test-only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/MetaDataInterfaces.h"

class ILVerifier {
public:
    struct Instruction {
        uint32_t offset;
        uint32_t opcode;   // one byte, or 0xFE00 | second byte
        uint64_t operand;  // raw operand; branch and switch entries as targets below
        std::vector<uint32_t> targets;
    };
    struct Clause {
        uint32_t flags;
        uint32_t tryOffset, tryLength;
        uint32_t handlerOffset, handlerLength;
        uint32_t classOrFilter;
    };
    struct Result {
        std::vector<std::string> errors;
        bool fat = false;
        uint32_t flags = 0;
        uint32_t maxStack = 0;
        uint32_t codeSize = 0;
        uint32_t localSigToken = 0;
        uint32_t deepest = 0;  // greatest depth the simulation met
        std::vector<Instruction> instructions;
        std::vector<Clause> clauses;

        bool ok() const { return errors.empty(); }
        std::string describe() const;
        // Instructions with that opcode.
        unsigned int count(uint32_t opcode) const;
    };

    // returnsValue: whether the method's own ret carries a value.
    static Result verify(const unsigned char* body, IMetaDataImport* import, bool returnsValue);

    // Whether a method signature returns something other than void.
    static bool returnsValue(const unsigned char* signature, uint32_t length);
};
