#include "rewrite/Instruction.h"

#include <new>

namespace {

// Blocks kept for reuse on this thread, at most kKept of them; the rest go
// back to the heap. Blocks freed on another thread than the one that took
// them join that thread's list. AddressSanitizer builds keep none, so that it
// sees every instruction's lifetime.
#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned int kKept = 0;
#else
constexpr unsigned int kKept = 8192;
#endif

struct FreeBlocks {
    void* head = nullptr;
    unsigned int count = 0;
    ~FreeBlocks() {
        while (head != nullptr) {
            void* next = *static_cast<void**>(head);
            ::operator delete(head);
            head = next;
        }
    }
};

thread_local FreeBlocks freeBlocks;

}  // namespace

void* Instruction::operator new(size_t size) {
    if (size > kBlockSize) throw std::bad_alloc();
    FreeBlocks& blocks = freeBlocks;
    if (blocks.head == nullptr) return ::operator new(kBlockSize);
    void* block = blocks.head;
    blocks.head = *static_cast<void**>(block);
    --blocks.count;
    return block;
}

void Instruction::operator delete(void* block) {
    if (block == nullptr) return;
    FreeBlocks& blocks = freeBlocks;
    if (blocks.count >= kKept) {
        ::operator delete(block);
        return;
    }
    *static_cast<void**>(block) = blocks.head;
    blocks.head = block;
    ++blocks.count;
}

void Instruction::destroy(Instruction* instruction) {
    if (instruction == nullptr) return;
    // Every concrete class is trivially destructible; the block came from
    // Instruction's own operator new.
    instruction->~Instruction();
    Instruction::operator delete(instruction);
}
