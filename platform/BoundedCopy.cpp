#include "platform/BoundedCopy.h"

#include <cstring>

#include "platform/Exceptions.h"
#include "platform/Text16.h"

namespace {

template <typename Char>
size_t lengthOf(const Char* s) {
    if constexpr (sizeof(Char) == 1) {
        return std::strlen(s);
    } else {
        return strlen_u16(s);
    }
}

template <typename Char>
int boundedCopy(Char* dst, unsigned long size, const Char* src) {
    if (dst == nullptr || size == 0) {
        _invalid_parameter(nullptr, nullptr, nullptr, 0, 0);
    }
    if (src == nullptr) {
        dst[0] = 0;
        _invalid_parameter(nullptr, nullptr, nullptr, 0, 0);
    }
    size_t length = lengthOf(src);
    if (length + 1 > size) {
        dst[0] = 0;
        _invalid_parameter(nullptr, nullptr, nullptr, 0, 0);
    }
    std::memcpy(dst, src, (length + 1) * sizeof(Char));
    return 0;
}

}  // namespace

int wcscpy_s(char16_t* dst, unsigned long size, const char16_t* src) {
    return boundedCopy(dst, size, src);
}

int strcpy_s(char* dst, unsigned long size, const char* src) {
    return boundedCopy(dst, size, src);
}

void _invalid_parameter(const char16_t* expression, const char16_t* function, const char16_t* file,
                        unsigned int line, uintptr_t reserved) {
    RaiseException(STATUS_INVALID_PARAMETER, 0, 0, nullptr);
}
