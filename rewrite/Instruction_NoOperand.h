// An instruction of one or two opcode bytes without operand.
#pragma once

#include "rewrite/Instruction.h"

template <typename OpcodeType>
class Instruction_NoOperand final : public Instruction {
public:
    explicit Instruction_NoOperand(Opcode opcode) : Instruction(opcode, sizeof(bytes)) {
        putLittleEndian(bytes, static_cast<OpcodeType>(opcode));
    }
    unsigned long operand() const override { return 0; }
    const unsigned char* data() const override { return bytes; }

private:
    unsigned char bytes[sizeof(OpcodeType)];
};
