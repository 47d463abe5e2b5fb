// One IL instruction as the rewrite holds it: plain data, kept by value in the
// builder's list, so that the layout passes walk one array. Its encoding is
// its bytes: the opcode (one or two bytes) then the operand, little-endian; a
// switch entry has only its 32-bit distance, a label no byte at all.
#pragma once

#include <cstddef>

#include "rewrite/Opcode.h"

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

class Instruction {
public:
    // The origin of code added by the rewrite.
    static constexpr unsigned int kNoOrigin = 0xFFFFFFFF;

    // The opcode in opcodeBytes (0 for a switch entry, 1 or 2), then the low
    // operandBytes (0, 1, 2, 4 or 8, no other) of the operand; a branch or switch entry
    // aims at the label target.
    Instruction(Opcode opcode, unsigned int opcodeBytes, unsigned long operand, unsigned int operandBytes,
                unsigned int target)
        : targetLabel(target),
          opcodeValue(opcode),
          length(static_cast<unsigned char>(opcodeBytes + operandBytes)),
          operandAt(static_cast<unsigned char>(opcodeBytes)) {
        if (opcodeBytes == 1) bytes[0] = static_cast<unsigned char>(static_cast<unsigned int>(opcode));
        if (opcodeBytes == 2) putLittleEndian(bytes, static_cast<unsigned short>(opcode));
        // One store for each width the encodings have.
        unsigned char* at = bytes + opcodeBytes;
        switch (operandBytes) {
        case 1:
            at[0] = static_cast<unsigned char>(operand);
            break;
        case 2:
            putLittleEndian(at, static_cast<unsigned short>(operand));
            break;
        case 4:
            putLittleEndian(at, static_cast<unsigned int>(operand));
            break;
        case 8:
            putLittleEndian(at, operand);
            break;
        default:
            break;
        }
    }

    // A label: names a place in the list and takes no byte.
    static Instruction label(unsigned int number) {
        Instruction made(Opcode::OPCODE_LABEL, 0, 0, 0, 0);
        made.labelNumber = number;
        return made;
    }

    Opcode opcode() const { return opcodeValue; }
    // Encoded bytes.
    unsigned int size() const { return length; }
    // The operand zero-extended from its encoded width, a label's number, or
    // 0 when there is none. Callers sign-extend branch distances themselves.
    unsigned long operand() const {
        if (opcodeValue == Opcode::OPCODE_LABEL) return labelNumber;
        const unsigned char* at = bytes + operandAt;
        switch (length - operandAt) {
        case 1:
            return at[0];
        case 2:
            return getLittleEndian<unsigned short>(at);
        case 4:
            return getLittleEndian<unsigned int>(at);
        case 8:
            return getLittleEndian<unsigned long>(at);
        default:
            return 0;
        }
    }
    // A branch's or switch entry's operand, in the width it has: the caller
    // knows the distance fits.
    void setBranchDistance(int distance) {
        unsigned char* at = bytes + operandAt;
        if (length - operandAt == 1) {
            at[0] = static_cast<unsigned char>(distance);
        } else {
            putLittleEndian(at, static_cast<unsigned int>(distance));
        }
    }
    // The label a branch or switch entry aims at; 0 when it has none.
    unsigned int target() const { return targetLabel; }
    void setTarget(unsigned int label) { targetLabel = label; }
    // The encoding: size() bytes, or null when size() is 0.
    const unsigned char* data() const { return length != 0 ? bytes : nullptr; }

    // Byte offset in the method's code as of the builder's last layout.
    unsigned int offset() const { return byteOffset; }
    void setOffset(unsigned int value) { byteOffset = value; }
    // The byte offset in the code it was decoded from, kept through changes
    // of form; kNoOrigin for code added by the rewrite.
    unsigned int origin() const { return originOffset; }
    void setOrigin(unsigned int value) { originOffset = value; }

private:
    unsigned int byteOffset = 0;
    unsigned int originOffset = kNoOrigin;
    unsigned int targetLabel;
    unsigned int labelNumber = 0;
    Opcode opcodeValue;
    unsigned char length;
    unsigned char operandAt;
    // The longest encodings: a one-byte opcode with eight operand bytes, a
    // two-byte opcode with four.
    unsigned char bytes[9] = {};
};
