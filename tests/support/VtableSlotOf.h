// The vtable slot a virtual member function occupies, read from its member
// function pointer: under the Itanium C++ ABI such a pointer holds 1 + the byte
// offset of the slot in the vtable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

template <typename MemberFunction>
std::ptrdiff_t vtableSlotOf(MemberFunction function) {
    static_assert(sizeof(MemberFunction) == 2 * sizeof(std::uintptr_t));
    std::uintptr_t words[2];
    std::memcpy(words, &function, sizeof(words));
    if ((words[0] & 1) == 0)
        return -1;  // not a virtual function
    return static_cast<std::ptrdiff_t>((words[0] - 1) / sizeof(void*));
}
