// A branch: the opcode followed by the distance from the end of the instruction
// to its target, with the label that names the target.
#pragma once

#include "rewrite/Instruction.h"

template <typename OpcodeType, typename OperandType>
class Instruction_Branch final : public Instruction {
public:
    Instruction_Branch(Opcode opcode, OperandType distance, unsigned int target)
        : Instruction(opcode, sizeof(bytes)), targetLabel(target) {
        putLittleEndian(bytes, static_cast<OpcodeType>(opcode));
        putLittleEndian(bytes + sizeof(OpcodeType), distance);
    }
    unsigned long operand() const override {
        return getLittleEndian<OperandType>(bytes + sizeof(OpcodeType));
    }
    unsigned int target() const override { return targetLabel; }
    void setTarget(unsigned int label) override { targetLabel = label; }
    const unsigned char* data() const override { return bytes; }

private:
    unsigned int targetLabel;
    unsigned char bytes[sizeof(OpcodeType) + sizeof(OperandType)];
};
