// A label: names a place in the instruction list and occupies no bytes.
#pragma once

#include "rewrite/Instruction.h"

class Instruction_Label final : public Instruction {
public:
    explicit Instruction_Label(unsigned int label) : number(label) {}
    Opcode opcode() const override { return Opcode::OPCODE_LABEL; }
    unsigned long operand() const override { return number; }
    unsigned int size() const override { return 0; }
    const unsigned char* data() const override { return nullptr; }

private:
    unsigned int number;
};
