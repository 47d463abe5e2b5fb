// Method body headers and exception-handling sections of the IL file format,
// with the flag values that describe them. Layouts match the runtime's own on
// x86-64 Linux; the static_asserts below pin them.
#pragma once

#include "runtime/CorTypes.h"

enum CorILMethodFlags : uint32_t {
    CorILMethod_InitLocals = 0x0010,
    CorILMethod_MoreSects = 0x0008,
    CorILMethod_CompressedIL = 0x0040,
    CorILMethod_FormatShift = 3,
    CorILMethod_FormatMask = 0x0007,
    CorILMethod_TinyFormat = 0x0002,
    CorILMethod_SmallFormat = 0x0000,
    CorILMethod_FatFormat = 0x0003,
    CorILMethod_TinyFormat1 = 0x0006,
};

enum CorILMethodSect : uint32_t {
    CorILMethod_Sect_Reserved = 0,
    CorILMethod_Sect_EHTable = 1,
    CorILMethod_Sect_OptILTable = 2,
    CorILMethod_Sect_KindMask = 0x3F,
    CorILMethod_Sect_FatFormat = 0x40,
    CorILMethod_Sect_MoreSects = 0x80,
};

enum CorExceptionFlag : uint32_t {
    COR_ILEXCEPTION_CLAUSE_NONE = 0x0000,
    COR_ILEXCEPTION_CLAUSE_OFFSETLEN = 0x0000,
    COR_ILEXCEPTION_CLAUSE_DEPRECATED = 0x0000,
    COR_ILEXCEPTION_CLAUSE_FILTER = 0x0001,
    COR_ILEXCEPTION_CLAUSE_FINALLY = 0x0002,
    COR_ILEXCEPTION_CLAUSE_FAULT = 0x0004,
    COR_ILEXCEPTION_CLAUSE_DUPLICATED = 0x0008,
};

constexpr uint32_t COR_ILMETHOD_SECT_SMALL_MAX_DATASIZE = 0xFF;

struct IMAGE_COR_ILMETHOD_TINY {
    uint8_t Flags_CodeSize;
};

struct IMAGE_COR_ILMETHOD_FAT {
    unsigned Flags : 12;
    unsigned Size : 4;
    unsigned MaxStack : 16;
    uint32_t CodeSize;
    mdSignature LocalVarSigTok;
};

union IMAGE_COR_ILMETHOD {
    IMAGE_COR_ILMETHOD_TINY Tiny;
    IMAGE_COR_ILMETHOD_FAT Fat;
};

struct IMAGE_COR_ILMETHOD_SECT_SMALL {
    uint8_t Kind;
    uint8_t DataSize;
};

struct IMAGE_COR_ILMETHOD_SECT_FAT {
    unsigned Kind : 8;
    unsigned DataSize : 24;
};

struct IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL {
    unsigned Flags : 16;
    unsigned TryOffset : 16;
    unsigned TryLength : 8;
    unsigned HandlerOffset : 16;
    unsigned HandlerLength : 8;
    union {
        uint32_t ClassToken;
        uint32_t FilterOffset;
    };
};

struct IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT {
    CorExceptionFlag Flags;
    uint32_t TryOffset;
    uint32_t TryLength;
    uint32_t HandlerOffset;
    uint32_t HandlerLength;
    union {
        uint32_t ClassToken;
        uint32_t FilterOffset;
    };
};

struct IMAGE_COR_ILMETHOD_SECT_EH_SMALL {
    IMAGE_COR_ILMETHOD_SECT_SMALL SectSmall;
    uint16_t Reserved;
    IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL Clauses[1];
};

struct IMAGE_COR_ILMETHOD_SECT_EH_FAT {
    IMAGE_COR_ILMETHOD_SECT_FAT SectFat;
    IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT Clauses[1];
};

union IMAGE_COR_ILMETHOD_SECT_EH {
    IMAGE_COR_ILMETHOD_SECT_EH_SMALL Small;
    IMAGE_COR_ILMETHOD_SECT_EH_FAT Fat;
};

static_assert(sizeof(IMAGE_COR_ILMETHOD_TINY) == 1);
static_assert(sizeof(IMAGE_COR_ILMETHOD_FAT) == 12);
static_assert(sizeof(IMAGE_COR_ILMETHOD) == 12);
static_assert(sizeof(IMAGE_COR_ILMETHOD_SECT_SMALL) == 2);
static_assert(sizeof(IMAGE_COR_ILMETHOD_SECT_FAT) == 4);
static_assert(sizeof(IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL) == 12);
static_assert(sizeof(IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT) == 24);
static_assert(sizeof(IMAGE_COR_ILMETHOD_SECT_EH_SMALL) == 16);
static_assert(sizeof(IMAGE_COR_ILMETHOD_SECT_EH_FAT) == 28);
static_assert(offsetof(IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL, ClassToken) == 8);
static_assert(offsetof(IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT, ClassToken) == 20);

// The pieces' sizes as the body writer and readers count them, and the stack
// depth a tiny header stands for.
constexpr unsigned int kTinyHeaderSize = sizeof(IMAGE_COR_ILMETHOD_TINY);
constexpr unsigned int kFatHeaderSize = sizeof(IMAGE_COR_ILMETHOD_FAT);
constexpr unsigned int kSectionHeaderSize = sizeof(IMAGE_COR_ILMETHOD_SECT_FAT);
constexpr unsigned int kSmallClauseSize = sizeof(IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_SMALL);
constexpr unsigned int kFatClauseSize = sizeof(IMAGE_COR_ILMETHOD_SECT_EH_CLAUSE_FAT);
constexpr unsigned int kTinyMaxStack = 8;
