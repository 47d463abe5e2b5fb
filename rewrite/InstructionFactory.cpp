#include "rewrite/InstructionFactory.h"

namespace {

constexpr unsigned int kShortToLongBranch = 13;

bool fitsInSignedByte(int value) { return value >= -128 && value <= 127; }

unsigned int opcodeBytes(Opcode opcode) {
    return static_cast<unsigned int>(opcode) > 0xFF ? 2 : 1;
}

Opcode toOpcode(unsigned int value) { return static_cast<Opcode>(value); }

// Short form of the local and argument opcodes: the long opcode's second byte
// plus 5 (ldloc FE 0C becomes ldloc_s 0x11).
unsigned int shortVariableOf(unsigned int longValue) { return (longValue >> 8) + 5; }
unsigned int longVariableOf(unsigned int shortValue) { return ((shortValue - 5) << 8) | 0xFE; }

bool isShortVariable(unsigned int value) { return value >= 0x0E && value <= 0x13; }

Instruction makeBranch(unsigned int value, int distance, unsigned int target) {
    unsigned int shortValue;
    if (value == static_cast<unsigned int>(Opcode::leave) || value == static_cast<unsigned int>(Opcode::leave_s)) {
        shortValue = static_cast<unsigned int>(Opcode::leave_s);
    } else {
        shortValue = value >= static_cast<unsigned int>(Opcode::br) ? value - kShortToLongBranch : value;
    }
    if (fitsInSignedByte(distance)) {
        return Instruction(toOpcode(shortValue), 1, static_cast<unsigned char>(distance), 1, target);
    }
    unsigned int longValue = shortValue == static_cast<unsigned int>(Opcode::leave_s)
                                 ? static_cast<unsigned int>(Opcode::leave)
                                 : shortValue + kShortToLongBranch;
    return Instruction(toOpcode(longValue), 1, static_cast<unsigned int>(distance), 4, target);
}

// The form of the table for opcodes that need no normalisation.
std::optional<Instruction> makePlain(const OpcodeInfo& info, unsigned long operand) {
    const Opcode opcode = info.opcode;
    switch (info.form) {
    case OperandForm::None:
        return Instruction(opcode, opcodeBytes(opcode), 0, 0, 0);
    case OperandForm::Byte:
        return Instruction(opcode, opcodeBytes(opcode), operand, 1, 0);
    case OperandForm::Word:
        return Instruction(opcode, opcodeBytes(opcode), operand, 4, 0);
    case OperandForm::DoubleWord:
        return Instruction(opcode, 1, operand, 8, 0);
    default:
        return std::nullopt;
    }
}

}  // namespace

std::optional<Instruction> newInstruction(Opcode opcode, unsigned long operand, unsigned int target) {
    const OpcodeInfo* info = findOpcode(opcode);
    if (info == nullptr) return std::nullopt;
    unsigned int value = static_cast<unsigned int>(opcode);
    int n = static_cast<int>(static_cast<unsigned int>(operand));

    switch (info->form) {
    case OperandForm::ShortBranch:
    case OperandForm::LongBranch:
        return makeBranch(value, n, target);
    case OperandForm::Case:
        return Instruction(Opcode::OPCODE_CASE, 0, static_cast<unsigned int>(operand), 4, target);
    case OperandForm::Label:
        return Instruction::label(static_cast<unsigned int>(operand));
    case OperandForm::Unsupported:
        return std::nullopt;
    case OperandForm::Variable:
        value = shortVariableOf(value);
        [[fallthrough]];
    default:
        break;
    }

    if (opcode == Opcode::ldc_i4 || opcode == Opcode::ldc_i4_s) {
        if (fitsInSignedByte(n)) return Instruction(Opcode::ldc_i4_s, 1, static_cast<unsigned char>(n), 1, 0);
        return Instruction(Opcode::ldc_i4, 1, static_cast<unsigned int>(n), 4, 0);
    }
    if (isShortVariable(value)) {
        if (fitsInSignedByte(n)) return Instruction(toOpcode(value), 1, static_cast<unsigned char>(n), 1, 0);
        // A 32-bit operand field where the file format has 16 bits: the runtime
        // reads the two zero bytes behind the index as two nops.
        return Instruction(toOpcode(longVariableOf(value)), 2, static_cast<unsigned int>(n), 4, 0);
    }
    return makePlain(*info, operand);
}

std::optional<Instruction> readInstruction(const unsigned char* code, unsigned int available) {
    if (available < 1) return std::nullopt;
    unsigned int value = code[0];
    unsigned int opcodeSize = 1;
    if (value == 0xFE) {
        if (available < 2) return std::nullopt;
        value |= static_cast<unsigned int>(code[1]) << 8;
        opcodeSize = 2;
    } else if (value > 0xE0) {
        return std::nullopt;
    }
    const OpcodeInfo* info = findOpcode(toOpcode(value));
    if (info == nullptr) return std::nullopt;

    Opcode opcode = info->opcode;
    const unsigned char* operand = code + opcodeSize;
    unsigned int left = available - opcodeSize;
    switch (info->form) {
    case OperandForm::None:
        return makePlain(*info, 0);
    case OperandForm::Byte:
        return left < 1 ? std::nullopt : makePlain(*info, operand[0]);
    case OperandForm::Word:
        return left < 4 ? std::nullopt : makePlain(*info, getLittleEndian<unsigned int>(operand));
    case OperandForm::DoubleWord:
        return left < 8 ? std::nullopt : makePlain(*info, getLittleEndian<unsigned long>(operand));
    case OperandForm::Variable:
        if (left < 2) return std::nullopt;
        return Instruction(opcode, opcodeSize, getLittleEndian<unsigned short>(operand), 2, 0);
    case OperandForm::ShortBranch:
        if (left < 1) return std::nullopt;
        return Instruction(opcode, 1, operand[0], 1, 0);
    case OperandForm::LongBranch:
        if (left < 4) return std::nullopt;
        return Instruction(opcode, 1, getLittleEndian<unsigned int>(operand), 4, 0);
    default:
        return std::nullopt;  // arglist
    }
}
