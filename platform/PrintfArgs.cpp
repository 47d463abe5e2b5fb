#include "platform/PrintfArgs.h"

#include <cstring>

#include "platform/TextConversion.h"

namespace {

#if defined(__x86_64__)
// The published fields of the System V va_list element, which the compiler
// keeps opaque in C++; may_alias lets this view share the list's memory.
struct __attribute__((may_alias)) VaListFields {
    unsigned int gp_offset;
    unsigned int fp_offset;
    void* overflow_arg_area;
    void* reg_save_area;
};
static_assert(sizeof(VaListFields) == sizeof(va_list));

VaListFields& fieldsOf(va_list& args) {
    return *reinterpret_cast<VaListFields*>(&args[0]);
}

// The System V register save area: six general registers of 8 bytes, then
// eight vector registers of 16 bytes.
constexpr unsigned kGeneralAreaEnd = 48;
constexpr unsigned kLastGeneralSlot = 40;
constexpr unsigned kLastVectorSlot = 160;
#else
// The AAPCS64 va_list: the next stacked argument, the ends of the general and
// the vector register save areas, and the offsets (negative while registers
// are left) of the next saved register from those ends.
struct __attribute__((may_alias)) VaListFields {
    void* stack;
    void* gr_top;
    void* vr_top;
    int gr_offs;
    int vr_offs;
};
static_assert(sizeof(VaListFields) == sizeof(va_list));

VaListFields& fieldsOf(va_list& args) {
    return *reinterpret_cast<VaListFields*>(&args);
}

// Saved general registers take 8 bytes, vector registers 16; stacked
// arguments 8 whatever their class.
constexpr int kGeneralSlot = 8;
constexpr int kVectorSlot = 16;
#endif

bool isConversion(char c) {
    switch (c) {
        case 'A': case 'E': case 'F': case 'G': case 'S': case 'X':
        case 'a': case 'c': case 'd': case 'e': case 'f': case 'g': case 'i':
        case 'm': case 'n': case 'o': case 'p': case 's': case 'u': case 'x':
            return true;
        default:
            return false;
    }
}

void narrowArgument(CharPointers& pointers, va_list& args) {
    void** slot = GetArgPointer(args);
    std::string narrow;
    FromChar16Utf8(static_cast<const char16_t*>(*slot), narrow);
    *slot = pointers.Add(narrow);
    NextPrintfArg(args, 's');
}

// Walks the format; patchedConversion marks the arguments that are 16-bit.
void patchArgs(CharPointers& pointers, const char* format, va_list args, char patchedConversion) {
    va_list walk;
    va_copy(walk, args);
    for (const char* cursor = format; *cursor != 0; ++cursor) {
        char conversion = 0;
        const char* specifier = nullptr;
        if (!ParsePrintfFormatSpec(cursor, conversion, specifier)) {
            continue;
        }
        if (conversion == patchedConversion) {
            narrowArgument(pointers, walk);
        } else {
            NextPrintfArg(walk, conversion);
        }
    }
    va_end(walk);
}

}  // namespace

bool ParsePrintfFormatSpec(const char*& cursor, char& conversion, const char*& specifier) {
    if (*cursor != '%') {
        return false;
    }
    specifier = cursor + 1;
    conversion = *specifier;
    if (conversion == '%') {
        ++cursor;
        return false;
    }
    // Flags, width, precision and length modifiers are skipped unread; the
    // terminator is not a stop, callers pass complete conversions.
    while (!isConversion(conversion)) {
        ++cursor;
        conversion = cursor[1];
    }
    return true;
}

#if defined(__x86_64__)
void** GetArgPointer(va_list& args) {
    VaListFields& list = fieldsOf(args);
    if (list.gp_offset < kGeneralAreaEnd) {
        return reinterpret_cast<void**>(static_cast<char*>(list.reg_save_area) + list.gp_offset);
    }
    return reinterpret_cast<void**>(static_cast<char*>(list.overflow_arg_area) + (list.gp_offset - kGeneralAreaEnd));
}

void NextPrintfArg(va_list& args, char conversion) {
    VaListFields& list = fieldsOf(args);
    switch (conversion) {
        case 'A': case 'E': case 'F': case 'G': case 'a': case 'e': case 'f': case 'g':
            if (list.fp_offset > kLastVectorSlot) {
                list.overflow_arg_area = static_cast<char*>(list.overflow_arg_area) + 8;
            } else {
                list.fp_offset += 16;
            }
            break;
        case 'm':
            break;
        default:
            if (list.gp_offset > kLastGeneralSlot) {
                list.overflow_arg_area = static_cast<char*>(list.overflow_arg_area) + 8;
            } else {
                list.gp_offset += 8;
            }
            break;
    }
}
#else
void** GetArgPointer(va_list& args) {
    VaListFields& list = fieldsOf(args);
    if (list.gr_offs < 0) {
        return reinterpret_cast<void**>(static_cast<char*>(list.gr_top) + list.gr_offs);
    }
    return static_cast<void**>(list.stack);
}

void NextPrintfArg(va_list& args, char conversion) {
    if (conversion == 'm') {
        return;
    }
    VaListFields& list = fieldsOf(args);
    const bool vector = conversion != 0 && strchr("AEFGaefg", conversion) != nullptr;
    int& offset = vector ? list.vr_offs : list.gr_offs;
    if (offset < 0) {
        offset += vector ? kVectorSlot : kGeneralSlot;
    } else {
        list.stack = static_cast<char*>(list.stack) + kGeneralSlot;
    }
}
#endif

void PatchPrintfArgs(CharPointers& pointers, const char16_t* format, va_list args) {
    std::string narrowFormat;
    FromChar16(format, narrowFormat);
    patchArgs(pointers, narrowFormat.c_str(), args, 's');
}

void PatchPrintfArgs8(CharPointers& pointers, const char* format, va_list args) {
    patchArgs(pointers, format, args, 'S');
}

void FixCharFormat(std::string& format) {
    for (size_t at = format.find("%S"); at != std::string::npos; at = format.find("%S", at)) {
        format[at + 1] = 's';
    }
}
