// An instruction with an inline operand: opcode bytes directly followed by the
// operand, little-endian.
#pragma once

#include "rewrite/Instruction.h"

template <typename OpcodeType, typename OperandType>
class Instruction_Inline final : public Instruction {
public:
    Instruction_Inline(Opcode opcode, OperandType operand) : Instruction(opcode, sizeof(bytes)) {
        putLittleEndian(bytes, static_cast<OpcodeType>(opcode));
        putLittleEndian(bytes + sizeof(OpcodeType), operand);
    }
    unsigned long operand() const override {
        return getLittleEndian<OperandType>(bytes + sizeof(OpcodeType));
    }
    const unsigned char* data() const override { return bytes; }

private:
    unsigned char bytes[sizeof(OpcodeType) + sizeof(OperandType)];
};
