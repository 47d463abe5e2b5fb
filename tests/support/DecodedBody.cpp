#include "DecodedBody.h"

#include "rewrite/CorSig.h"
#include "rewrite/ILDecoder.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"

namespace {

uint32_t little(const unsigned char* bytes, unsigned int width) {
    uint32_t value = 0;
    for (unsigned int i = width; i > 0; --i) value = value << 8 | bytes[i - 1];
    return value;
}

// The extra sections behind the code: clause tables, small or fat.
void readClauses(const unsigned char* section, DecodedBody& out) {
    for (bool more = true; more;) {
        const unsigned char kind = section[0];
        const bool fatSection = (kind & 0x40) != 0;
        const uint32_t size = fatSection ? little(section + 1, 3) : section[1];
        const unsigned int entry = fatSection ? 24 : 12;
        for (uint32_t at = 4; at + entry <= size; at += entry) {
            const unsigned char* c = section + at;
            out.clauses.push_back(fatSection ? DecodedBody::Clause{little(c, 4), little(c + 4, 4), little(c + 8, 4),
                                                                   little(c + 12, 4), little(c + 16, 4), little(c + 20, 4)}
                                             : DecodedBody::Clause{little(c, 2), little(c + 2, 2), c[4], little(c + 5, 2),
                                                                   c[7], little(c + 8, 4)});
        }
        more = (kind & 0x80) != 0;
        section += (size + 3) & ~3u;
    }
}

}  // namespace

DecodedBody DecodedBody::read(const unsigned char* body) {
    DecodedBody out;
    const unsigned char* code = body + 1;
    if ((body[0] & 3) == 2) {
        out.codeSize = body[0] >> 2;
        out.maxStack = 8;
    } else {
        out.fat = true;
        out.flags = little(body, 2) & 0xFFF;
        out.maxStack = little(body + 2, 2);
        out.codeSize = little(body + 4, 4);
        out.localSigToken = little(body + 8, 4);
        code = body + 4 * (body[1] >> 4);
    }
    std::vector<InstructionPtr> decoded;
    if (FAILED(ILDecoder::decode(code, out.codeSize, decoded))) {
        out.error = "the code does not decode";
        return out;
    }
    uint32_t offset = 0;
    for (const InstructionPtr& instruction : decoded) {
        // A switch's table entries follow it as entries of their own.
        if (instruction->opcode() != Opcode::OPCODE_CASE) {
            // Two-byte opcodes are held with their bytes in encoding order.
            const auto value = static_cast<uint32_t>(instruction->opcode());
            const uint32_t opcode = value > 0xFF ? 0xFE00u | value >> 8 : value;
            out.instructions.push_back({offset, opcode, instruction->operand()});
        }
        offset += instruction->size();
    }
    if ((out.flags & 0x8) != 0) {
        readClauses(code + ((out.codeSize + 3) & ~3u), out);
    }
    return out;
}

unsigned int DecodedBody::count(uint32_t opcode) const {
    unsigned int n = 0;
    for (const Instruction& instruction : instructions) n += instruction.opcode == opcode ? 1 : 0;
    return n;
}

bool returnsValue(std::span<const unsigned char> signature) {
    const unsigned char* p = signature.data() + 1;
    const unsigned char* end = signature.data() + signature.size();
    ULONG skipped = 0;
    if ((signature[0] & 0x10) != 0) p += CorSigUncompressData(p, static_cast<ULONG>(end - p), &skipped);
    p += CorSigUncompressData(p, static_cast<ULONG>(end - p), &skipped);
    // Custom modifiers stand before the type.
    while (*p == 0x1F || *p == 0x20) {
        ++p;
        p += CorSigUncompressData(p, static_cast<ULONG>(end - p), &skipped);
    }
    return *p != ELEMENT_TYPE_VOID;
}
