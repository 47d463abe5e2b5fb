// The core library's lookups are asked of its metadata once, failures included,
// and a method is told apart by its signature.
#include <gtest/gtest.h>

#include <algorithm>

#include "ShimFixture.h"
#include "shim/CoreLibraryLookups.h"

namespace {

constexpr HRESULT kNotFound = static_cast<HRESULT>(0x80131130);

using CoreLibraryLookupsTest = ShimFixture;

ShimSignature concatOf(unsigned int strings) {
    ShimSignature signature;
    signature.add(IMAGE_CEE_CS_CALLCONV_DEFAULT).add(static_cast<COR_SIGNATURE>(strings)).add(ELEMENT_TYPE_STRING);
    for (unsigned int i = 0; i < strings; ++i) signature.add(ELEMENT_TYPE_STRING);
    return signature;
}

TEST_F(CoreLibraryLookupsTest, AsksTheCoreLibraryOnceForEachTypeAndMethod) {
    CoreLibraryLookups lookups;
    const mdTypeDef expected = corlibType(u"System.String");
    const size_t asked = faults->typeNamesSought().size();
    mdTypeDef string = 0, again = 0, missing = 0;
    ASSERT_EQ(lookups.findType(import, u"System.String", &string), S_OK);
    EXPECT_EQ(string, expected);
    faults->failFindTypeDefByName(u"System.NoSuchType", kNotFound);
    EXPECT_EQ(lookups.findType(import, u"System.NoSuchType", &missing), kNotFound);
    EXPECT_EQ(lookups.findType(import, u"System.NoSuchType", &missing), kNotFound);
    ASSERT_EQ(lookups.findType(import, u"System.String", &again), S_OK);
    EXPECT_EQ(again, string);
    EXPECT_EQ(faults->typeNamesSought().size(), asked + 2);

    // Overloads of one name: each signature finds its own method.
    mdMethodDef pair = 0, triple = 0, remembered = 0;
    ASSERT_EQ(lookups.findMethod(import, string, u"Concat", concatOf(2), &pair), S_OK);
    ASSERT_EQ(lookups.findMethod(import, string, u"Concat", concatOf(3), &triple), S_OK);
    EXPECT_NE(pair, triple);
    for (auto [method, strings] : {std::pair{pair, 2u}, std::pair{triple, 3u}}) {
        PCCOR_SIGNATURE bytes = nullptr;
        ULONG length = 0;
        ASSERT_EQ(
            import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, nullptr, &bytes, &length, nullptr, nullptr),
            S_OK);
        const ShimSignature expected = concatOf(strings);
        EXPECT_TRUE(std::equal(bytes, bytes + length, expected.bytes(), expected.bytes() + expected.length()));
    }
    // Answered from memory: the core library is no longer asked.
    faults->failMethodLookup(u"Concat", E_FAIL);
    ASSERT_EQ(lookups.findMethod(import, string, u"Concat", concatOf(2), &remembered), S_OK);
    EXPECT_EQ(remembered, pair);
    EXPECT_EQ(lookups.findMethod(import, string, u"Concat", concatOf(4), &remembered), E_FAIL);
}

}  // namespace
