#include "rewrite/MethodBuilder.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "platform/FormattedOutput.h"
#include "rewrite/ILDecoder.h"
#include "rewrite/InstructionFactory.h"

namespace {

constexpr unsigned int kFatSizeInWords = 3;
constexpr unsigned int kFirstTraceLabel = 0x80000000;
constexpr unsigned int kLabelRun = 1u << 16;
constexpr size_t kKeptEntries = 4096;
// Entries a rewrite adds to a body, about: its calls, labels and clauses.
constexpr size_t kAddedEntries = 128;
// While decoding, marks in labelAt the places where an entry begins; label
// numbers stay far below it.
constexpr unsigned int kEntryStart = 0x80000000;

// Pending places of a clause while insertEHClause looks for them.
enum PendingPlace : unsigned int {
    kHandlerEnd = 1,
    kHandlerStart = 2,
    kTryEnd = 4,
    kTryStart = 8,
    kFilter = 16,
};

bool isLabel(const Instruction& instruction) { return instruction.opcode() == Opcode::OPCODE_LABEL; }

unsigned int roundUpTo4(unsigned int value) { return (value + 3) & ~3u; }

}  // namespace

IMethodBuilder* IMethodBuilder::newInstance() { return new MethodBuilder(); }

HRESULT IMethodBuilder::insertEHClause(const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL* clause) {
    return insertEHClause(clause->ClassToken, static_cast<CorExceptionFlag>(clause->Flags), clause->TryOffset,
                          clause->TryLength, clause->HandlerOffset, clause->HandlerLength, clause->ClassToken);
}

HRESULT IMethodBuilder::insertEHClause(const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT* clause) {
    return insertEHClause(clause->ClassToken, clause->Flags, clause->TryOffset, clause->TryLength,
                          clause->HandlerOffset, clause->HandlerLength, clause->ClassToken);
}

MethodBuilder::MethodBuilder() {
    MethodBuilder::clear();
}

void MethodBuilder::clear() {
    // The lists keep their room for the next body, unless one far above the
    // usual size grew them: fresh memory costs a fault a page.
    if (instructions.capacity() > kKeptEntries) std::vector<Instruction>().swap(instructions);
    if (labelAt.capacity() > kKeptEntries * 4) std::vector<unsigned int>().swap(labelAt);
    if (distancesFrom.capacity() > kKeptEntries) std::vector<unsigned int>().swap(distancesFrom);
    instructions.clear();
    clauses.clear();
    builderLabels.clear();
    traceLabels.clear();
    otherLabels.clear();
    header = IMAGE_COR_ILMETHOD_FAT{};
    header.Flags = CorILMethod_FatFormat;
    header.Size = kFatSizeInWords;
    ehHeader = IMAGE_COR_ILMETHOD_SECT_FAT{};
    offsetsValid = false;
    targetsValid = false;
    asDecoded = false;
    nextLabel = 1;
}

IMAGE_COR_ILMETHOD_FAT* MethodBuilder::getFatHeader() { return &header; }

void MethodBuilder::copyHeader(const IMAGE_COR_ILMETHOD* source) {
    header = IMAGE_COR_ILMETHOD_FAT{};
    header.Size = kFatSizeInWords;
    // A tiny header is one byte with no alignment: it is read as a byte.
    if ((reinterpret_cast<const unsigned char*>(source)[0] & 3) == CorILMethod_TinyFormat) {
        header.Flags = CorILMethod_FatFormat;
        header.MaxStack = kTinyMaxStack;
        return;
    }
    header.Flags = source->Fat.Flags;
    header.MaxStack = source->Fat.MaxStack;
    header.LocalVarSigTok = source->Fat.LocalVarSigTok;
}

IMAGE_COR_ILMETHOD_SECT_FAT* MethodBuilder::getExceptionHeader() { return &ehHeader; }

MethodBuilderEHClause* MethodBuilder::getExceptionClause(int index) { return &clauses[index]; }

unsigned int MethodBuilder::getHeaderSize() { return kFatHeaderSize; }

unsigned int MethodBuilder::getCodeSize() { return getILByteIndex(getILCount()); }

unsigned int MethodBuilder::getEHSize() {
    return clauses.empty() ? 0 : kSectionHeaderSize + kFatClauseSize * getEHCount();
}

unsigned int MethodBuilder::getEHCount() { return static_cast<unsigned int>(clauses.size()); }

unsigned int MethodBuilder::getTotalSize() {
    unsigned int code = getCodeSize();
    if (!clauses.empty()) code = roundUpTo4(code);
    return getHeaderSize() + code + getEHSize();
}

const Instruction* MethodBuilder::getIL(unsigned int index) {
    return index < instructions.size() ? &instructions[index] : nullptr;
}

unsigned int MethodBuilder::getILCount() { return static_cast<unsigned int>(instructions.size()); }

HRESULT MethodBuilder::insertInstruction(unsigned int index, const Instruction& instruction) {
    try {
        if (index >= instructions.size()) {
            instructions.push_back(instruction);
        } else {
            instructions.insert(instructions.begin() + index, instruction);
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT MethodBuilder::insertIL(unsigned int index, Opcode opcode, unsigned long operand, unsigned int target) {
    asDecoded = false;
    std::optional<Instruction> instruction = newInstruction(opcode, operand, target);
    if (!instruction) return E_OUTOFMEMORY;
    if (index > instructions.size()) index = getILCount();
    // A label moves no byte: the branches stay settled. Behind the last entry
    // it moves no entry either, and goes straight into the label map; anywhere
    // else the map waits for the next layout.
    const bool appendedLabel = instruction->size() == 0 && offsetsValid && index == instructions.size();
    if (appendedLabel) {
        instruction->setOffset(getCurrentILByteIndex(index));
    } else {
        offsetsValid = false;
        if (instruction->size() != 0) targetsValid = false;
    }
    bool branch = isBranchOpcode(instruction->opcode());
    HRESULT hr = insertInstruction(index, *instruction);
    if (SUCCEEDED(hr) && appendedLabel) placeLabel(static_cast<unsigned int>(instruction->operand()), index);
    if (SUCCEEDED(hr) && branch) hr = createBranchLabel(index);
    return hr;
}

HRESULT MethodBuilder::insertRun(unsigned int index, const Instruction* run, unsigned int count) {
    asDecoded = false;
    if (index > instructions.size()) index = getILCount();
    try {
        instructions.insert(instructions.begin() + index, run, run + count);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    offsetsValid = false;
    targetsValid = false;
    return S_OK;
}

HRESULT MethodBuilder::replaceIL(unsigned int index, Opcode opcode, unsigned long operand, unsigned int target) {
    if (index >= instructions.size()) return E_INVALIDARG;
    asDecoded = false;
    std::optional<Instruction> instruction = newInstruction(opcode, operand, target);
    if (!instruction) return E_OUTOFMEMORY;
    if (offsetsValid) instruction->setOffset(instructions[index].offset());
    instruction->setOrigin(instructions[index].origin());
    if (instruction->size() != instructions[index].size()) {
        offsetsValid = false;
        targetsValid = false;
    }
    // A label replaced, or put in place, changes the label map.
    if (isLabel(*instruction) || isLabel(instructions[index])) offsetsValid = false;
    bool branch = isBranchOpcode(instruction->opcode());
    instructions[index] = *instruction;
    return branch ? createBranchLabel(index) : S_OK;
}

HRESULT MethodBuilder::decodeIL(const unsigned char* code, unsigned int length,
                                const std::vector<unsigned long>& places) {
    if (!instructions.empty()) return E_UNEXPECTED;
    HRESULT hr = ILDecoder::decode(code, length, instructions, distancesFrom);
    if (FAILED(hr)) return hr;
    try {
        // The label of each place a branch lands on, numbered as the branches
        // come after the one behind the code; the decoder checked the places.
        labelAt.assign(static_cast<size_t>(length) + 1, 0);
        labelAt[length] = nextLabel++;
        size_t labels = 1;
        auto labelOf = [&](size_t place) {
            unsigned int& label = labelAt[place];
            if ((label & ~kEntryStart) == 0) {
                label |= nextLabel++;
                ++labels;
            }
            return label & ~kEntryStart;
        };
        for (size_t i = 0; i < instructions.size(); ++i) {
            Instruction& instruction = instructions[i];
            if (!isBranchOpcode(instruction.opcode())) continue;
            instruction.setTarget(labelOf(
                static_cast<size_t>(static_cast<long>(distancesFrom[i]) + ILDecoder::branchDistance(instruction))));
        }
        // Then those of the named places where an instruction begins; a place
        // elsewhere is left to the clause that names it, which refuses it.
        if (!places.empty()) {
            for (const Instruction& instruction : instructions) {
                if (instruction.opcode() != Opcode::OPCODE_CASE) labelAt[instruction.origin()] |= kEntryStart;
            }
            for (unsigned long place : places) {
                if (place == length || (place < length && (labelAt[place] & kEntryStart) != 0)) labelOf(place);
            }
            for (unsigned int& label : labelAt) label &= ~kEntryStart;
        }
        // The labels go in from the back, each entry moved once, with room
        // for what the rewrite adds.
        const size_t decoded = instructions.size();
        instructions.reserve(decoded + labels + kAddedEntries);
        instructions.resize(decoded + labels, Instruction::label(0));
        size_t to = instructions.size();
        instructions[--to] = Instruction::label(labelAt[length]);
        for (size_t from = decoded; from-- > 0;) {
            const Instruction instruction = instructions[from];
            instructions[--to] = instruction;
            if (instruction.opcode() != Opcode::OPCODE_CASE && labelAt[instruction.origin()] != 0) {
                instructions[--to] = Instruction::label(labelAt[instruction.origin()]);
            }
        }
    } catch (const std::bad_alloc&) {
        instructions.clear();
        return E_OUTOFMEMORY;
    }
    offsetsValid = false;
    targetsValid = false;
    asDecoded = true;
    return S_OK;
}

HRESULT MethodBuilder::createBranchLabel(unsigned int index) {
    const Instruction& branch = instructions[index];
    if (!isBranchOpcode(branch.opcode()) || branch.target() != 0) return S_OK;
    int found = findInstruction(index, ILDecoder::branchDistance(branch));
    if (found < 0) return E_UNEXPECTED;
    const size_t count = instructions.size();
    unsigned int label = getLabel(static_cast<unsigned int>(found));
    if (label == 0) return E_UNEXPECTED;
    // A label that went in at or ahead of the branch moved it one place on.
    if (instructions.size() != count && static_cast<unsigned int>(found) <= index) ++index;
    instructions[index].setTarget(label);
    return S_OK;
}

int MethodBuilder::findInstruction(unsigned int index, int distance) {
    size_t count = instructions.size();
    size_t j = static_cast<size_t>(index) + 1;
    // Distances in a switch count from the end of its table.
    while (j < count && instructions[j].opcode() == Opcode::OPCODE_CASE) ++j;
    if (j >= count) return -1;
    long sum = 0;
    if (distance >= 0) {
        for (; j < count; ++j) {
            if (sum == distance) return static_cast<int>(j);
            sum += instructions[j].size();
        }
        return -1;
    }
    for (size_t k = j; k-- > 0;) {
        sum -= instructions[k].size();
        if (sum == distance) return static_cast<int>(k);
    }
    return -1;
}

unsigned int MethodBuilder::getLabel(unsigned int index) {
    // The entry ahead is tested first, so a run of labels reuses its last one.
    if (index > 0 && index - 1 < instructions.size() && isLabel(instructions[index - 1])) {
        return static_cast<unsigned int>(instructions[index - 1].operand());
    }
    if (index < instructions.size() && isLabel(instructions[index])) {
        return static_cast<unsigned int>(instructions[index].operand());
    }
    unsigned int number = nextLabel++;
    return SUCCEEDED(insertIL(index, Opcode::OPCODE_LABEL, number, 0)) ? number : 0;
}

HRESULT MethodBuilder::insertEHClause(unsigned int classOrFilter, CorExceptionFlag flags, unsigned int tryOffset,
                                      unsigned int tryLength, unsigned int handlerOffset,
                                      unsigned int handlerLength, unsigned int filterOffset) {
    const bool filter = (flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0;
    const unsigned long positions[] = {tryOffset, static_cast<unsigned long>(tryOffset) + tryLength, handlerOffset,
                                       static_cast<unsigned long>(handlerOffset) + handlerLength,
                                       filter ? filterOffset : 0ul};
    MethodBuilderEHClause record{};
    record.clause.Flags = flags;
    record.clause.ClassToken = classOrFilter;
    unsigned int found[std::size(positions)] = {};
    if (findDecodedLabels(positions, filter ? 5 : 4, found)) {
        record.tryStartLabel = found[0];
        record.tryEndLabel = found[1];
        record.handlerStartLabel = found[2];
        record.handlerEndLabel = found[3];
        record.filterLabel = found[4];
        return addClause(record);
    }
    // A clause that names a place where no entry begins is refused before
    // anything changes.
    if (!areEntryStarts(positions, std::size(positions))) return E_UNEXPECTED;

    unsigned int pending = kTryStart | kTryEnd | kHandlerStart | kHandlerEnd;
    if (filter) pending |= kFilter;
    struct Place {
        PendingPlace bit;
        unsigned long position;
        unsigned int* label;
    } const places[] = {
        {kTryStart, tryOffset, &record.tryStartLabel},
        {kTryEnd, static_cast<unsigned long>(tryOffset) + tryLength, &record.tryEndLabel},
        {kHandlerStart, handlerOffset, &record.handlerStartLabel},
        {kHandlerEnd, static_cast<unsigned long>(handlerOffset) + handlerLength, &record.handlerEndLabel},
        {kFilter, filterOffset, &record.filterLabel},
    };

    unsigned long position = 0;
    for (unsigned int i = 0; i <= getILCount() && pending != 0; ++i) {
        unsigned int label = 0;
        for (const Place& place : places) {
            if ((pending & place.bit) == 0 || place.position != position) continue;
            if (label == 0) label = getLabel(i);
            if (label == 0) return E_UNEXPECTED;
            *place.label = label;
            pending &= ~place.bit;
        }
        // A label inserted at i has size 0: the walk goes on over it with the
        // same position.
        if (i < getILCount()) position += instructions[i].size();
    }
    if (pending != 0) return E_UNEXPECTED;
    return addClause(record);
}

HRESULT MethodBuilder::insertFilterClause(unsigned int tryStart, unsigned int tryEnd, unsigned int filter,
                                          unsigned int handler) {
    MethodBuilderEHClause record{};
    record.clause.Flags = COR_ILEXCEPTION_CLAUSE_FILTER;
    record.tryStartLabel = tryStart;
    record.tryEndLabel = tryEnd;
    record.filterLabel = filter;
    record.handlerStartLabel = handler;
    const int places[] = {findLabel(tryStart), findLabel(tryEnd), findLabel(filter), findLabel(handler)};
    for (int place : places) {
        if (place < 0) return E_UNEXPECTED;
    }
    if (places[1] < places[0] || places[3] < places[2]) return E_UNEXPECTED;
    record.handlerEndLabel = getLabel(getILCount());
    return record.handlerEndLabel == 0 ? E_OUTOFMEMORY : addClause(record);
}

HRESULT MethodBuilder::addClause(const MethodBuilderEHClause& record) {
    try {
        clauses.push_back(record);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    header.Flags |= CorILMethod_MoreSects;
    ehHeader.Kind |= CorILMethod_Sect_EHTable | CorILMethod_Sect_FatFormat;
    ehHeader.DataSize += ehHeader.DataSize == 0 ? kSectionHeaderSize + kFatClauseSize : kFatClauseSize;
    // The clause's offsets are filled at the next layout.
    targetsValid = false;
    return S_OK;
}

// The labels decoding gave the places, while the list is as decoded; false
// if one has none.
bool MethodBuilder::findDecodedLabels(const unsigned long* positions, unsigned int count, unsigned int* labels) const {
    if (!asDecoded) return false;
    for (unsigned int i = 0; i < count; ++i) {
        if (positions[i] >= labelAt.size() || labelAt[positions[i]] == 0) return false;
        labels[i] = labelAt[positions[i]];
    }
    return true;
}

// One walk for all the places of a clause: each must be where an entry begins
// or where the code ends.
bool MethodBuilder::areEntryStarts(const unsigned long* positions, unsigned int count) {
    unsigned int found = 0;
    unsigned long running = 0;
    auto mark = [&] {
        for (unsigned int i = 0; i < count; ++i) {
            if (positions[i] == running) found |= 1u << i;
        }
    };
    mark();
    for (const Instruction& instruction : instructions) {
        running += instruction.size();
        mark();
    }
    return found == (1u << count) - 1;
}

void MethodBuilder::updateOffsetsAndLabels() {
    if (offsetsValid) return;
    unsigned int position = 0;
    for (unsigned int i = 0; i < instructions.size(); ++i) {
        Instruction& instruction = instructions[i];
        instruction.setOffset(position);
        if (isLabel(instruction)) placeLabel(static_cast<unsigned int>(instruction.operand()), i);
        position += instruction.size();
    }
    offsetsValid = true;
}

unsigned int MethodBuilder::getCurrentILByteIndex(unsigned int index) {
    updateOffsetsAndLabels();
    if (index < instructions.size()) return instructions[index].offset();
    if (instructions.empty()) return 0;
    const Instruction& last = instructions.back();
    return last.offset() + last.size();
}

unsigned int MethodBuilder::getILByteIndex(unsigned int index) {
    if (FAILED(updateTargets())) return kUnsettled;
    return getCurrentILByteIndex(index);
}

void MethodBuilder::placeLabel(unsigned int label, unsigned int index) {
    std::vector<int>* places = label < kLabelRun                      ? &builderLabels
                               : label - kFirstTraceLabel < kLabelRun ? &traceLabels
                                                                      : nullptr;
    if (places == nullptr) {
        otherLabels[label] = index;
        return;
    }
    const unsigned int slot = label < kLabelRun ? label : label - kFirstTraceLabel;
    // Labels come in rising numbers as a layout walks: the room doubles.
    if (slot >= places->size()) places->resize(std::max<size_t>(slot + 1, 2 * places->size()), -1);
    (*places)[slot] = static_cast<int>(index);
}

HRESULT MethodBuilder::mapOrigins(std::vector<COR_IL_MAP>& map) {
    HRESULT hr = updateTargets();
    if (FAILED(hr)) return hr;
    updateOffsetsAndLabels();
    for (const Instruction& instruction : instructions) {
        if (instruction.origin() != Instruction::kNoOrigin) {
            map.push_back({instruction.origin(), instruction.offset(), TRUE});
        }
    }
    return S_OK;
}

int MethodBuilder::findLabel(unsigned int label) {
    // Between layouts, most often just after an insertion that the next one
    // would undo, a search for the one label costs less than the layout. The
    // map keeps a number's last place: so does the search from the back.
    if (!offsetsValid) {
        for (size_t i = instructions.size(); i-- > 0;) {
            if (isLabel(instructions[i]) && instructions[i].operand() == label) return static_cast<int>(i);
        }
        return -1;
    }
    if (label < kLabelRun) return label < builderLabels.size() ? builderLabels[label] : -1;
    if (label - kFirstTraceLabel < kLabelRun) {
        return label - kFirstTraceLabel < traceLabels.size() ? traceLabels[label - kFirstTraceLabel] : -1;
    }
    auto found = otherLabels.find(label);
    return found == otherLabels.end() ? -1 : static_cast<int>(found->second);
}

HRESULT MethodBuilder::settleBranch(unsigned int index, unsigned int end) {
    const Instruction branch = instructions[index];
    int labelIndex = findLabel(branch.target());
    if (labelIndex < 0) return E_UNEXPECTED;
    int distance = static_cast<int>(getCurrentILByteIndex(static_cast<unsigned int>(labelIndex)) - end);
    // A branch whose form still fits keeps its place and gets the distance;
    // anything else is made anew, which picks the short or long form by it.
    bool isCase = branch.opcode() == Opcode::OPCODE_CASE;
    bool fitsShort = distance >= -128 && distance <= 127;
    bool sameForm = isCase || (branch.size() == 2) == fitsShort;
    if (sameForm) {
        instructions[index].setBranchDistance(distance);
        return S_OK;
    }
    return replaceIL(index, branch.opcode(), static_cast<unsigned int>(distance), branch.target());
}

HRESULT MethodBuilder::updateClauses() {
    for (MethodBuilderEHClause& record : clauses) {
        int tryStart = findLabel(record.tryStartLabel);
        int tryEnd = findLabel(record.tryEndLabel);
        int handlerStart = findLabel(record.handlerStartLabel);
        int handlerEnd = findLabel(record.handlerEndLabel);
        if (tryStart < 0 || tryEnd < 0 || handlerStart < 0 || handlerEnd < 0) return E_UNEXPECTED;
        if (tryEnd < tryStart || handlerEnd < handlerStart) return E_UNEXPECTED;
        IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& clause = record.clause;
        clause.TryOffset = getCurrentILByteIndex(static_cast<unsigned int>(tryStart));
        clause.TryLength = getCurrentILByteIndex(static_cast<unsigned int>(tryEnd)) - clause.TryOffset;
        clause.HandlerOffset = getCurrentILByteIndex(static_cast<unsigned int>(handlerStart));
        clause.HandlerLength = getCurrentILByteIndex(static_cast<unsigned int>(handlerEnd)) - clause.HandlerOffset;
        if ((clause.Flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0) {
            int filter = findLabel(record.filterLabel);
            if (filter < 0) return E_UNEXPECTED;
            clause.FilterOffset = getCurrentILByteIndex(static_cast<unsigned int>(filter));
        }
    }
    return S_OK;
}

HRESULT MethodBuilder::updateTargets() {
    if (targetsValid) return S_OK;
    HRESULT hr = S_OK;
    do {
        updateOffsetsAndLabels();
        unsigned int position = 0;
        // A change of form invalidates the offsets; the walk then starts over.
        for (unsigned int i = 0; i < instructions.size() && offsetsValid && SUCCEEDED(hr); ++i) {
            position += instructions[i].size();
            if (!isBranchOpcode(instructions[i].opcode())) continue;
            unsigned int end = position;
            for (unsigned int j = i + 1; j < instructions.size() && instructions[j].opcode() == Opcode::OPCODE_CASE;
                 ++j) {
                end += instructions[j].size();
            }
            hr = settleBranch(i, end);
        }
        if (SUCCEEDED(hr) && offsetsValid) hr = updateClauses();
    } while (SUCCEEDED(hr) && !offsetsValid);
    if (SUCCEEDED(hr)) targetsValid = true;
    return hr;
}

HRESULT MethodBuilder::writeToBuffer(unsigned char* buffer) {
    header.CodeSize = getCodeSize();
    std::memcpy(buffer, &header, kFatHeaderSize);
    HRESULT hr = updateTargets();
    if (FAILED(hr)) return hr;
    unsigned int position = kFatHeaderSize;
    for (const Instruction& instruction : instructions) {
        if (instruction.size() == 0) continue;
        std::memcpy(buffer + position, instruction.data(), instruction.size());
        position += instruction.size();
    }
    if (clauses.empty()) return S_OK;
    while ((position - kFatHeaderSize) % 4 != 0) buffer[position++] = 0;
    std::memcpy(buffer + position, &ehHeader, kSectionHeaderSize);
    position += kSectionHeaderSize;
    for (const MethodBuilderEHClause& record : clauses) {
        std::memcpy(buffer + position, &record.clause, kFatClauseSize);
        position += kFatClauseSize;
    }
    return S_OK;
}

void MethodBuilder::printClauses(FILE* stream) {
    fprintf_8(stream, "\nEXCEPTION HEADER\n");
    fprintf_8(stream, "%15s 0x%08X\n", "Kind", static_cast<unsigned int>(ehHeader.Kind));
    fprintf_8(stream, "%15s %10d\n", "DataSize", static_cast<int>(ehHeader.DataSize));
    fprintf_8(stream, "\nEXCEPTION CLAUSES\n");
    for (const MethodBuilderEHClause& record : clauses) {
        const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& clause = record.clause;
        fprintf_8(stream, "%15s 0x%08X\n", "Flags", static_cast<unsigned int>(clause.Flags));
        fprintf_8(stream, "%15s 0x%08X\n", "TryOffset", clause.TryOffset);
        fprintf_8(stream, "%15s 0x%08X [0x%08X]\n", "TryLength", clause.TryLength, clause.TryOffset + clause.TryLength);
        fprintf_8(stream, "%15s 0x%08X\n", "HandlerOffset", clause.HandlerOffset);
        fprintf_8(stream, "%15s 0x%08X [0x%08X]\n", "HandlerLength", clause.HandlerLength,
                  clause.HandlerOffset + clause.HandlerLength);
        if ((clause.Flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0) {
            fprintf_8(stream, "%15s 0x%08X\n", "FilterOffset", clause.FilterOffset);
        } else {
            fprintf_8(stream, "%15s 0x%08X\n", "ClassToken", clause.ClassToken);
        }
        fprintf_8(stream, "\n");
    }
}

int MethodBuilder::print(FILE* stream, unsigned int origin) {
    fprintf_8(stream, "HEADER\n");
    fprintf_8(stream, "%15s 0x%08X\n", "Flags", static_cast<unsigned int>(header.Flags));
    fprintf_8(stream, "%15s %10d\n", "Size", static_cast<int>(header.Size));
    fprintf_8(stream, "%15s %10d\n", "MaxStack", static_cast<int>(header.MaxStack));
    fprintf_8(stream, "%15s %10d\n", "CodeSize", static_cast<int>(header.CodeSize));
    fprintf_8(stream, "%15s 0x%08X\n", "LocalVarSigTok", header.LocalVarSigTok);
    fprintf_8(stream, "\nCODE\n");
    fprintf_8(stream, "%7s %7s  %-15s %-15s\n", "OFF", "OFF*", "OPCODE", "OPERAND");
    for (unsigned int i = 0; i < instructions.size(); ++i) {
        // The layout may replace entries (branch forms): it goes first.
        unsigned int b = getILByteIndex(i);
        const Instruction& instruction = instructions[i];
        const OpcodeInfo* info = findOpcode(instruction.opcode());
        fprintf_8(stream, "%7X ", b);
        if (b >= origin) {
            fprintf_8(stream, "%7X  ", b - origin);
        } else {
            fprintf_8(stream, "         ");
        }
        fprintf_8(stream, "%-15s ", info->name);
        unsigned long operand = instruction.operand();
        switch (info->operandSize) {
        case 1:
            fprintf_8(stream, "0x%04X ", static_cast<unsigned int>(operand));
            break;
        case 4:
            fprintf_8(stream, "0x%08X ", static_cast<unsigned int>(operand));
            break;
        case 8:
            fprintf_8(stream, "<bigint>   ");
            break;
        default:
            break;
        }
        if (isBranchOpcode(instruction.opcode())) {
            fprintf_8(stream, "[0x%X] ", b + instruction.size() + ILDecoder::branchDistance(instruction));
        }
        fprintf_8(stream, "\n");
    }
    if (!clauses.empty()) printClauses(stream);
    fflush(stream);
    return 0;
}
