// Interface and class identifiers of the runtime's object model, profiling and
// metadata interfaces, in their written form.
#pragma once

#include "runtime/CorTypes.h"

// Object model.
inline constexpr IID IID_IUnknown = guidOf("00000000-0000-0000-C000-000000000046");
inline constexpr IID IID_IClassFactory = guidOf("00000001-0000-0000-C000-000000000046");

// Callbacks, implemented by the profiler. Versions 5 to 11 are listed so that
// they can be refused by name.
inline constexpr IID IID_ICorProfilerCallback = guidOf("176FBED1-A55C-4796-98CA-A9DA0EF883E7");
inline constexpr IID IID_ICorProfilerCallback2 = guidOf("8A8CC829-CCF2-49FE-BBAE-0F022228071A");
inline constexpr IID IID_ICorProfilerCallback3 = guidOf("4FD2ED52-7731-4B8D-9469-03D2CC3086C5");
inline constexpr IID IID_ICorProfilerCallback4 = guidOf("7B63B2E3-107D-4D48-B2F6-F61E229470D2");
inline constexpr IID IID_ICorProfilerCallback5 = guidOf("8DFBA405-8C9F-45F8-BFFA-83B14CEF78B5");
inline constexpr IID IID_ICorProfilerCallback6 = guidOf("FC13DF4B-4448-4F4F-950C-BA8D19D00C36");
inline constexpr IID IID_ICorProfilerCallback7 = guidOf("F76A2DBA-1D52-4539-866C-2AA518F9EFC3");
inline constexpr IID IID_ICorProfilerCallback8 = guidOf("5BED9B15-C079-4D47-BFE2-215A140C07E0");
inline constexpr IID IID_ICorProfilerCallback9 = guidOf("27583EC3-C8F5-482F-8052-194B8CE4705A");
inline constexpr IID IID_ICorProfilerCallback10 = guidOf("CEC5B60E-C69C-495F-87F6-84D28EE16FFB");
inline constexpr IID IID_ICorProfilerCallback11 = guidOf("42350846-AAED-47F7-B128-FD0C98881CDE");

// Profiling services, implemented by the runtime.
inline constexpr IID IID_ICorProfilerInfo = guidOf("28B5557D-3F3F-48B4-90B2-5F9EEA2F6C48");
inline constexpr IID IID_ICorProfilerInfo2 = guidOf("CC0935CD-A518-487D-B0BB-A93214E65478");
inline constexpr IID IID_ICorProfilerInfo3 = guidOf("B555ED4F-452A-4E54-8B39-B5360BAD32A0");
inline constexpr IID IID_ICorProfilerInfo4 = guidOf("0D8FDCAA-6257-47BF-B1BF-94DAC88466EE");
inline constexpr IID IID_ICorProfilerInfo5 = guidOf("07602928-CE38-4B83-81E7-74ADAF781214");
inline constexpr IID IID_ICorProfilerInfo6 = guidOf("F30A070D-BFFB-46A7-B1D8-8781EF7B698A");
inline constexpr IID IID_ICorProfilerInfo7 = guidOf("9AEECC0D-63E0-4187-8C00-E312F503F663");
inline constexpr IID IID_ICorProfilerInfo8 = guidOf("C5AC80A6-782E-4716-8044-39598C60CFBF");
inline constexpr IID IID_ICorProfilerInfo9 = guidOf("008170DB-F8CC-4796-9A51-DC8AA0B47012");
inline constexpr IID IID_ICorProfilerInfo10 = guidOf("2F1B5152-C869-40C9-AA5F-3ABE026BD720");

inline constexpr IID IID_ICorProfilerModuleEnum = guidOf("B0266D75-2081-4493-AF7F-028BA34DB891");
inline constexpr IID IID_ICorProfilerFunctionEnum = guidOf("FF71301A-B994-429D-A10B-B345A65280EF");
inline constexpr IID IID_ICorProfilerThreadEnum = guidOf("571194F7-25ED-419F-AA8B-7016B3159701");
inline constexpr IID IID_ICorProfilerObjectEnum = guidOf("2C6269BD-2D13-4321-AE12-6686365FD6AF");
inline constexpr IID IID_ICorProfilerMethodEnum = guidOf("FCCEE788-0088-454B-A811-C99F298D1942");
inline constexpr IID IID_IMethodMalloc = guidOf("A0EFB28B-6EE2-4D7B-B983-A75EF7BEEDB8");
inline constexpr IID IID_ICorProfilerFunctionControl = guidOf("F0963021-E1EA-4732-8581-E01B0BD3C0C6");

// Metadata.
inline constexpr CLSID CLSID_CorMetaDataDispenser = guidOf("E5CB7A31-7512-11D2-89CE-0080C792E5D8");
inline constexpr IID IID_IMetaDataDispenser = guidOf("809C652E-7396-11D2-9771-00A0C9B4D50C");
inline constexpr IID IID_IMetaDataDispenserEx = guidOf("31BCFCE2-DAFB-11D2-9F81-00C04F79A0A3");
inline constexpr IID IID_IMetaDataImport = guidOf("7DAC8207-D3AE-4C75-9B67-92801A497D44");
inline constexpr IID IID_IMetaDataImport2 = guidOf("FCE5EFA0-8BBA-4F8E-A036-8F2022B08466");
inline constexpr IID IID_IMetaDataAssemblyImport = guidOf("EE62470B-E94B-424E-9B7C-2F00C9249F93");
inline constexpr IID IID_IMetaDataTables = guidOf("D8F579AB-402D-4B8E-82D9-5D63B1065C68");
inline constexpr IID IID_IMetaDataEmit = guidOf("BA3FEE4C-ECB9-4E41-83B7-183FA41CD859");
inline constexpr IID IID_IMetaDataEmit2 = guidOf("F5DD9950-F693-42E6-830E-7B833E8146A9");
inline constexpr IID IID_IMetaDataAssemblyEmit = guidOf("211EF15B-5317-4438-B196-DEC87B887693");
