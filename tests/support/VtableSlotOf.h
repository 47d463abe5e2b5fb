// The vtable slot a virtual member function occupies, read from its member
// function pointer. Under the Itanium C++ ABI such a pointer holds 1 + the byte
// offset of the slot in the vtable; the ARM variant of that ABI keeps the byte
// offset as it is and marks a virtual function in the adjustment word instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

template <typename MemberFunction>
std::ptrdiff_t vtableSlotOf(MemberFunction function) {
    static_assert(sizeof(MemberFunction) == 2 * sizeof(std::uintptr_t));
    std::uintptr_t words[2];
    std::memcpy(words, &function, sizeof(words));
#if defined(__aarch64__)
    const bool isVirtual = (words[1] & 1) != 0;
    const std::uintptr_t offset = words[0];
#else
    const bool isVirtual = (words[0] & 1) != 0;
    const std::uintptr_t offset = words[0] - 1;
#endif
    if (!isVirtual)
        return -1;
    return static_cast<std::ptrdiff_t>(offset / sizeof(void*));
}
