#include "rewrite/InstructionFactory.h"

#include <new>

#include "rewrite/Instruction_Branch.h"
#include "rewrite/Instruction_Case.h"
#include "rewrite/Instruction_Inline.h"
#include "rewrite/Instruction_Label.h"
#include "rewrite/Instruction_NoOperand.h"

namespace {

constexpr unsigned int kShortToLongBranch = 13;

// Each fits the block that Instruction's operator new hands out.
static_assert(sizeof(Instruction_Inline<unsigned short, unsigned long>) <= Instruction::kBlockSize);
static_assert(sizeof(Instruction_Branch<unsigned char, unsigned int>) <= Instruction::kBlockSize);
static_assert(sizeof(Instruction_Case) <= Instruction::kBlockSize);

bool fitsInSignedByte(int value) { return value >= -128 && value <= 127; }

bool isTwoByte(Opcode opcode) { return static_cast<unsigned int>(opcode) > 0xFF; }

Opcode toOpcode(unsigned int value) { return static_cast<Opcode>(value); }

// Short form of the local and argument opcodes: the long opcode's second byte
// plus 5 (ldloc FE 0C becomes ldloc_s 0x11).
unsigned int shortVariableOf(unsigned int longValue) { return (longValue >> 8) + 5; }
unsigned int longVariableOf(unsigned int shortValue) { return ((shortValue - 5) << 8) | 0xFE; }

bool isShortVariable(unsigned int value) { return value >= 0x0E && value <= 0x13; }

Instruction* makeBranch(unsigned int value, int distance, unsigned int target) {
    unsigned int shortValue;
    if (value == static_cast<unsigned int>(Opcode::leave) || value == static_cast<unsigned int>(Opcode::leave_s)) {
        shortValue = static_cast<unsigned int>(Opcode::leave_s);
    } else {
        shortValue = value >= static_cast<unsigned int>(Opcode::br) ? value - kShortToLongBranch : value;
    }
    if (fitsInSignedByte(distance)) {
        return new Instruction_Branch<unsigned char, unsigned char>(
            toOpcode(shortValue), static_cast<unsigned char>(distance), target);
    }
    unsigned int longValue = shortValue == static_cast<unsigned int>(Opcode::leave_s)
                                 ? static_cast<unsigned int>(Opcode::leave)
                                 : shortValue + kShortToLongBranch;
    return new Instruction_Branch<unsigned char, unsigned int>(
        toOpcode(longValue), static_cast<unsigned int>(distance), target);
}

// The class of the table for opcodes that need no normalisation.
Instruction* makePlain(const OpcodeInfo& info, unsigned long operand) {
    Opcode opcode = info.opcode;
    bool twoByte = isTwoByte(opcode);
    switch (info.form) {
    case OperandForm::None:
        if (twoByte) return new Instruction_NoOperand<unsigned short>(opcode);
        return new Instruction_NoOperand<unsigned char>(opcode);
    case OperandForm::Byte:
        if (twoByte) {
            return new
                Instruction_Inline<unsigned short, unsigned char>(opcode, static_cast<unsigned char>(operand));
        }
        return new
            Instruction_Inline<unsigned char, unsigned char>(opcode, static_cast<unsigned char>(operand));
    case OperandForm::Word:
        if (twoByte) {
            return new
                Instruction_Inline<unsigned short, unsigned int>(opcode, static_cast<unsigned int>(operand));
        }
        return new
            Instruction_Inline<unsigned char, unsigned int>(opcode, static_cast<unsigned int>(operand));
    case OperandForm::DoubleWord:
        return new Instruction_Inline<unsigned char, unsigned long>(opcode, operand);
    default:
        return nullptr;
    }
}

}  // namespace

Instruction* newInstruction(Opcode opcode, unsigned long operand, unsigned int target) {
    const OpcodeInfo* info = findOpcode(opcode);
    if (info == nullptr) return nullptr;
    unsigned int value = static_cast<unsigned int>(opcode);
    int n = static_cast<int>(static_cast<unsigned int>(operand));

    switch (info->form) {
    case OperandForm::ShortBranch:
    case OperandForm::LongBranch:
        return makeBranch(value, n, target);
    case OperandForm::Case:
        return new Instruction_Case(static_cast<unsigned int>(operand), target);
    case OperandForm::Label:
        return new Instruction_Label(static_cast<unsigned int>(operand));
    case OperandForm::Unsupported:
        return nullptr;
    case OperandForm::Variable:
        value = shortVariableOf(value);
        [[fallthrough]];
    default:
        break;
    }

    if (opcode == Opcode::ldc_i4 || opcode == Opcode::ldc_i4_s) {
        if (fitsInSignedByte(n)) {
            return new
                Instruction_Inline<unsigned char, unsigned char>(Opcode::ldc_i4_s, static_cast<unsigned char>(n));
        }
        return new
            Instruction_Inline<unsigned char, unsigned int>(Opcode::ldc_i4, static_cast<unsigned int>(n));
    }
    if (isShortVariable(value)) {
        if (fitsInSignedByte(n)) {
            return new
                Instruction_Inline<unsigned char, unsigned char>(toOpcode(value), static_cast<unsigned char>(n));
        }
        // A 32-bit operand field where the file format has 16 bits: the runtime
        // reads the two zero bytes behind the index as two nops.
        return new Instruction_Inline<unsigned short, unsigned int>(
            toOpcode(longVariableOf(value)), static_cast<unsigned int>(n));
    }
    return makePlain(*info, operand);
}

Instruction* readInstruction(const unsigned char* code, unsigned int available) {
    if (available < 1) return nullptr;
    unsigned int value = code[0];
    unsigned int opcodeSize = 1;
    if (value == 0xFE) {
        if (available < 2) return nullptr;
        value |= static_cast<unsigned int>(code[1]) << 8;
        opcodeSize = 2;
    } else if (value > 0xE0) {
        return nullptr;
    }
    const OpcodeInfo* info = findOpcode(toOpcode(value));
    if (info == nullptr) return nullptr;

    Opcode opcode = info->opcode;
    const unsigned char* operand = code + opcodeSize;
    unsigned int left = available - opcodeSize;
    switch (info->form) {
    case OperandForm::None:
        return makePlain(*info, 0);
    case OperandForm::Byte:
        return left < 1 ? nullptr : makePlain(*info, operand[0]);
    case OperandForm::Word:
        return left < 4 ? nullptr : makePlain(*info, getLittleEndian<unsigned int>(operand));
    case OperandForm::DoubleWord:
        return left < 8 ? nullptr : makePlain(*info, getLittleEndian<unsigned long>(operand));
    case OperandForm::Variable:
        if (left < 2) return nullptr;
        return new
            Instruction_Inline<unsigned short, unsigned short>(opcode, getLittleEndian<unsigned short>(operand));
    case OperandForm::ShortBranch:
        if (left < 1) return nullptr;
        return new Instruction_Branch<unsigned char, unsigned char>(opcode, operand[0], 0);
    case OperandForm::LongBranch:
        if (left < 4) return nullptr;
        return new
            Instruction_Branch<unsigned char, unsigned int>(opcode, getLittleEndian<unsigned int>(operand), 0);
    default:
        return nullptr;  // arglist
    }
}
