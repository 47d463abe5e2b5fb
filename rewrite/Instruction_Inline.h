// An instruction with an inline operand: opcode bytes directly followed by the
// operand, little-endian.
#pragma once

#include "rewrite/Instruction.h"

template <typename OpcodeType, typename OperandType>
class Instruction_Inline final : public Instruction {
public:
    Instruction_Inline(Opcode opcode, OperandType operand) : opcodeValue(opcode) {
        putLittleEndian(bytes, static_cast<OpcodeType>(opcode));
        putLittleEndian(bytes + sizeof(OpcodeType), operand);
    }
    Opcode opcode() const override { return opcodeValue; }
    unsigned long operand() const override {
        return getLittleEndian<OperandType>(bytes + sizeof(OpcodeType));
    }
    unsigned int size() const override { return sizeof(bytes); }
    const unsigned char* data() const override { return bytes; }

private:
    Opcode opcodeValue;
    unsigned char bytes[sizeof(OpcodeType) + sizeof(OperandType)];
};
