// An editable method body: header, instruction list, exception clauses, and
// labels that tie branches and clauses to places in the list. Callers edit by
// instruction index and never compute byte offsets; the builder settles the
// layout (branch forms, clause offsets) when asked for byte indices or a write.
//
// A builder belongs to one thread at a time; the caller serialises use.
#pragma once

#include <cstdio>
#include <vector>

#include "rewrite/Instruction.h"
#include "runtime/CorErrors.h"
#include "runtime/CorILMethod.h"
#include "runtime/ProfilerStructs.h"

// One exception clause as the builder keeps it: the clause as written out, and
// the labels of its places, from which the offsets are refilled at each layout.
// Only `clause` (24 bytes) goes out.
struct MethodBuilderEHClause {
    IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT clause;
    unsigned int tryStartLabel;
    unsigned int tryEndLabel;
    unsigned int handlerStartLabel;
    unsigned int handlerEndLabel;
    unsigned int filterLabel;
};

class IMethodBuilder {
public:
    static IMethodBuilder* newInstance();

    virtual ~IMethodBuilder() = default;

    // Empty again, as newInstance makes it, keeping the room its list of
    // entries grew (up to a bound) for the next body.
    virtual void clear() = 0;

    // The header to be written; callers change flags, MaxStack and
    // LocalVarSigTok through it. CodeSize is filled by writeToBuffer.
    virtual IMAGE_COR_ILMETHOD_FAT* getFatHeader() = 0;
    // Takes over a tiny or fat header; the code size comes from the list.
    virtual void copyHeader(const IMAGE_COR_ILMETHOD* source) = 0;
    // Adds a clause given in byte offsets of the present layout. E_UNEXPECTED if
    // a position is not where an entry begins.
    [[nodiscard]] virtual HRESULT insertEHClause(unsigned int classOrFilter, CorExceptionFlag flags, unsigned int tryOffset,
                                   unsigned int tryLength, unsigned int handlerOffset, unsigned int handlerLength,
                                   unsigned int filterOffset) = 0;
    // Adds a filter clause between labels already in the code: the protected
    // block from tryStart to tryEnd, the filter from filter, and the handler
    // from handler to the end of the code. E_UNEXPECTED if a label is missing
    // or a block would end before it starts.
    [[nodiscard]] virtual HRESULT insertFilterClause(unsigned int tryStart, unsigned int tryEnd, unsigned int filter,
                                                     unsigned int handler) = 0;
    virtual IMAGE_COR_ILMETHOD_SECT_FAT* getExceptionHeader() = 0;
    // No bounds check.
    virtual MethodBuilderEHClause* getExceptionClause(int index) = 0;
    virtual unsigned int getHeaderSize() = 0;
    virtual unsigned int getCodeSize() = 0;
    virtual unsigned int getEHSize() = 0;
    virtual unsigned int getEHCount() = 0;
    // Bytes that writeToBuffer needs.
    virtual unsigned int getTotalSize() = 0;
    // Writes a fat header, the code and fat clauses into getTotalSize() bytes.
    [[nodiscard]] virtual HRESULT writeToBuffer(unsigned char* buffer) = 0;
    // Owned by the builder, valid until the list next changes; null past the end.
    virtual const Instruction* getIL(unsigned int index) = 0;
    // Inserts at index, or appends at or past the end. A branch with target 0
    // is tied to the place its operand points to.
    [[nodiscard]] virtual HRESULT insertIL(unsigned int index, Opcode opcode, unsigned long operand, unsigned int target) = 0;
    [[nodiscard]] virtual HRESULT replaceIL(unsigned int index, Opcode opcode, unsigned long operand, unsigned int target) = 0;
    // Inserts made entries at index (or appends), in one move of the entries
    // behind: none of them a branch with target 0. Nothing is inserted on failure.
    [[nodiscard]] virtual HRESULT insertRun(unsigned int index, const Instruction* run, unsigned int count) = 0;
    // Decodes a body's code into the empty list, a label in front of each
    // place a branch lands on or that places names (byte offsets: the edges of
    // the clauses to be added next, which then find their labels without a
    // search; one where no instruction begins gets none, and its clause is
    // refused) and one behind the code. E_UNEXPECTED for a list that is not
    // empty, for undecodable or truncated code and for branches that do not
    // land on an instruction of the code or its end; the list is then
    // unchanged.
    [[nodiscard]] virtual HRESULT decodeIL(const unsigned char* code, unsigned int length,
                                           const std::vector<unsigned long>& places) = 0;
    [[nodiscard]] HRESULT decodeIL(const unsigned char* code, unsigned int length) {
        return decodeIL(code, length, {});
    }
    // Byte index of the entry after the branches are settled; kUnsettled if
    // they cannot be (and so the code size too).
    static constexpr unsigned int kUnsettled = 0xFFFFFFFF;
    virtual unsigned int getILByteIndex(unsigned int index) = 0;
    // Entries, labels and switch entries included.
    virtual unsigned int getILCount() = 0;
    // For each entry decoded from incoming code, its offset there beside its
    // byte index once the branches are settled: what stack traces map back.
    [[nodiscard]] virtual HRESULT mapOrigins(std::vector<COR_IL_MAP>& map) = 0;
    // Instruction index of the label, -1 if absent.
    virtual int findLabel(unsigned int label) = 0;
    // Listing in 8-bit text; origin is the byte index where the method's own
    // code starts, for the column of incoming offsets.
    virtual int print(FILE* stream, unsigned int origin) = 0;

    // An existing clause of a body, widened.
    [[nodiscard]] HRESULT insertEHClause(const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL* clause);
    [[nodiscard]] HRESULT insertEHClause(const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT* clause);
};
