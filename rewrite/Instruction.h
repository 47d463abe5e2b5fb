// Base of the concrete instruction classes. None of the classes owns anything and
// none has a virtual destructor, so an owner releases one through destroy(),
// whatever its concrete class.
#pragma once

#include <cstddef>
#include <memory>

#include "rewrite/IILInstruction.h"

class Instruction : public IILInstruction {
public:
    // Kept here as plain data: the builder's layout passes read them for every
    // instruction, and a final member needs no virtual call.
    Opcode opcode() const final { return opcodeValue; }
    unsigned int size() const final { return length; }
    unsigned int target() const override { return 0; }
    virtual void setTarget(unsigned int label) {}

    // Byte offset in the method's code as of the builder's last layout.
    unsigned int offset() const { return byteOffset; }
    void setOffset(unsigned int value) { byteOffset = value; }
    unsigned int origin() const override { return originOffset; }
    void setOrigin(unsigned int value) { originOffset = value; }

    static void destroy(Instruction* instruction);

    // Every concrete instruction takes one block of this size, from a free list
    // of the thread's: a rewrite makes and drops thousands of them at once.
    static constexpr size_t kBlockSize = 48;
    static void* operator new(size_t size);
    static void operator delete(void* block);

protected:
    Instruction(Opcode opcode, unsigned int size) : opcodeValue(opcode), length(static_cast<unsigned char>(size)) {}
    ~Instruction() = default;

private:
    unsigned int byteOffset = 0;
    unsigned int originOffset = kNoOrigin;
    Opcode opcodeValue;
    unsigned char length;
};

struct InstructionDeleter {
    void operator()(Instruction* instruction) const { Instruction::destroy(instruction); }
};
using InstructionPtr = std::unique_ptr<Instruction, InstructionDeleter>;

// Little-endian access to encoded operands, independent of the host's order.
template <typename T>
inline void putLittleEndian(unsigned char* out, T value) {
    for (unsigned int i = 0; i < sizeof(T); ++i) {
        out[i] = static_cast<unsigned char>(static_cast<unsigned long>(value) >> (8 * i));
    }
}

template <typename T>
inline T getLittleEndian(const unsigned char* in) {
    unsigned long value = 0;
    for (unsigned int i = 0; i < sizeof(T); ++i) {
        value |= static_cast<unsigned long>(in[i]) << (8 * i);
    }
    return static_cast<T>(value);
}
