// The editable method body. Layout is computed lazily: offsetsValid says the
// entries' offsets and the label map are current, targetsValid that branch
// operands and clause offsets are.
#pragma once

#include <unordered_map>
#include <vector>

#include "rewrite/IMethodBuilder.h"
#include "rewrite/Instruction.h"

class MethodBuilder final : public IMethodBuilder {
public:
    MethodBuilder();

    using IMethodBuilder::decodeIL;
    using IMethodBuilder::insertEHClause;
    using IMethodBuilder::insertIL;

    void clear() override;
    IMAGE_COR_ILMETHOD_FAT* getFatHeader() override;
    void copyHeader(const IMAGE_COR_ILMETHOD* source) override;
    HRESULT insertEHClause(unsigned int classOrFilter, CorExceptionFlag flags, unsigned int tryOffset,
                           unsigned int tryLength, unsigned int handlerOffset, unsigned int handlerLength,
                           unsigned int filterOffset) override;
    HRESULT insertFilterClause(unsigned int tryStart, unsigned int tryEnd, unsigned int filter,
                               unsigned int handler) override;
    IMAGE_COR_ILMETHOD_SECT_FAT* getExceptionHeader() override;
    MethodBuilderEHClause* getExceptionClause(int index) override;
    unsigned int getHeaderSize() override;
    unsigned int getCodeSize() override;
    unsigned int getEHSize() override;
    unsigned int getEHCount() override;
    unsigned int getTotalSize() override;
    HRESULT writeToBuffer(unsigned char* buffer) override;
    const Instruction* getIL(unsigned int index) override;
    HRESULT insertIL(unsigned int index, Opcode opcode, unsigned long operand, unsigned int target) override;
    HRESULT replaceIL(unsigned int index, Opcode opcode, unsigned long operand, unsigned int target) override;
    HRESULT insertRun(unsigned int index, const Instruction* run, unsigned int count) override;
    HRESULT decodeIL(const unsigned char* code, unsigned int length, const std::vector<unsigned long>& places) override;
    unsigned int getILByteIndex(unsigned int index) override;
    unsigned int getILCount() override;
    HRESULT mapOrigins(std::vector<COR_IL_MAP>& map) override;
    int findLabel(unsigned int label) override;
    int print(FILE* stream, unsigned int origin) override;

private:
    [[nodiscard]] HRESULT insertInstruction(unsigned int index, const Instruction& instruction);
    [[nodiscard]] HRESULT createBranchLabel(unsigned int index);
    [[nodiscard]] HRESULT addClause(const MethodBuilderEHClause& record);
    bool findDecodedLabels(const unsigned long* positions, unsigned int count, unsigned int* labels) const;
    int findInstruction(unsigned int index, int distance);
    unsigned int getLabel(unsigned int index);
    bool areEntryStarts(const unsigned long* positions, unsigned int count);
    void updateOffsetsAndLabels();
    void placeLabel(unsigned int label, unsigned int index);
    [[nodiscard]] HRESULT updateTargets();
    [[nodiscard]] HRESULT updateClauses();
    [[nodiscard]] HRESULT settleBranch(unsigned int index, unsigned int end);
    unsigned int getCurrentILByteIndex(unsigned int index);
    void printClauses(FILE* stream);

    IMAGE_COR_ILMETHOD_FAT header;
    std::vector<Instruction> instructions;
    IMAGE_COR_ILMETHOD_SECT_FAT ehHeader;
    std::vector<MethodBuilderEHClause> clauses;
    // Where each label stands, by number. The builder counts its own labels up
    // from 1 and the trace labels count up from 0x80000000: both runs sit in
    // arrays (-1 for none), any other number in the map.
    std::vector<int> builderLabels;
    std::vector<int> traceLabels;
    std::unordered_map<unsigned int, unsigned int> otherLabels;
    // The label of each byte of the code being decoded, by place, and where
    // each decoded entry's distance counts from.
    std::vector<unsigned int> labelAt;
    std::vector<unsigned int> distancesFrom;
    // While the list is as decoded: labelAt still names the labels by place,
    // for the clauses added then.
    bool asDecoded = false;
    bool offsetsValid = false;
    bool targetsValid = false;
    unsigned int nextLabel = 1;
};
