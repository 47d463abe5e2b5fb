// An instruction of one or two opcode bytes without operand.
#pragma once

#include "rewrite/Instruction.h"

template <typename OpcodeType>
class Instruction_NoOperand final : public Instruction {
public:
    explicit Instruction_NoOperand(Opcode opcode) : opcodeValue(opcode) {
        putLittleEndian(bytes, static_cast<OpcodeType>(opcode));
    }
    Opcode opcode() const override { return opcodeValue; }
    unsigned long operand() const override { return 0; }
    unsigned int size() const override { return sizeof(bytes); }
    const unsigned char* data() const override { return bytes; }

private:
    Opcode opcodeValue;
    unsigned char bytes[sizeof(OpcodeType)];
};
