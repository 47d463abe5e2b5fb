// Making and decoding instructions.
#pragma once

#include <climits>
#include <optional>

#include "rewrite/Instruction.h"

// The instruction for the opcode, or none for an opcode outside the table (and
// for arglist). Branches, ldc_i4 and the local and argument opcodes come out in
// the short form when the operand, as a signed 32-bit number, lies in -128..127,
// whichever form was asked for; otherwise in the long form.
std::optional<Instruction> newInstruction(Opcode opcode, unsigned long operand, unsigned int target);

// Decodes the instruction at code, without normalising its form; its target is 0.
// None for bytes that are no opcode, or when the instruction would reach past the
// `available` bytes.
std::optional<Instruction> readInstruction(const unsigned char* code, unsigned int available = UINT_MAX);
