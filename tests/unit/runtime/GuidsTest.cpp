#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "runtime/Guids.h"

namespace {
// Reads a GUID as the runtime's sources write it, "8A8CC829-CCF2-49fe-BBAE-0F022228071A".
GUID parseGuid(const char* text) {
    unsigned int d1 = 0, d2 = 0, d3 = 0, b[8] = {};
    int read = std::sscanf(text, "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &d1, &d2, &d3, &b[0], &b[1], &b[2], &b[3],
                           &b[4], &b[5], &b[6], &b[7]);
    EXPECT_EQ(11, read) << text;
    GUID guid{d1, static_cast<USHORT>(d2), static_cast<USHORT>(d3), {}};
    for (int i = 0; i < 8; ++i)
        guid.Data4[i] = static_cast<UCHAR>(b[i]);
    return guid;
}

void expectGuid(const char* text, const GUID& actual) {
    GUID expected = parseGuid(text);
    EXPECT_TRUE(IsEqualGUID(expected, actual)) << text;
}
}  // namespace

TEST(Guids, IdentifiersMatchTheirWrittenForm) {
    expectGuid("00000000-0000-0000-C000-000000000046", IID_IUnknown);
    expectGuid("00000001-0000-0000-C000-000000000046", IID_IClassFactory);
    expectGuid("176FBED1-A55C-4796-98CA-A9DA0EF883E7", IID_ICorProfilerCallback);
    expectGuid("8A8CC829-CCF2-49fe-BBAE-0F022228071A", IID_ICorProfilerCallback2);
    expectGuid("4FD2ED52-7731-4b8d-9469-03D2CC3086C5", IID_ICorProfilerCallback3);
    expectGuid("7B63B2E3-107D-4d48-B2F6-F61E229470D2", IID_ICorProfilerCallback4);
    expectGuid("8DFBA405-8C9F-45F8-BFFA-83B14CEF78B5", IID_ICorProfilerCallback5);
    expectGuid("FC13DF4B-4448-4F4F-950C-BA8D19D00C36", IID_ICorProfilerCallback6);
    expectGuid("F76A2DBA-1D52-4539-866C-2AA518F9EFC3", IID_ICorProfilerCallback7);
    expectGuid("5BED9B15-C079-4D47-BFE2-215A140C07E0", IID_ICorProfilerCallback8);
    expectGuid("27583EC3-C8F5-482F-8052-194B8CE4705A", IID_ICorProfilerCallback9);
    expectGuid("CEC5B60E-C69C-495F-87F6-84D28EE16FFB", IID_ICorProfilerCallback10);
    expectGuid("42350846-AAED-47F7-B128-FD0C98881CDE", IID_ICorProfilerCallback11);
    expectGuid("28B5557D-3F3F-48b4-90B2-5F9EEA2F6C48", IID_ICorProfilerInfo);
    expectGuid("CC0935CD-A518-487d-B0BB-A93214E65478", IID_ICorProfilerInfo2);
    expectGuid("B555ED4F-452A-4E54-8B39-B5360BAD32A0", IID_ICorProfilerInfo3);
    expectGuid("0d8fdcaa-6257-47bf-b1bf-94dac88466ee", IID_ICorProfilerInfo4);
    expectGuid("07602928-CE38-4B83-81E7-74ADAF781214", IID_ICorProfilerInfo5);
    expectGuid("F30A070D-BFFB-46A7-B1D8-8781EF7B698A", IID_ICorProfilerInfo6);
    expectGuid("9AEECC0D-63E0-4187-8C00-E312F503F663", IID_ICorProfilerInfo7);
    expectGuid("C5AC80A6-782E-4716-8044-39598C60CFBF", IID_ICorProfilerInfo8);
    expectGuid("008170DB-F8CC-4796-9A51-DC8AA0B47012", IID_ICorProfilerInfo9);
    expectGuid("2F1B5152-C869-40C9-AA5F-3ABE026BD720", IID_ICorProfilerInfo10);
    expectGuid("b0266d75-2081-4493-af7f-028ba34db891", IID_ICorProfilerModuleEnum);
    expectGuid("FF71301A-B994-429D-A10B-B345A65280EF", IID_ICorProfilerFunctionEnum);
    expectGuid("571194f7-25ed-419f-aa8b-7016b3159701", IID_ICorProfilerThreadEnum);
    expectGuid("2C6269BD-2D13-4321-AE12-6686365FD6AF", IID_ICorProfilerObjectEnum);
    expectGuid("FCCEE788-0088-454B-A811-C99F298D1942", IID_ICorProfilerMethodEnum);
    expectGuid("A0EFB28B-6EE2-4d7b-B983-A75EF7BEEDB8", IID_IMethodMalloc);
    expectGuid("F0963021-E1EA-4732-8581-E01B0BD3C0C6", IID_ICorProfilerFunctionControl);
    expectGuid("E5CB7A31-7512-11d2-89CE-0080C792E5D8", CLSID_CorMetaDataDispenser);
    expectGuid("809C652E-7396-11D2-9771-00A0C9B4D50C", IID_IMetaDataDispenser);
    expectGuid("31BCFCE2-DAFB-11D2-9F81-00C04F79A0A3", IID_IMetaDataDispenserEx);
    expectGuid("7DAC8207-D3AE-4c75-9B67-92801A497D44", IID_IMetaDataImport);
    expectGuid("FCE5EFA0-8BBA-4f8e-A036-8F2022B08466", IID_IMetaDataImport2);
    expectGuid("EE62470B-E94B-424e-9B7C-2F00C9249F93", IID_IMetaDataAssemblyImport);
    expectGuid("BA3FEE4C-ECB9-4e41-83B7-183FA41CD859", IID_IMetaDataEmit);
    expectGuid("F5DD9950-F693-42e6-830E-7B833E8146A9", IID_IMetaDataEmit2);
    expectGuid("211EF15B-5317-4438-B196-DEC87B887693", IID_IMetaDataAssemblyEmit);
    expectGuid("30FE7BE8-D7D9-11D2-9F80-00C04F79A0A3", MetaDataCheckDuplicatesFor);
    expectGuid("2eee315c-d7db-11d2-9f80-00c04f79a0a3", MetaDataSetUpdate);
}

TEST(Guids, MemoryLayoutIsLittleEndianFieldsThenBytesInOrder) {
    // 8A8CC829-CCF2-49fe-BBAE-0F022228071A as the runtime compares it, byte for byte.
    const unsigned char expected[16] = {0x29, 0xC8, 0x8C, 0x8A, 0xF2, 0xCC, 0xFE, 0x49,
                                        0xBB, 0xAE, 0x0F, 0x02, 0x22, 0x28, 0x07, 0x1A};
    EXPECT_EQ(0, std::memcmp(expected, &IID_ICorProfilerCallback2, sizeof(expected)));
    // Equality must be able to say no, or every check above would pass.
    EXPECT_FALSE(IsEqualGUID(IID_ICorProfilerCallback4, IID_ICorProfilerCallback5));
    EXPECT_FALSE(IID_ICorProfilerInfo4 == IID_ICorProfilerInfo3);
}
