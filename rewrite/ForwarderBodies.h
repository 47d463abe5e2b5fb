// The tiny bodies of the forwarders that the hijack defines in the desktop core
// library: a call of the agent's trace function with the forwarder's own
// arguments. Byte for byte as the runtime reads them, with no padding; the
// token is little-endian, as the platform stores it.
#pragma once

#include <cstdint>

#pragma pack(push, 1)

// call token; ret.
struct IL_Forward0 {
    explicit IL_Forward0(uint32_t target) : token(target) {}
    uint8_t header = 0x1A;  // tiny, 6 bytes of code
    uint8_t call = 0x28;
    uint32_t token;
    uint8_t ret = 0x2A;
};

// ldarg.0; call token; ret.
struct IL_Forward1 {
    explicit IL_Forward1(uint32_t target) : token(target) {}
    uint8_t header = 0x1E;  // tiny, 7 bytes of code
    uint8_t ldarg0 = 0x02;
    uint8_t call = 0x28;
    uint32_t token;
    uint8_t ret = 0x2A;
};

// ldarg.0; ldarg.1; call token; ret.
struct IL_Forward2 {
    explicit IL_Forward2(uint32_t target) : token(target) {}
    uint8_t header = 0x22;  // tiny, 8 bytes of code
    uint8_t ldarg0 = 0x02;
    uint8_t ldarg1 = 0x03;
    uint8_t call = 0x28;
    uint32_t token;
    uint8_t ret = 0x2A;
};

#pragma pack(pop)

static_assert(sizeof(IL_Forward0) == 7 && sizeof(IL_Forward1) == 8 && sizeof(IL_Forward2) == 9);
