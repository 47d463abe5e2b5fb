// One IL instruction as the rewrite holds it: its opcode, operand, branch target
// label and exact encoded bytes.
#pragma once

#include "rewrite/Opcode.h"

class IILInstruction {
public:
    virtual Opcode opcode() const = 0;
    // The operand zero-extended from its encoded width; 0 when there is none.
    // Callers sign-extend branch distances themselves.
    virtual unsigned long operand() const = 0;
    // The label a branch or switch entry aims at; 0 when it has none.
    virtual unsigned int target() const = 0;
    virtual unsigned int size() const = 0;
    // The encoding: size() bytes, or null when size() is 0.
    virtual const unsigned char* data() const = 0;
    // The byte offset in the code it was decoded from, kept through changes of
    // form; kNoOrigin for code added by the rewrite.
    static constexpr unsigned int kNoOrigin = 0xFFFFFFFF;
    virtual unsigned int origin() const = 0;

protected:
    ~IILInstruction() = default;
};
