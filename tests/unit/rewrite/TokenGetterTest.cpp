// Token getters against real scopes opened for writing: what they find, what
// they define, and that a second request defines nothing more.
#include <set>
#include <vector>

#include "RewriteFixture.h"
#include "rewrite/ITypeSpecTokenGetter.h"

namespace {

std::vector<mdToken> all(IMetaDataImport* import, HRESULT (IMetaDataImport::*enumerate)(HCORENUM*, mdToken*, ULONG, ULONG*)) {
    std::vector<mdToken> tokens;
    HCORENUM enumerator = nullptr;
    mdToken batch[64];
    ULONG count = 0;
    while (SUCCEEDED((import->*enumerate)(&enumerator, batch, 64, &count)) && count > 0) {
        tokens.insert(tokens.end(), batch, batch + count);
    }
    import->CloseEnum(enumerator);
    return tokens;
}

unsigned char kRuntimeKey[8] = {0xb0, 0x3f, 0x5f, 0x7f, 0x11, 0xd5, 0x0a, 0x3a};
unsigned char kAgentKey[8] = {0x5c, 0x0e, 0x91, 0xa4, 0x7d, 0x23, 0xb6, 0xf8};

}  // namespace

class TokenGetter : public RewriteFixture {
protected:
    static std::vector<mdAssemblyRef> assemblyRefs(IMetaDataImport* import) {
        AutoCOMPointer<IMetaDataAssemblyImport> assemblies = assemblyImport(import);
        std::vector<mdAssemblyRef> tokens;
        HCORENUM enumerator = nullptr;
        mdAssemblyRef batch[64];
        ULONG count = 0;
        while (SUCCEEDED(assemblies->EnumAssemblyRefs(&enumerator, batch, 64, &count)) && count > 0) {
            tokens.insert(tokens.end(), batch, batch + count);
        }
        assemblies->CloseEnum(enumerator);
        return tokens;
    }

    ASSEMBLYMETADATA version{};
};

TEST_F(TokenGetter, TypeGetterReusesAnExistingReferenceAndDefinesAMissingOneOnce) {
    IMetaDataImport* import = info->importOf(shapes);
    std::vector<mdAssemblyRef> before = assemblyRefs(import);
    mdTypeRef existing = RealAssemblies::findTypeRef(import, u"System.Object");
    ASSERT_NE(existing, 0u);

    // System.Runtime is referenced already, and so is System.Object in it.
    std::unique_ptr<ITypeTokenGetter> object(
        ITypeTokenGetter::newTokenGetter(info.get(), u"System.Runtime", kRuntimeKey, 8, &version, u"System.Object"));
    unsigned int token = 0;
    ASSERT_EQ(object->getToken(shapes, &token), S_OK);
    EXPECT_EQ(token, existing);
    EXPECT_EQ(assemblyRefs(import), before);

    // The agent is not: one AssemblyRef and one TypeRef, the second time none.
    std::unique_ptr<ITypeTokenGetter> shim(ITypeTokenGetter::newTokenGetter(
        info.get(), u"tarn.Agent", kAgentKey, 8, &version, u"com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim"));
    ASSERT_EQ(shim->getToken(shapes, &token), S_OK);
    EXPECT_EQ(TypeFromToken(token), mdtTypeRef);
    std::vector<mdAssemblyRef> after = assemblyRefs(import);
    ASSERT_EQ(after.size(), before.size() + 1);
    AssemblyRef added = assemblyRef(import, after.back());
    EXPECT_EQ(added.name, u"tarn.Agent");
    EXPECT_EQ(added.key, std::vector<unsigned char>(kAgentKey, kAgentKey + 8));
    mdToken scope = 0;
    char16_t name[256] = {};
    ASSERT_EQ(import->GetTypeRefProps(token, &scope, name, 256, nullptr), S_OK);
    EXPECT_EQ(scope, after.back());
    EXPECT_EQ(std::u16string(name), u"com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim");
    size_t typeRefs = all(import, &IMetaDataImport::EnumTypeRefs).size();
    unsigned int again = 0;
    ASSERT_EQ(shim->getToken(shapes, &again), S_OK);
    EXPECT_EQ(again, token);
    EXPECT_EQ(assemblyRefs(import).size(), after.size());
    EXPECT_EQ(all(import, &IMetaDataImport::EnumTypeRefs).size(), typeRefs);

    // The right name with another public key token is another assembly.
    unsigned char otherKey[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    std::unique_ptr<ITypeTokenGetter> impostor(
        ITypeTokenGetter::newTokenGetter(info.get(), u"System.Runtime", otherKey, 8, &version, u"System.Object"));
    ASSERT_EQ(impostor->getToken(shapes, &token), S_OK);
    EXPECT_NE(token, existing);
    EXPECT_EQ(assemblyRefs(import).size(), after.size() + 1);
}

TEST_F(TokenGetter, TheSixthReferenceIsFoundInTheSecondBatch) {
    ModuleID xml = info->addModule(RealAssemblies::frameworkAssembly("System.Private.Xml.dll"));
    ASSERT_NE(xml, 0u);
    IMetaDataImport* import = info->importOf(xml);
    std::vector<mdAssemblyRef> references = assemblyRefs(import);
    ASSERT_GE(references.size(), 6u);
    AssemblyRef sixth = assemblyRef(import, references[5]);
    ASSERT_FALSE(sixth.key.empty());
    std::unique_ptr<ITypeTokenGetter> getter(ITypeTokenGetter::newTokenGetter(
        info.get(), sixth.name.c_str(), sixth.key.data(), static_cast<unsigned int>(sixth.key.size()), &version,
        u"Some.Type"));
    unsigned int token = 0;
    ASSERT_EQ(getter->getToken(xml, &token), S_OK);
    mdToken scope = 0;
    ASSERT_EQ(import->GetTypeRefProps(token, &scope, nullptr, 0, nullptr), S_OK);
    EXPECT_EQ(scope, references[5]);
    EXPECT_EQ(assemblyRefs(import), references);
}

TEST_F(TokenGetter, ValueTypeSpecsNameGenericStructsOverTheirOwnParameters) {
    std::unique_ptr<IValueTypeSpecTokenGetter> getter(IValueTypeSpecTokenGetter::newTokenGetter(info.get()));
    IMetaDataImport* import = info->importOf(shapes);
    size_t typeSpecCount = all(import, &IMetaDataImport::EnumTypeSpecs).size();

    // A plain struct is its own TypeDef, and nothing is defined.
    mdTypeDef point = type(u"RewriteShapes.Point");
    unsigned int token = 0;
    ASSERT_EQ(getter->getToken(shapes, point, &token), S_OK);
    EXPECT_EQ(token, point);
    EXPECT_EQ(all(import, &IMetaDataImport::EnumTypeSpecs).size(), typeSpecCount);

    // Eleven parameters: fine here, Wide<!0, ..., !10>.
    mdTypeDef wide = type(u"RewriteShapes.Wide`11");
    ASSERT_EQ(getter->getToken(shapes, wide, &token), S_OK);
    EXPECT_EQ(TypeFromToken(token), mdtTypeSpec);
    PCCOR_SIGNATURE blob = nullptr;
    ULONG length = 0;
    ASSERT_EQ(import->GetTypeSpecFromToken(token, &blob, &length), S_OK);
    std::vector<unsigned char> expected = {0x15, 0x11, static_cast<unsigned char>((RidFromToken(wide) << 2) & 0xFF), 11};
    for (unsigned char i = 0; i < 11; ++i) {
        expected.push_back(0x13);
        expected.push_back(i);
    }
    EXPECT_EQ(std::vector<unsigned char>(blob, blob + length), expected);

    // The second request for it does not touch the metadata.
    int metadataCalls = info->calls("GetModuleMetaData");
    unsigned int again = 0;
    ASSERT_EQ(getter->getToken(shapes, wide, &again), S_OK);
    EXPECT_EQ(again, token);
    EXPECT_EQ(info->calls("GetModuleMetaData"), metadataCalls);
}

TEST_F(TokenGetter, GenericParameterSpecsStopAtTen) {
    std::unique_ptr<IVarTypeSpecTokenGetter> vars(IVarTypeSpecTokenGetter::newTokenGetter(info.get(), 0x13));
    std::unique_ptr<IVarTypeSpecTokenGetter> mvars(IVarTypeSpecTokenGetter::newTokenGetter(info.get(), 0x1E));
    IMetaDataImport* import = info->importOf(shapes);
    unsigned int token = 0;
    ASSERT_EQ(vars->getToken(shapes, 9, &token), S_OK);
    PCCOR_SIGNATURE blob = nullptr;
    ULONG length = 0;
    ASSERT_EQ(import->GetTypeSpecFromToken(token, &blob, &length), S_OK);
    EXPECT_EQ(std::vector<unsigned char>(blob, blob + length), (std::vector<unsigned char>{0x13, 9}));
    unsigned int method = 0;
    ASSERT_EQ(mvars->getToken(shapes, 0, &method), S_OK);
    ASSERT_EQ(import->GetTypeSpecFromToken(method, &blob, &length), S_OK);
    EXPECT_EQ(std::vector<unsigned char>(blob, blob + length), (std::vector<unsigned char>{0x1E, 0}));
    EXPECT_EQ(vars->getToken(shapes, 10, &token), E_FAIL);
    EXPECT_EQ(mvars->getToken(shapes, 200, &token), E_FAIL);
}
