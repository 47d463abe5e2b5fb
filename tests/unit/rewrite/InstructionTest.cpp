#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

#include "rewrite/InstructionFactory.h"

namespace {

InstructionPtr make(Opcode opcode, unsigned long operand, unsigned int target = 0) {
    return InstructionPtr(newInstruction(opcode, operand, target));
}

InstructionPtr read(std::vector<unsigned char> bytes) {
    return InstructionPtr(readInstruction(bytes.data(), static_cast<unsigned int>(bytes.size())));
}

std::vector<unsigned char> bytesOf(const IILInstruction& instruction) {
    return std::vector<unsigned char>(instruction.data(), instruction.data() + instruction.size());
}

}  // namespace

TEST(OpcodeTable, OrderNamesAndOperandSizesFollowTheEncoding) {
    EXPECT_EQ(gOpcodeArray[0].opcode, Opcode::OPCODE_CASE);
    EXPECT_STREQ(gOpcodeArray[0].name, "case");
    EXPECT_STREQ(gOpcodeArray[1].name, "label");
    EXPECT_EQ(gOpcodeArray[1].operandSize, 4u);

    // One-byte opcodes by value, then the two-byte ones by value.
    unsigned int previous = 0;
    bool first = true;
    size_t count = 0;
    for (const OpcodeInfo* info = gOpcodeArray + 2; info->name != nullptr; ++info, ++count) {
        unsigned int value = static_cast<unsigned int>(info->opcode);
        unsigned int order = value < 0x100 ? value : 0x100 + (value >> 8);
        if (!first) {
            EXPECT_LT(previous, order) << info->name;
        }
        previous = order;
        first = false;
        EXPECT_EQ(std::strchr(info->name, '.'), nullptr);
    }
    EXPECT_EQ(count, 219u);  // ECMA-335 Partition III lists 219 instructions

    EXPECT_EQ(static_cast<unsigned int>(Opcode::ret), 0x2Au);
    EXPECT_EQ(static_cast<unsigned int>(Opcode::ldloc), 0x0CFEu);
    EXPECT_EQ(static_cast<unsigned int>(Opcode::rethrow), 0x1AFEu);
    EXPECT_STREQ(findOpcode(Opcode::unbox_any)->name, "unbox_any");
    EXPECT_STREQ(findOpcode(Opcode::conv_ovf_i1_un)->name, "conv_ovf_i1_un");
    EXPECT_STREQ(findOpcode(Opcode::volatile_)->name, "volatile");
    EXPECT_STREQ(findOpcode(Opcode::and_)->name, "and");
    EXPECT_EQ(findOpcode(Opcode::ldloc)->operandSize, 4u);
    EXPECT_EQ(findOpcode(Opcode::unaligned)->operandSize, 1u);
    EXPECT_EQ(findOpcode(Opcode::no)->operandSize, 1u);
    EXPECT_EQ(findOpcode(Opcode::ldc_r8)->operandSize, 8u);
    EXPECT_EQ(findOpcode(Opcode::br_s)->operandSize, 1u);
    EXPECT_EQ(findOpcode(Opcode::leave)->operandSize, 4u);
    EXPECT_EQ(findOpcode(static_cast<Opcode>(0x24)), nullptr);
    EXPECT_EQ(findOpcode(static_cast<Opcode>(0x08FE)), nullptr);

    initializeOpcodeMap();
    EXPECT_EQ(gOpcodeMap[opcodeSlot(0x2A)], findOpcode(Opcode::ret));
}

TEST(NewInstruction, RefusesOpcodesOutsideTheTable) {
    EXPECT_EQ(make(static_cast<Opcode>(0x24), 0), nullptr);
    EXPECT_EQ(make(static_cast<Opcode>(0x08FE), 0), nullptr);
    EXPECT_EQ(make(Opcode::arglist, 0), nullptr);
    EXPECT_EQ(make(static_cast<Opcode>(0x9000), 0), nullptr);
}

TEST(NewInstruction, LocalsAndArgumentsTakeTheShortFormInSignedByteRange) {
    InstructionPtr small = make(Opcode::ldloc, 127);
    EXPECT_EQ(small->opcode(), Opcode::ldloc_s);
    EXPECT_EQ(bytesOf(*small), (std::vector<unsigned char>{0x11, 0x7F}));

    InstructionPtr wide = make(Opcode::ldloc, 128);
    EXPECT_EQ(wide->opcode(), Opcode::ldloc);
    EXPECT_EQ(bytesOf(*wide), (std::vector<unsigned char>{0xFE, 0x0C, 0x80, 0x00, 0x00, 0x00}));
    EXPECT_EQ(wide->operand(), 128u);

    EXPECT_EQ(make(Opcode::stloc_s, 300)->opcode(), Opcode::stloc);
    EXPECT_EQ(make(Opcode::starg, 2)->opcode(), Opcode::starg_s);
    EXPECT_EQ(make(Opcode::ldarga, 1)->data()[0], 0x0F);
    EXPECT_EQ(make(Opcode::ldloca, 255)->size(), 6u);  // unsigned 255 is no signed byte

    // ldc_i4 likewise, and the named constants stay as asked.
    EXPECT_EQ(bytesOf(*make(Opcode::ldc_i4, static_cast<unsigned int>(-5))), (std::vector<unsigned char>{0x1F, 0xFB}));
    EXPECT_EQ(bytesOf(*make(Opcode::ldc_i4_s, 1000)), (std::vector<unsigned char>{0x20, 0xE8, 0x03, 0x00, 0x00}));
    EXPECT_EQ(make(Opcode::ldc_i4_3, 0)->size(), 1u);
    EXPECT_EQ(make(Opcode::ldloc_0, 0)->opcode(), Opcode::ldloc_0);
}

TEST(NewInstruction, BranchesPickTheirFormByDistanceAndKeepTheirTarget) {
    InstructionPtr shortBranch = make(Opcode::br, 0, 5);
    EXPECT_EQ(shortBranch->opcode(), Opcode::br_s);
    EXPECT_EQ(shortBranch->target(), 5u);
    EXPECT_EQ(shortBranch->size(), 2u);

    InstructionPtr longBranch = make(Opcode::br_s, 200, 5);
    EXPECT_EQ(longBranch->opcode(), Opcode::br);
    EXPECT_EQ(longBranch->target(), 5u);
    EXPECT_EQ(bytesOf(*longBranch), (std::vector<unsigned char>{0x38, 0xC8, 0x00, 0x00, 0x00}));

    InstructionPtr leave = make(Opcode::leave_s, static_cast<unsigned int>(-129), 5);
    EXPECT_EQ(leave->opcode(), Opcode::leave);
    EXPECT_EQ(make(Opcode::leave, 10, 1)->opcode(), Opcode::leave_s);
    EXPECT_EQ(make(Opcode::blt_un, 127, 1)->opcode(), Opcode::blt_un_s);
    EXPECT_EQ(make(Opcode::brtrue_s, 128, 1)->opcode(), Opcode::brtrue);

    // A backward short branch reports its unsigned byte.
    InstructionPtr backward = make(Opcode::br, static_cast<unsigned int>(-2), 1);
    EXPECT_EQ(backward->operand(), 0xFEu);

    // Setting a target applies to branches and switch entries only.
    backward->setTarget(9);
    EXPECT_EQ(backward->target(), 9u);
    InstructionPtr plain = make(Opcode::nop, 0);
    plain->setTarget(9);
    EXPECT_EQ(plain->target(), 0u);
}

TEST(NewInstruction, PseudoInstructionsCaseAndLabel) {
    InstructionPtr label = make(Opcode::OPCODE_LABEL, 0x80000001);
    EXPECT_EQ(label->size(), 0u);
    EXPECT_EQ(label->data(), nullptr);
    EXPECT_EQ(static_cast<unsigned int>(label->opcode()), 0x8002u);
    EXPECT_EQ(label->operand(), 0x80000001u);

    InstructionPtr entry = make(Opcode::OPCODE_CASE, 0x10, 7);
    EXPECT_EQ(entry->opcode(), Opcode::OPCODE_CASE);
    EXPECT_EQ(entry->target(), 7u);
    EXPECT_EQ(bytesOf(*entry), (std::vector<unsigned char>{0x10, 0, 0, 0}));

    // Everything else in the table takes its class: sizes follow the encoding.
    EXPECT_EQ(make(Opcode::ldc_i8, 0x1122334455667788ul)->size(), 9u);
    EXPECT_EQ(make(Opcode::ldc_i8, 0x1122334455667788ul)->operand(), 0x1122334455667788ul);
    EXPECT_EQ(make(Opcode::unaligned, 4)->size(), 3u);
    EXPECT_EQ(make(Opcode::constrained, 0x1B000001)->size(), 6u);
    EXPECT_EQ(make(Opcode::rethrow, 0)->size(), 2u);
    EXPECT_EQ(make(Opcode::switch_, 3)->size(), 5u);
}

TEST(ReadInstruction, DecodesWithoutNormalisingAndKeepsTheBytes) {
    InstructionPtr ldloc = read({0xFE, 0x0C, 0x03, 0x00});
    ASSERT_NE(ldloc, nullptr);
    EXPECT_EQ(ldloc->size(), 4u);
    EXPECT_EQ(ldloc->operand(), 3u);
    EXPECT_EQ(ldloc->opcode(), Opcode::ldloc);

    std::vector<std::vector<unsigned char>> samples = {
        {0x2A},
        {0x38, 0x03, 0x00, 0x00, 0x00},  // a long branch with a short distance stays long
        {0x2B, 0xFE},
        {0x28, 0x01, 0x00, 0x00, 0x0A},
        {0x21, 1, 2, 3, 4, 5, 6, 7, 8},
        {0xFE, 0x16, 0x05, 0x00, 0x00, 0x1B},
        {0xFE, 0x12, 0x04},
        {0x45, 0x02, 0x00, 0x00, 0x00},
        {0xE0},
        {0xFE, 0x1E},
    };
    for (const auto& sample : samples) {
        InstructionPtr instruction = read(sample);
        ASSERT_NE(instruction, nullptr) << int(sample[0]);
        EXPECT_EQ(bytesOf(*instruction), sample);
        EXPECT_EQ(instruction->target(), 0u);
    }
    EXPECT_EQ(read({0x38, 0x03, 0x00, 0x00, 0x00})->opcode(), Opcode::br);
    EXPECT_EQ(read({0x45, 0x02, 0x00, 0x00, 0x00})->operand(), 2u);  // switch: the count
}

TEST(ReadInstruction, RefusesUnassignedOpcodesArglistAndTruncatedOperands) {
    std::set<unsigned int> unassigned = {0x24, 0x77, 0x78, 0xC4, 0xC5};
    for (unsigned int v = 0xA6; v <= 0xB2; ++v) unassigned.insert(v);
    for (unsigned int v = 0xBB; v <= 0xC1; ++v) unassigned.insert(v);
    for (unsigned int v = 0xC7; v <= 0xCF; ++v) unassigned.insert(v);
    for (unsigned int v = 0xE1; v <= 0xFF; ++v) {
        if (v != 0xFE) unassigned.insert(v);
    }
    for (unsigned int value = 0; value < 0x100; ++value) {
        if (value == 0xFE) continue;
        unsigned char bytes[9] = {static_cast<unsigned char>(value)};
        InstructionPtr instruction(readInstruction(bytes, sizeof(bytes)));
        EXPECT_EQ(instruction == nullptr, unassigned.count(value) == 1) << std::hex << value;
    }
    EXPECT_EQ(read({0xFE, 0x00}), nullptr);  // arglist
    EXPECT_EQ(read({0xFE, 0x08}), nullptr);
    EXPECT_EQ(read({0xFE, 0x1F}), nullptr);
    EXPECT_EQ(read({0xFE}), nullptr);
    EXPECT_EQ(read({0x28, 0x01, 0x00, 0x00}), nullptr);
    EXPECT_EQ(read({0xFE, 0x0C, 0x03}), nullptr);
    EXPECT_EQ(read({0x21, 1, 2, 3, 4, 5, 6, 7}), nullptr);
    EXPECT_EQ(read({0x2B}), nullptr);
    EXPECT_EQ(read({}), nullptr);
}
