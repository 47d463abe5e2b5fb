#include <gtest/gtest.h>

#include <cstdio>

#include "hub/CClassFactory.h"
#include "hub/CoClasses.h"
#include "hub/DllGetClassObject.h"
#include "hub/ProfilerCallback.h"
#include "runtime/Guids.h"

namespace {
void* const kUntouched = reinterpret_cast<void*>(0x5A5A5A5A);

IClassFactory* profilerFactory() {
    void* factory = nullptr;
    EXPECT_EQ(S_OK, DllGetClassObject(CLSID_PROFILERCALLBACK, IID_IClassFactory, &factory));
    return static_cast<IClassFactory*>(factory);
}
}  // namespace

TEST(ClassFactory, UnknownClassIsRefusedAndNothingIsCreated) {
    const CLSID other = {0x7C1E42A9, 0x63D0, 0x4B1F, {0x9E, 0x25, 0x3A, 0xD8, 0xF0, 0x6B, 0x17, 0xC5}};
    void* out = kUntouched;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, DllGetClassObject(other, IID_IClassFactory, &out));
    EXPECT_EQ(kUntouched, out);
    EXPECT_EQ(nullptr, fpc);
}

TEST(ClassFactory, FactoryAnswersOnlyForItsOwnInterfaces) {
    void* out = kUntouched;
    EXPECT_EQ(E_NOINTERFACE, DllGetClassObject(CLSID_PROFILERCALLBACK, IID_ICorProfilerCallback4, &out));
    EXPECT_EQ(nullptr, out);

    IClassFactory* factory = profilerFactory();
    ASSERT_NE(nullptr, factory);
    void* unknown = nullptr;
    EXPECT_EQ(S_OK, factory->QueryInterface(IID_IUnknown, &unknown));
    EXPECT_EQ(static_cast<void*>(factory), unknown);
    // One reference from DllGetClassObject, one from QueryInterface.
    EXPECT_EQ(3u, factory->AddRef());
    EXPECT_EQ(2u, factory->Release());
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    EXPECT_EQ(1u, factory->Release());
    EXPECT_EQ(0u, factory->Release());
}

TEST(ClassFactory, AggregationIsRefused) {
    IClassFactory* factory = profilerFactory();
    ASSERT_NE(nullptr, factory);
    void* out = kUntouched;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(factory, IID_ICorProfilerCallback2, &out));
    EXPECT_EQ(kUntouched, out);
    factory->Release();
}

TEST(ClassFactory, CreatesCallbackForTheFiveIdentifiersOnly) {
    IClassFactory* factory = profilerFactory();
    ASSERT_NE(nullptr, factory);
    for (const IID* refused : {&IID_ICorProfilerCallback5, &IID_ICorProfilerCallback11, &IID_IClassFactory,
                               &IID_ICorProfilerInfo}) {
        void* out = kUntouched;
        EXPECT_EQ(E_INVALIDARG, factory->CreateInstance(nullptr, *refused, &out));
        EXPECT_EQ(nullptr, out);
    }
    for (const IID* accepted : {&IID_IUnknown, &IID_ICorProfilerCallback, &IID_ICorProfilerCallback2,
                                &IID_ICorProfilerCallback3, &IID_ICorProfilerCallback4}) {
        void* out = nullptr;
        ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, *accepted, &out));
        ASSERT_NE(nullptr, out);
        auto* callback = static_cast<ICorProfilerCallback4*>(out);
        // The creator's reference is the only one.
        EXPECT_EQ(0u, callback->Release());
    }
    factory->Release();
}

TEST(ClassFactory, ClassIdentifierTextMatchesItsBinaryForm) {
    EXPECT_STREQ("{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}", GetGUIDAsString());
    unsigned int d1, d2, d3, b[8];
    ASSERT_EQ(11, std::sscanf(GetGUIDAsString(), "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &d1, &d2, &d3, &b[0],
                              &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7]));
    EXPECT_EQ(d1, CLSID_PROFILERCALLBACK.Data1);
    EXPECT_EQ(d2, CLSID_PROFILERCALLBACK.Data2);
    EXPECT_EQ(d3, CLSID_PROFILERCALLBACK.Data3);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(b[i], CLSID_PROFILERCALLBACK.Data4[i]) << i;
    }
    // One real row, then the closing row.
    EXPECT_EQ(&CLSID_PROFILERCALLBACK, g_CoClasses[0].pClsid);
    EXPECT_EQ(GetGUIDAsString(), g_CoClasses[0].szClsid);
    EXPECT_EQ(nullptr, g_CoClasses[1].pClsid);
}
