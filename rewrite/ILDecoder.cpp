#include "rewrite/ILDecoder.h"

#include <new>

#include "rewrite/InstructionFactory.h"
#include "runtime/CorErrors.h"

int ILDecoder::branchDistance(const Instruction& instruction) {
    unsigned long operand = instruction.operand();
    if (isShortBranchOpcode(instruction.opcode())) return static_cast<signed char>(operand);
    return static_cast<int>(static_cast<unsigned int>(operand));
}

static HRESULT decodeStraight(const unsigned char* code, unsigned int length, std::vector<Instruction>& out,
                              std::vector<unsigned int>& ends) {
    unsigned int position = 0;
    while (position < length) {
        std::optional<Instruction> instruction = readInstruction(code + position, length - position);
        if (!instruction) return E_UNEXPECTED;
        instruction->setOrigin(position);
        position += instruction->size();
        bool isSwitch = instruction->opcode() == Opcode::switch_;
        unsigned long count = instruction->operand();
        out.push_back(*instruction);
        ends.push_back(position);
        if (!isSwitch) continue;
        if (count > (length - position) / 4) return E_UNEXPECTED;
        unsigned int tableEnd = position + static_cast<unsigned int>(count) * 4;
        for (unsigned long i = 0; i < count; ++i) {
            unsigned int entry = getLittleEndian<unsigned int>(code + position);
            out.push_back(Instruction(Opcode::OPCODE_CASE, 0, entry, 4, 0));
            // Switch distances count from the end of the whole table.
            ends.push_back(tableEnd);
            position += 4;
        }
    }
    return S_OK;
}

static HRESULT checkTargets(unsigned int length, const std::vector<Instruction>& decoded,
                            const std::vector<unsigned int>& ends) {
    std::vector<bool> starts(static_cast<size_t>(length) + 1, false);
    for (size_t i = 0; i < decoded.size(); ++i) {
        if (decoded[i].opcode() != Opcode::OPCODE_CASE) starts[ends[i] - decoded[i].size()] = true;
    }
    starts[length] = true;
    for (size_t i = 0; i < decoded.size(); ++i) {
        if (!isBranchOpcode(decoded[i].opcode())) continue;
        long target = static_cast<long>(ends[i]) + ILDecoder::branchDistance(decoded[i]);
        if (target < 0 || target > static_cast<long>(length) || !starts[static_cast<size_t>(target)]) {
            return E_UNEXPECTED;
        }
    }
    return S_OK;
}

HRESULT ILDecoder::decode(const unsigned char* code, unsigned int length, std::vector<Instruction>& out,
                          std::vector<unsigned int>& ends) {
    out.clear();
    ends.clear();
    HRESULT hr = S_OK;
    try {
        hr = decodeStraight(code, length, out, ends);
        if (SUCCEEDED(hr)) hr = checkTargets(length, out, ends);
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    }
    if (FAILED(hr)) out.clear();
    return hr;
}
