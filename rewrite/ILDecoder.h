// Straight decoding of IL code into instruction objects, in two passes: first the
// instructions and switch entries in order, then a check that every branch and
// switch entry lands where an instruction begins or at the end of the code.
#pragma once

#include <vector>

#include "rewrite/Instruction.h"
#include "runtime/CorTypes.h"

class ILDecoder {
public:
    // Fills out (emptied first) with the code's entries, targets 0, each but a
    // switch entry with its offset as its origin; and ends (emptied first)
    // with where each entry's distance counts from: its own end, or for a
    // switch entry the end of the whole table. E_UNEXPECTED for bytes that are
    // no instruction, code that ends inside an instruction or a switch table,
    // and a distance that leads to no instruction start; E_OUTOFMEMORY if a
    // list cannot grow. On failure out is empty.
    [[nodiscard]] static HRESULT decode(const unsigned char* code, unsigned int length, std::vector<Instruction>& out,
                                        std::vector<unsigned int>& ends);

    // The distance of a branch or switch entry, sign-extended from its width.
    static int branchDistance(const Instruction& instruction);
};
