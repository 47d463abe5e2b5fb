// One 32-bit entry of a switch table; its distance counts from the end of the
// whole table.
#pragma once

#include "rewrite/Instruction.h"

class Instruction_Case final : public Instruction {
public:
    Instruction_Case(unsigned int distance, unsigned int target)
        : Instruction(Opcode::OPCODE_CASE, sizeof(bytes)), targetLabel(target) {
        putLittleEndian(bytes, distance);
    }
    unsigned long operand() const override { return getLittleEndian<unsigned int>(bytes); }
    unsigned int target() const override { return targetLabel; }
    void setTarget(unsigned int label) override { targetLabel = label; }
    const unsigned char* data() const override { return bytes; }

private:
    unsigned int targetLabel;
    unsigned char bytes[4];
};
