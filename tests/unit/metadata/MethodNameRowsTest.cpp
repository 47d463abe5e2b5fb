#include <gtest/gtest.h>

#include "metadata/IMetaDataContext.h"
#include "metadata/MethodNameRows.h"
#include "runtime/Guids.h"
#include "support/RealMetadataFixture.h"

using MethodNameRowsTest = RealMetadataFixture;

// Every row's name index as the scope's own column reader gives it, and every
// name, class and flags as GetMethodProps gives them: read-only scopes (whose
// table lies in one block) and one opened for writing, with a method and name
// added (its heap and table then grow in a block of their own, and a method
// pointer table orders the methods), small string heaps and the core
// library's large one.
TEST_F(MethodNameRowsTest, EveryRowReadsAsTheScopeReadsIt) {
    for (const auto& [path, writable] : {std::pair{RealAssemblies::coreLibPath(), false},
                                         {RealAssemblies::testAsset("MetadataShapes"), false},
                                         {RealAssemblies::testAsset("MetadataShapes"), true}}) {
        IMetaDataImport* import = info->importOf(module(path, writable));
        if (writable) {
            AutoCOMPointer<IMetaDataEmit> emit;
            ASSERT_EQ(import->QueryInterface(IID_IMetaDataEmit, reinterpret_cast<void**>(&emit)), S_OK);
            const COR_SIGNATURE staticVoid[] = {0x00, 0x00, 0x01};
            mdMethodDef added = 0;
            ASSERT_EQ(emit->DefineMethod(TokenFromRid(2, mdtTypeDef), u"AddedWithANameNoOtherMethodHas",
                                         mdPublic | mdStatic, staticVoid, sizeof(staticVoid), 0, 0, &added),
                      S_OK);
        }
        AutoCOMPointer<IMetaDataTables> tables;
        ASSERT_EQ(import->QueryInterface(IID_IMetaDataTables, reinterpret_cast<void**>(&tables)), S_OK);
        MethodNameRows rows(import);
        ASSERT_TRUE(rows.usable());
        ASSERT_GT(rows.count(), 10u);
        for (ULONG row = 1; row <= rows.count(); ++row) {
            ULONG index = 0;
            ASSERT_EQ(tables->GetColumn(6, 3, row, &index), S_OK);
            ASSERT_EQ(rows.nameIndex(row), index) << path << " row " << row;
            char16_t name[IMetaDataContext::kNameSize];
            char16_t expected[IMetaDataContext::kNameSize];
            ULONG length = 0;
            mdTypeDef owner = 0, expectedOwner = 0;
            DWORD flags = 0, expectedFlags = 0;
            ASSERT_EQ(rows.name(row, index, name, IMetaDataContext::kNameSize), S_OK);
            ASSERT_EQ(rows.ownerAndFlags(row, &owner, &flags), S_OK);
            ASSERT_EQ(import->GetMethodProps(TokenFromRid(row, mdtMethodDef), &expectedOwner, expected,
                                             IMetaDataContext::kNameSize, &length, &expectedFlags, nullptr, nullptr,
                                             nullptr, nullptr),
                      S_OK);
            ASSERT_EQ(std::u16string(name), std::u16string(expected)) << path << " row " << row;
            ASSERT_EQ(owner, expectedOwner) << path << " row " << row;
            ASSERT_EQ(flags, expectedFlags) << path << " row " << row;
        }
    }
}
