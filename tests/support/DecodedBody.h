// A method body as the runtime receives it, read for the rewrite tests'
// assertions: the header, the instructions (through the rewrite's own
// decoder) and the clauses. Whether the body is valid IL is the product's
// verifier's question, asked before every install, and the runtime's in the
// end-to-end suite.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

class IMethodBuffer;

struct DecodedBody {
    struct Instruction {
        uint32_t offset;
        uint32_t opcode;  // one byte, or 0xFE00 | second byte
        uint64_t operand;
    };
    struct Clause {
        uint32_t flags;
        uint32_t tryOffset, tryLength;
        uint32_t handlerOffset, handlerLength;
        uint32_t classOrFilter;
    };

    // Empty when the body cannot be read.
    std::string error;
    bool fat = false;
    uint32_t flags = 0;
    uint32_t maxStack = 0;
    uint32_t codeSize = 0;
    uint32_t localSigToken = 0;
    std::vector<Instruction> instructions;
    std::vector<Clause> clauses;

    static DecodedBody read(const unsigned char* body);
    static std::vector<Clause> clausesOf(IMethodBuffer& buffer);
    bool ok() const { return error.empty(); }
    // Instructions with that opcode (and that operand, if given).
    unsigned int count(uint32_t opcode, std::optional<uint64_t> operand = std::nullopt) const;
};

// The element type a method signature returns, behind its custom modifiers.
unsigned char returnType(std::span<const unsigned char> signature);
