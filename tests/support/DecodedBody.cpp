#include "DecodedBody.h"

#include <algorithm>
#include <memory>

#include "rewrite/CorSig.h"
#include "rewrite/ILDecoder.h"
#include "rewrite/IMethodBuffer.h"
#include "runtime/CorErrors.h"
#include "runtime/CorMetadataEnums.h"

DecodedBody DecodedBody::read(const unsigned char* body) {
    DecodedBody out;
    std::unique_ptr<IMethodBuffer> buffer(IMethodBuffer::newInstance(body));
    const IMAGE_COR_ILMETHOD_FAT& header = buffer->getHeader()->Fat;
    out.fat = !buffer->isTinyHeader();
    out.flags = out.fat ? header.Flags : 0;
    out.maxStack = out.fat ? header.MaxStack : 8;
    out.localSigToken = out.fat ? header.LocalVarSigTok : 0;
    out.codeSize = buffer->getCodeSize();
    out.clauses = clausesOf(*buffer);
    std::vector<::Instruction> decoded;
    std::vector<unsigned int> ends;
    if (FAILED(ILDecoder::decode(buffer->getCode(), out.codeSize, decoded, ends))) {
        out.error = "the code does not decode";
        return out;
    }
    for (const ::Instruction& instruction : decoded) {
        // A switch's table entries follow it as entries of their own.
        if (instruction.opcode() != Opcode::OPCODE_CASE) {
            // Two-byte opcodes are held with their bytes in encoding order.
            const auto value = static_cast<uint32_t>(instruction.opcode());
            const uint32_t opcode = value > 0xFF ? 0xFE00u | value >> 8 : value;
            out.instructions.push_back({instruction.origin(), opcode, instruction.operand()});
        }
    }
    return out;
}

std::vector<DecodedBody::Clause> DecodedBody::clausesOf(IMethodBuffer& buffer) {
    std::vector<Clause> clauses;
    IMAGE_COR_ILMETHOD_SECT_EH* eh = buffer.getEH();
    const auto add = [&clauses](const auto& c) {
        clauses.push_back({c.Flags, c.TryOffset, c.TryLength, c.HandlerOffset, c.HandlerLength, c.ClassToken});
    };
    for (unsigned int i = 0; i < buffer.getEHClauses(); ++i) {
        buffer.isSmallEH() ? add(eh->Small.Clauses[i]) : add(eh->Fat.Clauses[i]);
    }
    return clauses;
}

unsigned int DecodedBody::count(uint32_t opcode, std::optional<uint64_t> operand) const {
    return static_cast<unsigned int>(std::count_if(instructions.begin(), instructions.end(), [&](const Instruction& i) {
        return i.opcode == opcode && operand.value_or(i.operand) == i.operand;
    }));
}

unsigned char returnType(std::span<const unsigned char> signature) {
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
    return *p;
}
