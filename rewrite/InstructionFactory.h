// Making and decoding instructions. Both return a new object that the caller
// releases with Instruction::destroy (or holds in an InstructionPtr).
#pragma once

#include <climits>

#include "rewrite/Instruction.h"

// A new instruction for the opcode, or null for an opcode outside the table (and
// for arglist). Branches, ldc_i4 and the local and argument opcodes come out in
// the short form when the operand, as a signed 32-bit number, lies in -128..127,
// whichever form was asked for; otherwise in the long form.
Instruction* newInstruction(Opcode opcode, unsigned long operand, unsigned int target);

// Decodes the instruction at code, without normalising its form; its target is 0.
// Null for bytes that are no opcode, or when the instruction would reach past the
// `available` bytes.
Instruction* readInstruction(const unsigned char* code, unsigned int available = UINT_MAX);
