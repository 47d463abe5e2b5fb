#include "rewrite/Instruction.h"

#include <new>

void Instruction::destroy(Instruction* instruction) {
    if (instruction == nullptr) return;
    // Every concrete class is trivially destructible; the memory came from the
    // global operator new of the concrete class's new-expression.
    instruction->~Instruction();
    ::operator delete(static_cast<void*>(instruction));
}
