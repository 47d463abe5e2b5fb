#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "MetaDataFixture.h"
#include "metadata/MetaDataContext.h"
#include "metadata/TypeNameRows.h"
#include "runtime/CorErrors.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

using MetaDataContextNames = MetaDataFixture;

TEST_F(MetaDataContextNames, NestedGenericDefinitionsAreJoinedAndStrippedAtEveryLevel) {
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Outer`1", u"Middle`2", u"Inner`1"}, u"Touch")), S_OK);
    EXPECT_THAT(className(), Pair("MetadataShapes", "Shapes.Outer+Middle+Inner"));
    EXPECT_EQ(methodName(), "Touch");

    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Outer`1", u"Plain"}, u"Touch")), S_OK);
    EXPECT_THAT(className(), Pair("MetadataShapes", "Shapes.Outer+Plain"));

    // A definition of the core library: the marker goes, the assembly is the module's.
    ModuleID coreLib = info->addModule(RealAssemblies::coreLibPath());
    ASSERT_EQ(context->setFunction(function(coreLib, {u"System.Collections.Generic.List`1"}, u"Add")), S_OK);
    EXPECT_THAT(className(), Pair("System.Private.CoreLib", "System.Collections.Generic.List"));
    EXPECT_EQ(methodName(), "Add");
    char16_t* assembly = nullptr;
    ASSERT_EQ(context->getAssemblyName(&assembly), S_OK);
    EXPECT_EQ(RealAssemblies::narrow(assembly), "System.Private.CoreLib");
}

// The runtime's searches for precompiled code hop between modules: a module
// met before keeps its assembly's name until it unloads.
TEST_F(MetaDataContextNames, ModulesMetBeforeAreNamedOnceUntilTheyUnload) {
    const FunctionID own = function(shapes, {u"Shapes.Attributed"}, u"Marked");
    const FunctionID core = function(info->addModule(RealAssemblies::coreLibPath()), {u"System.Object"}, u"ToString");
    for (FunctionID hop : {own, core, own}) {
        ASSERT_EQ(context->setFunction(hop), S_OK);
        (void)className();
    }
    EXPECT_THAT(className(), Pair("MetadataShapes", "Shapes.Attributed"));
    EXPECT_EQ(info->calls("GetAssemblyInfo"), 2);

    context->forgetModule(shapes);
    ASSERT_EQ(context->setFunction(own), S_OK);
    EXPECT_THAT(className(), Pair("MetadataShapes", "Shapes.Attributed"));
    EXPECT_EQ(info->calls("GetAssemblyInfo"), 3);
}

TEST_F(MetaDataContextNames, ReferencesKeepTheirGenericMarkerAndNameTheirAssembly) {
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Attributed"}, u"Marked")), S_OK);
    char16_t assembly[IMetaDataContext::kNameSize];
    char16_t name[IMetaDataContext::kNameSize];
    for (const auto& [reference, owner] : {std::pair{u"System.Collections.Generic.List`1", "System.Collections"},
                                           {u"System.Object", "System.Runtime"}}) {
        mdTypeRef token = RealAssemblies::findTypeRef(info->importOf(shapes), reference);
        ASSERT_NE(token, 0u);
        ASSERT_EQ(context->getClassName(token, assembly, name, IMetaDataContext::kNameSize), S_OK);
        EXPECT_EQ(RealAssemblies::narrow(name), RealAssemblies::narrow(reference));
        EXPECT_EQ(RealAssemblies::narrow(assembly), owner);
    }

    // Neither a TypeSpec nor the nil token is a class.
    EXPECT_EQ(context->getClassName(mdtTypeSpec | 1, assembly, name, IMetaDataContext::kNameSize), E_NOTIMPL);
    EXPECT_EQ(context->getClassName(mdTokenNil, assembly, name, IMetaDataContext::kNameSize), E_NOTIMPL);
}

TEST_F(MetaDataContextNames, ParentsByDefinitionReferenceOrNone) {
    ModuleID multi = info->addModule(RealAssemblies::testAsset("MultiModule"));
    ASSERT_NE(multi, 0u);
    const std::tuple<ModuleID, const char16_t*, const char16_t*, const char*, const char*> cases[] = {
        {shapes, u"Shapes.DerivedFromDef", u"Run", "MetadataShapes", "Shapes.PlainBase"},
        {shapes, u"Shapes.PlainBase", u"Run", "System.Runtime", "System.Object"},
        {shapes, u"Shapes.Attributed", u"Marked", "System.Runtime", "System.Exception"},
        // A type in another module of the assembly belongs to the assembly.
        {multi, u"Shapes.LocalDerived", u"Run", "MultiModule", "Shapes.Remote.RemoteBase"},
    };
    for (const auto& [where, type, method, assembly, parent] : cases) {
        ASSERT_EQ(context->setFunction(function(where, {type}, method)), S_OK);
        EXPECT_THAT(parentName(), Pair(assembly, parent)) << RealAssemblies::narrow(type);
    }

    // Base given by a TypeSpec, and an interface without a base: no parent,
    // on every call; the super token is the TypeSpec, or nil.
    for (const auto& [type, method, bySpec] :
         {std::tuple{u"Shapes.DerivedFromSpec", u"Run", true}, {u"Shapes.IGeneric`1", u"Take", false}}) {
        ASSERT_EQ(context->setFunction(function(shapes, {type}, method)), S_OK);
        char16_t* assembly = nullptr;
        char16_t* name = nullptr;
        EXPECT_EQ(context->getParentName(&assembly, &name), E_NOTIMPL);
        EXPECT_EQ(context->getParentName(&assembly, &name), E_NOTIMPL);
        EXPECT_EQ(assembly, nullptr);
        EXPECT_EQ(name, nullptr);
        const mdToken super = context->getSuperToken();
        EXPECT_TRUE(bySpec ? TypeFromToken(super) == mdtTypeSpec : IsNilToken(super)) << std::hex << super;
    }
}

TEST_F(MetaDataContextNames, InterfacesAreListedUpToSixtyFour) {
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Attributed"}, u"Marked")), S_OK);
    EXPECT_THAT(list(&IMetaDataContext::getInterfaces),
                UnorderedElementsAre(Pair("System.Runtime", "System.IDisposable"),
                                     Pair("System.Runtime", "System.ICloneable")));

    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.SixtyFive"}, u"First")), S_OK);
    NameList interfaces = list(&IMetaDataContext::getInterfaces);
    ASSERT_EQ(interfaces.size(), 64u);
    EXPECT_THAT(interfaces, Each(Pair("MetadataShapes", MatchesRegex("Shapes\\.I[0-9][0-9]"))));
    EXPECT_EQ(std::set(interfaces.begin(), interfaces.end()).size(), 64u) << "every one distinct";
}

TEST_F(MetaDataContextNames, AttributesOfClassesAndMethodsFromAnyAssembly) {
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Attributed"}, u"Marked")), S_OK);
    EXPECT_THAT(list(&IMetaDataContext::getClassAttributes),
                UnorderedElementsAre(Pair("System.Runtime", "System.ObsoleteAttribute"),
                                     Pair("System.Runtime", "System.Diagnostics.DebuggerDisplayAttribute"),
                                     Pair("MetadataShapes", "Shapes.LocalMarkerAttribute")));
    EXPECT_THAT(list(&IMetaDataContext::getMethodAttributes),
                UnorderedElementsAre(Pair("System.Runtime", "System.ObsoleteAttribute"),
                                     Pair("System.Runtime", "System.Diagnostics.DebuggerStepThroughAttribute"),
                                     Pair("MetadataShapes", "Shapes.LocalMarkerAttribute")));

    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Attributed"}, u"Unmarked")), S_OK);
    EXPECT_THAT(list(&IMetaDataContext::getMethodAttributes), ElementsAre());

    // What the compiler marks structs with.
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.ReadOnlyShape"}, u"Get")), S_OK);
    EXPECT_THAT(list(&IMetaDataContext::getClassAttributes),
                ::testing::Contains(Pair("System.Runtime", "System.Runtime.CompilerServices.IsReadOnlyAttribute")));
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.RefShape"}, u"Get")), S_OK);
    EXPECT_THAT(list(&IMetaDataContext::getClassAttributes),
                ::testing::Contains(Pair("System.Runtime", "System.Runtime.CompilerServices.IsByRefLikeAttribute")));
}

TEST_F(MetaDataContextNames, NestedNameBeyondTheBufferIsRefused) {
    std::u16string outer = u"Shapes." + std::u16string(1000, u'A');
    std::u16string middle(1000, u'B');
    std::u16string inner(1000, u'C');
    mdTypeDef innerType = typeIn(shapes, {outer.c_str(), middle.c_str(), inner.c_str()});
    mdTypeDef leafType = RealAssemblies::findType(info->importOf(shapes), u"Leaf", innerType);
    ASSERT_NE(leafType, 0u);
    IMetaDataImport* import = info->importOf(shapes);

    // Three levels still fit: the third is cut by the runtime at the buffer's end.
    FunctionID touchInner = info->addFunction(shapes, RealAssemblies::findMethod(import, innerType, u".ctor"));
    ASSERT_EQ(context->setFunction(touchInner), S_OK);
    auto [assembly, name] = className();
    EXPECT_EQ(name.size(), IMetaDataContext::kNameSize - 1);
    EXPECT_EQ(name.substr(0, 1010), "Shapes." + std::string(1000, 'A') + "+BB");

    // The fourth level does not: refused, and refused again next time.
    ASSERT_EQ(context->setFunction(info->addFunction(shapes, RealAssemblies::findMethod(import, leafType, u"Touch"))),
              S_OK);
    char16_t* text = nullptr;
    EXPECT_EQ(context->getClassName(nullptr, &text), E_INVALIDARG);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(context->getClassName(nullptr, &text), E_INVALIDARG);
}

TEST(MetaDataContextMarker, StripsBackQuoteAndDigitsAtTheEndOnly) {
    struct Case {
        std::u16string text;
        std::u16string stripped;
        ULONG length;
    };
    const Case cases[] = {
        {u"List`1", u"List", 4},         {u"Dictionary`12", u"Dictionary", 10},
        {u"Tick`", u"Tick", 4},          {u"12345", u"12345", 99},
        {u"A`1B", u"A`1B", 99},          {u"`7", u"", 0},
        {u"Plain", u"Plain", 99},
    };
    for (const Case& c : cases) {
        std::u16string buffer = c.text;
        ULONG length = 99;
        MetaDataContext::stripEndGenericMarker(buffer.data(), static_cast<long>(buffer.size()), &length);
        EXPECT_EQ(std::u16string(buffer.c_str()), c.stripped) << RealAssemblies::narrow(c.text.c_str());
        EXPECT_EQ(length, c.length) << RealAssemblies::narrow(c.text.c_str());
    }
}

// The type table read straight names every class it can, nested and generic
// ones too, as the context does, and most classes; a name beyond the buffer
// is left to the engine.
TEST_F(MetaDataContextNames, TypeRowsNameClassesAsTheContextDoes) {
    for (const ModuleID module : {shapes, info->addModule(RealAssemblies::coreLibPath())}) {
        IMetaDataImport* import = info->importOf(module);
        const TypeNameRows rows(import);
        ASSERT_EQ(context->setModuleID(module), S_OK);
        ASSERT_EQ(context->setImport(import), S_OK);
        HCORENUM types = nullptr;
        mdTypeDef type = 0;
        ULONG count = 0;
        size_t read = 0;
        size_t listed = 0;
        while (import->EnumTypeDefs(&types, &type, 1, &count) == S_OK && count == 1) {
            char16_t name[IMetaDataContext::kNameSize];
            ++listed;
            if (!rows.plainName(type, name, IMetaDataContext::kNameSize)) continue;
            ++read;
            char16_t* assembly = nullptr;
            char16_t* expected = nullptr;
            ASSERT_EQ(context->setTypeDef(type), S_OK);
            ASSERT_EQ(context->getClassName(&assembly, &expected), S_OK);
            ASSERT_EQ(std::u16string(name), std::u16string(expected)) << std::hex << type;
            EXPECT_FALSE(rows.plainName(type, name, static_cast<ULONG>(std::u16string(expected).size())));
        }
        import->CloseEnum(types);
        EXPECT_GT(read * 2, listed) << read << " of " << listed;
    }
}
