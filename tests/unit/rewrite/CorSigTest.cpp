#include <gtest/gtest.h>

#include "rewrite/CorSig.h"
#include "runtime/CorMetadataEnums.h"

namespace {

TEST(CorSig, NumbersTakeOneTwoOrFourBytesAndReadBack) {
    struct Case {
        ULONG value;
        ULONG size;
        BYTE first;
    };
    const Case cases[] = {{0, 1, 0x00},      {0x7F, 1, 0x7F},       {0x80, 2, 0x80},
                          {0x3FFF, 2, 0xBF}, {0x4000, 4, 0xC0},     {0x1FFFFFFF, 4, 0xDF}};
    for (const Case& c : cases) {
        BYTE bytes[4] = {};
        ASSERT_EQ(CorSigCompressData(c.value, bytes), c.size) << c.value;
        EXPECT_EQ(bytes[0], c.first) << c.value;
        ULONG back = 0;
        EXPECT_EQ(CorSigUncompressData(bytes, c.size, &back), c.size) << c.value;
        EXPECT_EQ(back, c.value);
        // One byte short of the encoding is refused, never read past.
        EXPECT_EQ(CorSigUncompressData(bytes, c.size - 1, &back), 0u) << c.value;
    }
    BYTE bytes[4] = {};
    EXPECT_EQ(CorSigCompressData(0x20000000, bytes), kCorSigNoEncoding);
    const BYTE invalid[] = {0xE0, 0, 0, 0};
    ULONG value = 0;
    EXPECT_EQ(CorSigUncompressData(invalid, 4, &value), 0u);
}

TEST(CorSig, TypeTokensCarryTheirTableInTheLowBits) {
    BYTE bytes[4] = {};
    ASSERT_EQ(CorSigCompressToken(0x01000012, bytes), 1u);  // TypeRef row 18
    EXPECT_EQ(bytes[0], 0x49);
    ASSERT_EQ(CorSigCompressToken(0x02000100, bytes), 2u);  // TypeDef row 256
    EXPECT_EQ(bytes[0], 0x84);
    EXPECT_EQ(bytes[1], 0x00);
    EXPECT_EQ(CorSigCompressToken(0x0A000001, bytes), kCorSigNoEncoding);  // MemberRef

    for (mdToken token : {0x02000001u, 0x01000012u, 0x1B000005u, 0x1B00FFFFu}) {
        ULONG size = CorSigCompressToken(token, bytes);
        mdToken back = 0;
        EXPECT_EQ(CorSigUncompressToken(bytes, size, &back), size);
        EXPECT_EQ(back, token);
    }
    const BYTE baseType[] = {0x03};
    mdToken token = 0;
    EXPECT_EQ(CorSigUncompressToken(baseType, 1, &token), 0u);
}

}  // namespace
