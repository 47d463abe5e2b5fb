#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "rewrite/IMethodBuilder.h"
#include "rewrite/Instruction.h"

namespace {

using Bytes = std::vector<unsigned char>;

std::unique_ptr<IMethodBuilder> builderWith(const Bytes& code, HRESULT* result = nullptr) {
    std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
    HRESULT hr = builder->insertIL(0, code.data(), static_cast<unsigned int>(code.size()));
    if (result != nullptr) *result = hr;
    return builder;
}

Bytes written(IMethodBuilder& builder) {
    Bytes out(builder.getTotalSize(), 0xCD);
    EXPECT_EQ(builder.writeToBuffer(out.data()), S_OK);
    return out;
}

Bytes codeOf(IMethodBuilder& builder) {
    Bytes body = written(builder);
    return Bytes(body.begin() + 12, body.begin() + 12 + builder.getCodeSize());
}

std::vector<Opcode> opcodes(IMethodBuilder& builder) {
    std::vector<Opcode> result;
    for (unsigned int i = 0; i < builder.getILCount(); ++i) result.push_back(builder.getIL(i)->opcode());
    return result;
}

Bytes nops(unsigned int count) { return Bytes(count, 0x00); }

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

}  // namespace

TEST(MethodBuilder, NewBuilderHasAFatHeaderAndNoCode) {
    std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
    IMAGE_COR_ILMETHOD_FAT* header = builder->getFatHeader();
    EXPECT_EQ(header->Flags, 3u);
    EXPECT_EQ(header->Size, 3u);
    EXPECT_EQ(header->MaxStack, 0u);
    EXPECT_EQ(header->LocalVarSigTok, 0u);
    EXPECT_EQ(builder->getHeaderSize(), 12u);
    EXPECT_EQ(builder->getCodeSize(), 0u);
    EXPECT_EQ(builder->getEHSize(), 0u);
    EXPECT_EQ(builder->getTotalSize(), 12u);
    EXPECT_EQ(builder->getIL(0), nullptr);
    EXPECT_EQ(builder->findLabel(1), -1);
}

TEST(MethodBuilder, CopyHeaderTakesTinyAndFatHeaders) {
    std::unique_ptr<IMethodBuilder> builder(IMethodBuilder::newInstance());
    unsigned char tiny[12] = {0x06};  // tiny, one byte of code
    builder->copyHeader(reinterpret_cast<IMAGE_COR_ILMETHOD*>(tiny));
    EXPECT_EQ(builder->getFatHeader()->Flags, 3u);
    EXPECT_EQ(builder->getFatHeader()->MaxStack, 8u);
    EXPECT_EQ(builder->getFatHeader()->LocalVarSigTok, 0u);

    unsigned char fat[12] = {0x1B, 0x30, 0x05, 0x00, 0x40, 0, 0, 0, 0x07, 0, 0, 0x11};
    builder->copyHeader(reinterpret_cast<IMAGE_COR_ILMETHOD*>(fat));
    EXPECT_EQ(builder->getFatHeader()->Flags, 0x1Bu);
    EXPECT_EQ(builder->getFatHeader()->Size, 3u);
    EXPECT_EQ(builder->getFatHeader()->MaxStack, 5u);
    EXPECT_EQ(builder->getFatHeader()->CodeSize, 0u);
    EXPECT_EQ(builder->getFatHeader()->LocalVarSigTok, 0x11000007u);
}

TEST(MethodBuilder, InsertedCodeEndsInALabel) {
    std::unique_ptr<IMethodBuilder> builder = builderWith({0x2A});
    ASSERT_EQ(builder->getILCount(), 2u);
    EXPECT_EQ(builder->getIL(0)->opcode(), Opcode::ret);
    EXPECT_EQ(builder->getIL(1)->opcode(), Opcode::OPCODE_LABEL);
    EXPECT_EQ(builder->getIL(1)->operand(), 1u);
    EXPECT_EQ(builder->findLabel(1), 1);
    EXPECT_EQ(builder->findLabel(77), -1);
    EXPECT_EQ(builder->getILByteIndex(1), 1u);
    EXPECT_EQ(builder->getILByteIndex(9), 1u);
}

TEST(MethodBuilder, BranchesAreTiedToLabelsIncludingTheEndOfTheCode) {
    // brfalse_s +1 -> ret; br_s -3 -> brfalse_s... ; br_s +0 -> the end
    Bytes code = {0x2C, 0x01, 0x00, 0x2B, 0xFB, 0x2B, 0x00};
    std::unique_ptr<IMethodBuilder> builder = builderWith(code);
    // Labels: before index of nop target, at start for the backward branch, and end.
    std::vector<Opcode> list = opcodes(*builder);
    ASSERT_EQ(list.size(), 7u);
    EXPECT_EQ(list[0], Opcode::OPCODE_LABEL);  // target of the backward branch
    EXPECT_EQ(list[1], Opcode::brfalse_s);
    EXPECT_EQ(list[2], Opcode::nop);
    EXPECT_EQ(list[3], Opcode::OPCODE_LABEL);  // target of brfalse_s
    EXPECT_EQ(list[6], Opcode::OPCODE_LABEL);  // end label, also the last branch's target
    EXPECT_EQ(builder->findLabel(builder->getIL(1)->target()), 3);
    EXPECT_EQ(builder->findLabel(builder->getIL(4)->target()), 0);
    EXPECT_EQ(builder->getIL(5)->target(), builder->getIL(6)->operand());
    EXPECT_EQ(codeOf(*builder), code);
}

TEST(MethodBuilder, BadCodeIsRefusedAndLeavesTheListUnchanged) {
    std::unique_ptr<IMethodBuilder> builder = builderWith({0x00, 0x2A});
    const unsigned int before = builder->getILCount();
    const std::vector<Bytes> bad = {
        {0x24},                                // unassigned opcode
        {0xFE, 0x00, 0x2A},                    // arglist
        {0x28, 0x01, 0x00},                    // truncated operand
        {0xFE},                                // truncated two-byte opcode
        {0x2B, 0x01, 0x28, 0, 0, 0, 0x0A},     // into the middle of an instruction
        {0x2B, 0x05, 0x2A},                    // past the end of the code
        {0x00, 0x2B, 0xFC},                    // before the start of the code
        {0x45, 0x02, 0, 0, 0, 0, 0, 0, 0},     // switch table cut short
        {0x45, 0xFF, 0xFF, 0xFF, 0xFF},        // switch count beyond the code
        {0x45, 0x01, 0, 0, 0, 0x01, 0, 0, 0},  // switch entry past the end
        {0x38, 0xFC, 0xFF, 0xFF, 0xFF, 0x2A},  // long branch onto its own operand
    };
    for (const Bytes& code : bad) {
        EXPECT_EQ(builder->insertIL(0, code.data(), static_cast<unsigned int>(code.size())), E_UNEXPECTED)
            << "first byte " << int(code[0]);
        EXPECT_EQ(builder->getILCount(), before);
    }
    EXPECT_EQ(codeOf(*builder), (Bytes{0x00, 0x2A}));
}

TEST(MethodBuilder, SwitchEntriesGetLabelsAndCountFromTheEndOfTheTable) {
    // switch (2) [+1, +0]; nop; ret
    Bytes code = {0x45, 0x02, 0, 0, 0, 0x01, 0, 0, 0, 0x00, 0, 0, 0, 0x00, 0x2A};
    std::unique_ptr<IMethodBuilder> builder = builderWith(code);
    std::vector<Opcode> list = opcodes(*builder);
    // switch, 2 entries, label, nop, label, ret, end label
    ASSERT_EQ(list.size(), 8u);
    EXPECT_EQ(list[0], Opcode::switch_);
    EXPECT_EQ(list[1], Opcode::OPCODE_CASE);
    EXPECT_EQ(list[2], Opcode::OPCODE_CASE);
    EXPECT_EQ(builder->findLabel(builder->getIL(1)->target()), 5);
    EXPECT_EQ(builder->findLabel(builder->getIL(2)->target()), 3);
    EXPECT_EQ(builder->getILByteIndex(4), 13u);
    EXPECT_EQ(codeOf(*builder), code);

    // An insertion between table and target moves the entries' distances.
    ASSERT_EQ(builder->insertIL(4, Opcode::ldc_i4, 1000, 0), S_OK);
    Bytes expected = {0x45, 0x02, 0, 0, 0, 0x06, 0, 0, 0, 0x00, 0, 0, 0, 0x20, 0xE8, 0x03, 0, 0, 0x00, 0x2A};
    EXPECT_EQ(codeOf(*builder), expected);
}

TEST(MethodBuilder, LongBranchWithShortDistanceShrinksAndClausesFollow) {
    // br +3; nop nop nop; (try) nop; leave_s +0; (handler) endfinally; ret
    Bytes code = {0x38, 0x03, 0, 0, 0, 0x00, 0x00, 0x00, 0x00, 0xDE, 0x00, 0xDC, 0x2A};
    std::unique_ptr<IMethodBuilder> builder = builderWith(code);
    ASSERT_EQ(builder->insertEHClause(0, COR_ILEXCEPTION_CLAUSE_FINALLY, 8, 3, 11, 1, 0), S_OK);
    EXPECT_EQ(builder->getILByteIndex(builder->getILCount()), 10u);
    Bytes out = written(*builder);
    Bytes expectedCode = {0x2B, 0x03, 0x00, 0x00, 0x00, 0x00, 0xDE, 0x00, 0xDC, 0x2A};
    EXPECT_EQ(Bytes(out.begin() + 12, out.begin() + 22), expectedCode);
    const MethodBuilderEHClause* clause = builder->getExceptionClause(0);
    EXPECT_EQ(clause->clause.TryOffset, 5u);
    EXPECT_EQ(clause->clause.TryLength, 3u);
    EXPECT_EQ(clause->clause.HandlerOffset, 8u);
    EXPECT_EQ(clause->clause.HandlerLength, 1u);
    EXPECT_EQ(builder->getFatHeader()->CodeSize, 10u);
}

TEST(MethodBuilder, InsertionPushesShortBranchesLongOneAfterAnother) {
    // br_s X -> T (127); br_s Y -> U (131) at the limit; nops; ret at U.
    Bytes code = concat({{0x2B, 0x7D, 0x2B, 0x7F}, nops(127), {0x2A}});
    std::unique_ptr<IMethodBuilder> builder = builderWith(code);
    EXPECT_EQ(codeOf(*builder), code);
    int beforeU = builder->findLabel(builder->getIL(1)->target());
    ASSERT_GT(beforeU, 0);
    // One byte inside Y's span only: Y goes long, which pushes X out of range.
    ASSERT_EQ(builder->insertIL(static_cast<unsigned int>(beforeU), Opcode::nop, 0, 0), S_OK);
    Bytes expected = concat({{0x38, 0x80, 0, 0, 0, 0x38, 0x80, 0, 0, 0}, nops(128), {0x2A}});
    EXPECT_EQ(codeOf(*builder), expected);

    // Backward: -128 stays short, -129 goes long.
    Bytes back = concat({nops(126), {0x2B, 0x80}, {0x2A}});
    std::unique_ptr<IMethodBuilder> backward = builderWith(back);
    EXPECT_EQ(codeOf(*backward), back);
    ASSERT_EQ(backward->getIL(0)->opcode(), Opcode::OPCODE_LABEL);
    ASSERT_EQ(backward->insertIL(1, Opcode::nop, 0, 0), S_OK);
    EXPECT_EQ(codeOf(*backward), concat({nops(127), {0x38, 0x7C, 0xFF, 0xFF, 0xFF}, {0x2A}}));
}

TEST(MethodBuilder, ClausesNeedInstructionStartsAndGetTheirOwnLabels) {
    // try { nop; leave_s +1 } catch { pop; leave_s +0 } ret
    Bytes code = {0x00, 0xDE, 0x03, 0x26, 0xDE, 0x00, 0x2A};
    std::unique_ptr<IMethodBuilder> builder = builderWith(code);
    unsigned int count = builder->getILCount();
    const unsigned int flagsBefore = builder->getFatHeader()->Flags;
    // Into the middle of leave_s, past the end, and a filter inside an operand:
    // refused before anything changes.
    EXPECT_EQ(builder->insertEHClause(0x01000001, COR_ILEXCEPTION_CLAUSE_NONE, 0, 2, 4, 2, 0x01000001), E_UNEXPECTED);
    EXPECT_EQ(builder->insertEHClause(0x01000001, COR_ILEXCEPTION_CLAUSE_NONE, 0, 3, 3, 9, 0x01000001), E_UNEXPECTED);
    EXPECT_EQ(builder->insertEHClause(0, COR_ILEXCEPTION_CLAUSE_FILTER, 0, 3, 3, 3, 2), E_UNEXPECTED);
    EXPECT_EQ(builder->getEHCount(), 0u);
    EXPECT_EQ(builder->getILCount(), count);
    EXPECT_EQ(builder->getExceptionHeader()->DataSize, 0u);
    EXPECT_EQ(builder->getFatHeader()->Flags, flagsBefore);

    ASSERT_EQ(builder->insertEHClause(0x01000001, COR_ILEXCEPTION_CLAUSE_NONE, 0, 3, 3, 3, 0x01000001), S_OK);
    EXPECT_GT(builder->getILCount(), count);
    EXPECT_EQ(builder->getEHCount(), 1u);
    EXPECT_EQ(builder->getEHSize(), 28u);
    EXPECT_EQ(builder->getExceptionHeader()->Kind, 0x41u);
    EXPECT_EQ(builder->getExceptionHeader()->DataSize, 28u);
    EXPECT_EQ(builder->getFatHeader()->Flags & 0x8, 0x8u);
    // 7 bytes of code, rounded up to 8, and the section.
    EXPECT_EQ(builder->getTotalSize(), 12u + 8u + 28u);

    // A handler that ends at the end of the code, in a filter clause.
    ASSERT_EQ(builder->insertEHClause(0, COR_ILEXCEPTION_CLAUSE_FILTER, 0, 3, 6, 1, 3), S_OK);
    const MethodBuilderEHClause* filter = builder->getExceptionClause(1);
    EXPECT_EQ(builder->findLabel(filter->handlerEndLabel), static_cast<int>(builder->getILCount()) - 1);
    EXPECT_EQ(builder->getExceptionHeader()->DataSize, 52u);

    Bytes out = written(*builder);
    ASSERT_EQ(out.size(), 12u + 8u + 52u);
    EXPECT_EQ(out[19], 0x00);  // padding
    EXPECT_EQ(Bytes(out.begin() + 20, out.begin() + 24), (Bytes{0x41, 52, 0, 0}));
    const auto* clauses = reinterpret_cast<const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT*>(out.data() + 24);
    EXPECT_EQ(clauses[0].ClassToken, 0x01000001u);
    EXPECT_EQ(clauses[0].HandlerOffset, 3u);
    EXPECT_EQ(clauses[1].Flags, COR_ILEXCEPTION_CLAUSE_FILTER);
    EXPECT_EQ(clauses[1].FilterOffset, 3u);
    EXPECT_EQ(clauses[1].HandlerOffset, 6u);
    EXPECT_EQ(clauses[1].HandlerLength, 1u);
}

TEST(MethodBuilder, ExistingClausesAreWidenedFromBothForms) {
    Bytes code = {0x00, 0xDE, 0x03, 0x26, 0xDE, 0x00, 0x2A};
    std::unique_ptr<IMethodBuilder> builder = builderWith(code);
    IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL small{};
    small.Flags = COR_ILEXCEPTION_CLAUSE_NONE;
    small.TryOffset = 0;
    small.TryLength = 3;
    small.HandlerOffset = 3;
    small.HandlerLength = 3;
    small.ClassToken = 0x02000004;
    ASSERT_EQ(builder->insertEHClause(&small), S_OK);
    IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT fat{COR_ILEXCEPTION_CLAUSE_FAULT, 0, 3, 3, 3, {0}};
    ASSERT_EQ(builder->insertEHClause(&fat), S_OK);
    builder->getILByteIndex(0);
    EXPECT_EQ(builder->getExceptionClause(0)->clause.ClassToken, 0x02000004u);
    EXPECT_EQ(builder->getExceptionClause(0)->clause.HandlerLength, 3u);
    EXPECT_EQ(builder->getExceptionClause(1)->clause.Flags, COR_ILEXCEPTION_CLAUSE_FAULT);
}

TEST(MethodBuilder, EditsByIndexKeepLabelsAndSettleOnWrite) {
    std::unique_ptr<IMethodBuilder> builder = builderWith({0x2C, 0x01, 0x00, 0x2A});  // brfalse_s +1 -> ret
    unsigned int target = builder->getIL(0)->target();
    ASSERT_NE(target, 0u);
    ASSERT_EQ(builder->insertIL(0, Opcode::ldarg_0, 0, 0), S_OK);
    ASSERT_EQ(builder->insertIL(2, Opcode::ldc_i4, 7, 0), S_OK);  // between branch and nop
    EXPECT_EQ(codeOf(*builder), (Bytes{0x02, 0x2C, 0x03, 0x1F, 0x07, 0x00, 0x2A}));

    // Replacing keeps the index; a branch with target 0 is tied by its distance.
    ASSERT_EQ(builder->replaceIL(2, Opcode::br, 0, 0), S_OK);
    EXPECT_EQ(builder->getIL(2)->opcode(), Opcode::br_s);
    ASSERT_EQ(builder->getIL(3)->opcode(), Opcode::OPCODE_LABEL);
    EXPECT_EQ(builder->getIL(3)->operand(), builder->getIL(2)->target());
    EXPECT_EQ(codeOf(*builder), (Bytes{0x02, 0x2C, 0x03, 0x2B, 0x00, 0x00, 0x2A}));
    EXPECT_EQ(builder->replaceIL(99, Opcode::nop, 0, 0), E_INVALIDARG);
    EXPECT_EQ(builder->insertIL(0, static_cast<Opcode>(0x24), 0, 0), E_OUTOFMEMORY);

    // A label inserted after a layout takes the place's offset at once and
    // reaches the label map at the next layout.
    builder->getILByteIndex(0);
    ASSERT_EQ(builder->insertIL(1, Opcode::OPCODE_LABEL, 0x80000001, 0), S_OK);
    EXPECT_EQ(static_cast<Instruction*>(builder->getIL(1))->offset(), 1u);
    EXPECT_EQ(builder->findLabel(0x80000001), -1);
    ASSERT_EQ(builder->insertIL(0, Opcode::nop, 0, 0), S_OK);
    EXPECT_EQ(builder->findLabel(0x80000001), 2);

    // A branch to a label given by number.
    ASSERT_EQ(builder->insertIL(builder->getILCount(), Opcode::br, 0, 0x80000001), S_OK);
    Bytes out = codeOf(*builder);
    EXPECT_EQ(Bytes(out.end() - 2, out.end()), (Bytes{0x2B, static_cast<unsigned char>(2 - 10)}));

    // A branch to a label that is no longer in the list cannot be settled.
    ASSERT_EQ(builder->insertIL(0, Opcode::br, 0, 0x7777), S_OK);
    EXPECT_EQ(builder->getILByteIndex(0), 0xFFFFFFFFu);
    Bytes buffer(builder->getTotalSize() + 64);
    EXPECT_EQ(builder->writeToBuffer(buffer.data()), E_UNEXPECTED);
}
