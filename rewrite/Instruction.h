// Base of the concrete instruction classes. None of the classes owns anything and
// none has a virtual destructor, so an owner releases one through destroy(),
// whatever its concrete class.
#pragma once

#include <memory>

#include "rewrite/IILInstruction.h"

class Instruction : public IILInstruction {
public:
    unsigned int target() const override { return 0; }
    virtual void setTarget(unsigned int label) {}

    // Byte offset in the method's code as of the builder's last layout.
    unsigned int offset() const { return byteOffset; }
    void setOffset(unsigned int value) { byteOffset = value; }
    unsigned int origin() const override { return originOffset; }
    void setOrigin(unsigned int value) { originOffset = value; }

    static void destroy(Instruction* instruction);

protected:
    Instruction() = default;
    ~Instruction() = default;

private:
    unsigned int byteOffset = 0;
    unsigned int originOffset = kNoOrigin;
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
