#include <gtest/gtest.h>

#include <cstring>

#include "runtime/Guids.h"

TEST(Guids, MemoryLayoutIsLittleEndianFieldsThenBytesInOrder) {
    // 8A8CC829-CCF2-49fe-BBAE-0F022228071A as the runtime compares it, byte for byte.
    const unsigned char expected[16] = {0x29, 0xC8, 0x8C, 0x8A, 0xF2, 0xCC, 0xFE, 0x49,
                                        0xBB, 0xAE, 0x0F, 0x02, 0x22, 0x28, 0x07, 0x1A};
    EXPECT_EQ(0, std::memcmp(expected, &IID_ICorProfilerCallback2, sizeof(expected)));
    // Equality must be able to say no, or the check above could not fail.
    EXPECT_FALSE(IsEqualGUID(IID_ICorProfilerCallback4, IID_ICorProfilerCallback5));
    EXPECT_FALSE(IID_ICorProfilerInfo4 == IID_ICorProfilerInfo3);
}
