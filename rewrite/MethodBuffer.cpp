#include "rewrite/MethodBuffer.h"

#include <memory>

#include "platform/FormattedOutput.h"
#include "rewrite/ILDecoder.h"
#include "rewrite/InstructionFactory.h"

namespace {

unsigned int roundUpTo4(unsigned int value) { return (value + 3) & ~3u; }

bool isTiny(const unsigned char* method) { return (method[0] & 3) == CorILMethod_TinyFormat; }

}  // namespace

IMethodBuffer* IMethodBuffer::newInstance(const unsigned char* method) {
    // A borrowed view never writes to the memory.
    return new MethodBuffer(const_cast<unsigned char*>(method), true);
}

IMethodBuffer* IMethodBuffer::newInstance(unsigned int headerSize, unsigned int codeSize, unsigned int ehSize) {
    unsigned long total = static_cast<unsigned long>(headerSize) + roundUpTo4(codeSize) + ehSize;
    std::unique_ptr<unsigned char[]> memory(new unsigned char[total == 0 ? 1 : total]());
    MethodBuffer* view = new MethodBuffer(memory.get(), headerSize, codeSize, ehSize);
    memory.release();
    return view;
}

MethodBuffer::MethodBuffer(unsigned char* memory, bool borrowed)
    : buffer(memory),
      header(reinterpret_cast<IMAGE_COR_ILMETHOD*>(memory)),
      code(nullptr),
      eh(nullptr),
      borrowed(borrowed),
      ehSize(0) {
    if (isTiny(memory)) {
        code = memory + kTinyHeaderSize;
        return;
    }
    code = memory + kFatHeaderSize;
    if ((header->Fat.Flags & CorILMethod_MoreSects) == 0) return;
    unsigned char* section = memory + roundUpTo4(kFatHeaderSize + header->Fat.CodeSize);
    eh = reinterpret_cast<IMAGE_COR_ILMETHOD_SECT_EH*>(section);
    // The divisions round down, which drops the 4 bytes of the section header.
    if ((section[0] & CorILMethod_Sect_FatFormat) == 0) {
        ehSize = kSectionHeaderSize + kSmallClauseSize * (section[1] / kSmallClauseSize);
    } else {
        ehSize = kSectionHeaderSize + kFatClauseSize * (eh->Fat.SectFat.DataSize / kFatClauseSize);
    }
}

MethodBuffer::MethodBuffer(unsigned char* memory, unsigned int headerSize, unsigned int codeSize,
                           unsigned int ehSize)
    : buffer(memory),
      header(reinterpret_cast<IMAGE_COR_ILMETHOD*>(memory)),
      code(memory + headerSize),
      eh(nullptr),
      borrowed(false),
      ehSize(0) {
    if (ehSize >= kSectionHeaderSize && (ehSize - kSectionHeaderSize) / kFatClauseSize != 0) {
        eh = reinterpret_cast<IMAGE_COR_ILMETHOD_SECT_EH*>(memory + headerSize + roundUpTo4(codeSize));
        this->ehSize = ehSize;
    }
}

MethodBuffer::~MethodBuffer() {
    if (!borrowed) delete[] buffer;
}

unsigned int MethodBuffer::getHeaderSize() { return isTinyHeader() ? kTinyHeaderSize : kFatHeaderSize; }

unsigned int MethodBuffer::getCodeSize() {
    // A tiny header is one byte with no alignment: it is read as a byte.
    return isTinyHeader() ? buffer[0] >> 2 : header->Fat.CodeSize;
}

unsigned int MethodBuffer::getRealCodeSize() {
    return getEHSize() != 0 ? roundUpTo4(getCodeSize()) : getCodeSize();
}

unsigned int MethodBuffer::getEHSize() { return ehSize; }

unsigned int MethodBuffer::getEHClauses() {
    if (eh == nullptr || ehSize < kSectionHeaderSize) return 0;
    return (ehSize - kSectionHeaderSize) / (isSmallEH() ? kSmallClauseSize : kFatClauseSize);
}

unsigned int MethodBuffer::getTotalSize() { return getHeaderSize() + getRealCodeSize() + getEHSize(); }

bool MethodBuffer::hasEH() { return !isTinyHeader() && (header->Fat.Flags & CorILMethod_MoreSects) != 0; }

bool MethodBuffer::isTinyHeader() { return isTiny(buffer); }

bool MethodBuffer::isSmallEH() { return (eh->Small.SectSmall.Kind & CorILMethod_Sect_FatFormat) == 0; }

bool MethodBuffer::isEmptyMethod() {
    unsigned int size = getCodeSize();
    if (size == 0) return true;
    if (code[size - 1] != 0x2A) return false;
    for (unsigned int i = 0; i + 1 < size; ++i) {
        if (code[i] != 0x00) return false;
    }
    return true;
}

bool MethodBuffer::isEndWithRet() {
    unsigned int size = getCodeSize();
    return size != 0 && code[size - 1] == 0x2A;
}

IMAGE_COR_ILMETHOD* MethodBuffer::getHeader() { return header; }
unsigned char* MethodBuffer::getCode() { return code; }
unsigned char MethodBuffer::getCodeAt(unsigned int index) { return code[index]; }
IMAGE_COR_ILMETHOD_SECT_EH* MethodBuffer::getEH() { return eh; }
unsigned char* MethodBuffer::getBuffer() { return buffer; }

void MethodBuffer::printHeader(FILE* stream) {
    bool tiny = isTinyHeader();
    fprintf_8(stream, tiny ? "TINY HEADER\n" : "FAT HEADER\n");
    fprintf_8(stream, "%15s 0x%08X\n", "Flags", tiny ? buffer[0] & 3u : static_cast<unsigned int>(header->Fat.Flags));
    fprintf_8(stream, "%15s %10d\n", "Size", tiny ? 1 : static_cast<int>(header->Fat.Size));
    fprintf_8(stream, "%15s %10d\n", "MaxStack", tiny ? static_cast<int>(kTinyMaxStack)
                                                       : static_cast<int>(header->Fat.MaxStack));
    fprintf_8(stream, "%15s %10d\n", "CodeSize", static_cast<int>(getCodeSize()));
    fprintf_8(stream, "%15s 0x%08X\n", "LocalVarSigTok", tiny ? 0u : header->Fat.LocalVarSigTok);
}

void MethodBuffer::printCode(FILE* stream) {
    fprintf_8(stream, "\nCODE\n");
    fprintf_8(stream, "%7s  %-15s %-15s\n", "OFF", "OPCODE", "OPERAND");
    unsigned int size = getCodeSize();
    unsigned int offset = 0;
    while (offset < size) {
        // Held for this line only. The listing ends at bytes that do not decode.
        const std::optional<Instruction> instruction = readInstruction(code + offset, size - offset);
        if (!instruction) break;
        const OpcodeInfo* info = findOpcode(instruction->opcode());
        fprintf_8(stream, "%7X  %-15s ", offset, info->name);
        switch (info->operandSize) {
        case 1:
            fprintf_8(stream, "0x%04X ", static_cast<unsigned int>(instruction->operand()));
            break;
        case 4:
            fprintf_8(stream, "0x%08X ", static_cast<unsigned int>(instruction->operand()));
            break;
        case 8:
            fprintf_8(stream, "<bigint>   ");
            break;
        default:
            break;
        }
        if (isBranchOpcode(instruction->opcode())) {
            fprintf_8(stream, "[0x%X] ", offset + instruction->size() + ILDecoder::branchDistance(*instruction));
        }
        fprintf_8(stream, "\n");
        offset += instruction->size();
    }
}

static void printClause(FILE* stream, unsigned int flags, unsigned int tryOffset, unsigned int tryLength,
                        unsigned int handlerOffset, unsigned int handlerLength, unsigned int classOrFilter) {
    fprintf_8(stream, "%15s 0x%08X\n", "Flags", flags);
    fprintf_8(stream, "%15s 0x%08X\n", "TryOffset", tryOffset);
    fprintf_8(stream, "%15s 0x%08X [0x%08X]\n", "TryLength", tryLength, tryOffset + tryLength);
    fprintf_8(stream, "%15s 0x%08X\n", "HandlerOffset", handlerOffset);
    fprintf_8(stream, "%15s 0x%08X [0x%08X]\n", "HandlerLength", handlerLength, handlerOffset + handlerLength);
    if ((flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0) {
        fprintf_8(stream, "%15s 0x%08X\n", "FilterOffset", classOrFilter);
    } else {
        fprintf_8(stream, "%15s 0x%08X\n", "ClassToken", classOrFilter);
    }
    fprintf_8(stream, "\n");
}

void MethodBuffer::printClauses(FILE* stream) {
    unsigned int count = getEHClauses();
    if (isSmallEH()) {
        fprintf_8(stream, "\nSMALL EXCEPTION HEADER\n");
        fprintf_8(stream, "%15s 0x%08X\n", "Kind", static_cast<unsigned int>(eh->Small.SectSmall.Kind));
        fprintf_8(stream, "%15s %10d\n", "DataSize", static_cast<int>(eh->Small.SectSmall.DataSize));
        fprintf_8(stream, "\nSMALL EXCEPTION CLAUSES\n");
        for (unsigned int i = 0; i < count; ++i) {
            const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL& c = eh->Small.Clauses[i];
            printClause(stream, c.Flags, c.TryOffset, c.TryLength, c.HandlerOffset, c.HandlerLength, c.ClassToken);
        }
        return;
    }
    fprintf_8(stream, "\nFAT EXCEPTION HEADER\n");
    fprintf_8(stream, "%15s 0x%08X\n", "Kind", static_cast<unsigned int>(eh->Fat.SectFat.Kind));
    fprintf_8(stream, "%15s %10d\n", "DataSize", static_cast<int>(eh->Fat.SectFat.DataSize));
    fprintf_8(stream, "\nFAT EXCEPTION CLAUSES\n");
    for (unsigned int i = 0; i < count; ++i) {
        const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& c = eh->Fat.Clauses[i];
        printClause(stream, c.Flags, c.TryOffset, c.TryLength, c.HandlerOffset, c.HandlerLength, c.ClassToken);
    }
}

int MethodBuffer::print(FILE* stream) {
    printHeader(stream);
    printCode(stream);
    if (hasEH() && eh != nullptr) printClauses(stream);
    fflush(stream);
    return 0;
}
