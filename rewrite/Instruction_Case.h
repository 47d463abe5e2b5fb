// One 32-bit entry of a switch table; its distance counts from the end of the
// whole table.
#pragma once

#include "rewrite/Instruction.h"

class Instruction_Case final : public Instruction {
public:
    Instruction_Case(unsigned int distance, unsigned int target) : targetLabel(target) {
        putLittleEndian(bytes, distance);
    }
    Opcode opcode() const override { return Opcode::OPCODE_CASE; }
    unsigned long operand() const override { return getLittleEndian<unsigned int>(bytes); }
    unsigned int target() const override { return targetLabel; }
    void setTarget(unsigned int label) override { targetLabel = label; }
    unsigned int size() const override { return sizeof(bytes); }
    const unsigned char* data() const override { return bytes; }

private:
    unsigned int targetLabel;
    unsigned char bytes[4];
};
