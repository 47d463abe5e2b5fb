// A label: names a place in the instruction list and occupies no bytes.
#pragma once

#include "rewrite/Instruction.h"

class Instruction_Label final : public Instruction {
public:
    explicit Instruction_Label(unsigned int label) : Instruction(Opcode::OPCODE_LABEL, 0), number(label) {}
    unsigned long operand() const override { return number; }
    const unsigned char* data() const override { return nullptr; }

private:
    unsigned int number;
};
