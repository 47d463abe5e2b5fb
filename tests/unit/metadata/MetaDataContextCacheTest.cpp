#include <gtest/gtest.h>

#include "MetaDataFixture.h"
#include "runtime/CorErrors.h"

using MetaDataContextCache = MetaDataFixture;

namespace {

// Reads every cached name once.
void readAll(IMetaDataContext& context) {
    char16_t* assembly = nullptr;
    char16_t* name = nullptr;
    char16_t** assemblies = nullptr;
    char16_t** classes = nullptr;
    unsigned int count = 0;
    EXPECT_EQ(context.getClassName(&assembly, &name), S_OK);
    EXPECT_EQ(context.getMethodName(&name), S_OK);
    EXPECT_EQ(context.getParentName(&assembly, &name), S_OK);
    EXPECT_EQ(context.getInterfaces(&assemblies, &classes, &count), S_OK);
    EXPECT_EQ(context.getClassAttributes(&assemblies, &classes, &count), S_OK);
    EXPECT_EQ(context.getMethodAttributes(&assemblies, &classes, &count), S_OK);
}

}  // namespace

TEST_F(MetaDataContextCache, SecondMethodOfTheClassKeepsTheClassCaches) {
    CountingMetaDataImport* import = info->importOf(shapes);
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Attributed"}, u"Marked")), S_OK);
    readAll(*context);
    char16_t** methodAttributes = nullptr;
    unsigned int count = 0;
    ASSERT_EQ(context->getMethodAttributes(nullptr, &methodAttributes, &count), S_OK);
    EXPECT_EQ(count, 3u);

    // Repeated reads: no runtime call at all.
    import->resetCalls();
    info->resetCalls();
    readAll(*context);
    EXPECT_EQ(import->totalCalls(), 0);
    EXPECT_EQ(info->calls("GetModuleInfo") + info->calls("GetAssemblyInfo"), 0);

    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Attributed"}, u"Unmarked")), S_OK);
    import->resetCalls();
    char16_t** classes = nullptr;
    EXPECT_EQ(className().second, "Shapes.Attributed");
    EXPECT_EQ(context->getInterfaces(nullptr, &classes, &count), S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(context->getClassAttributes(nullptr, &classes, &count), S_OK);
    EXPECT_EQ(count, 3u);
    HRESULT hr = E_FAIL;
    parentName(hr);
    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(import->totalCalls(), 0);

    // The method's own names are asked anew.
    EXPECT_EQ(methodName(), "Unmarked");
    EXPECT_EQ(context->getMethodAttributes(nullptr, &classes, &count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(import->calls("GetMethodProps"), 1);
    EXPECT_EQ(import->calls("EnumCustomAttributes"), 1);
}

TEST_F(MetaDataContextCache, AnotherModuleWithTheSameTokensClearsEveryCache) {
    ModuleID again = info->addModule(RealAssemblies::testAsset("MetadataShapes"));
    ModuleID coreLib = info->addModule(RealAssemblies::coreLibPath());
    mdMethodDef marked = methodIn(shapes, {u"Shapes.Attributed"}, u"Marked");
    ASSERT_EQ(context->setFunction(info->addFunction(shapes, marked)), S_OK);
    readAll(*context);

    // The same file as a second module: same tokens, same names, but each
    // cache is filled from the new module's metadata.
    CountingMetaDataImport* secondImport = info->importOf(again);
    ASSERT_EQ(context->setFunction(info->addFunction(again, marked)), S_OK);
    EXPECT_EQ(context->getModuleID(), again);
    EXPECT_EQ(context->getImport(), static_cast<IMetaDataImport*>(secondImport));
    secondImport->resetCalls();
    readAll(*context);
    EXPECT_GT(secondImport->calls("GetTypeDefProps"), 0);
    EXPECT_EQ(secondImport->calls("GetMethodProps"), 1 + 2);  // the name, and the local attribute's constructor twice
    EXPECT_EQ(secondImport->calls("EnumInterfaceImpls"), 1);
    EXPECT_EQ(secondImport->calls("EnumCustomAttributes"), 2);
    EXPECT_GT(secondImport->calls("GetTypeRefProps"), 0);

    // The same method token in the core library names something else.
    ASSERT_EQ(context->setFunction(info->addFunction(coreLib, marked)), S_OK);
    EXPECT_NE(className().second, "Shapes.Attributed");
    EXPECT_EQ(className().first, "System.Private.CoreLib");
    EXPECT_NE(methodName(), "Marked");
}

TEST_F(MetaDataContextCache, FailedMoveLeavesThePreviousMethod) {
    FunctionID marked = function(shapes, {u"Shapes.Attributed"}, u"Marked");
    ASSERT_EQ(context->setFunction(marked), S_OK);
    readAll(*context);
    ModuleID unreadable = info->addUnreadableModule();
    mdMethodDef token = context->getMethodDef();
    mdTypeDef type = context->getTypeDef();
    ClassID classID = context->getClassID();
    IMetaDataImport* import = context->getImport();

    const FunctionID failing[] = {
        0xdead0000,                                            // unknown to the runtime
        info->addFunction(unreadable, token),                  // metadata cannot be read
        info->addFunction(shapes, mdtMethodDef | 0xFFFFFF),    // no such method row
    };
    for (FunctionID id : failing) {
        EXPECT_TRUE(FAILED(context->setFunction(id))) << std::hex << id;
        EXPECT_EQ(context->getFunctionID(), marked);
        EXPECT_EQ(context->getModuleID(), shapes);
        EXPECT_EQ(context->getClassID(), classID);
        EXPECT_EQ(context->getMethodDef(), token);
        EXPECT_EQ(context->getTypeDef(), type);
        EXPECT_EQ(context->getImport(), import);
        EXPECT_EQ(className().second, "Shapes.Attributed");
        EXPECT_EQ(methodName(), "Marked");
    }
}

TEST_F(MetaDataContextCache, MethodIdentifierAndTypeInitializerTest) {
    ASSERT_EQ(context->setFunction(info->addFunction(shapes, methodIn(shapes, {u"Shapes.Statics"}, u"Run"),
                                                     0x123456789)),
              S_OK);
    EXPECT_EQ(context->getMethodID(), 0x23456789u);
    EXPECT_FALSE(context->isInstanceTypeInitializer());

    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.Statics"}, u".cctor")), S_OK);
    EXPECT_FALSE(context->isInstanceTypeInitializer());
    ASSERT_EQ(context->setFunction(function(shapes, {u"Shapes.PlainBase"}, u".ctor")), S_OK);
    EXPECT_TRUE(context->isInstanceTypeInitializer());
}

TEST_F(MetaDataContextCache, PositionedByHandDuringModuleProcessing) {
    char16_t* assembly = nullptr;
    EXPECT_EQ(context->getAssemblyName(&assembly), E_FAIL);
    EXPECT_EQ(assembly, nullptr);

    CountingMetaDataImport* import = info->importOf(shapes);
    mdTypeDef type = typeIn(shapes, {u"Shapes.DerivedFromDef"});
    mdMethodDef run = RealAssemblies::findMethod(import, type, u"Run");
    mdToken base = 0;
    ASSERT_EQ(import->GetTypeDefProps(type, nullptr, 0, nullptr, nullptr, &base), S_OK);
    context->setImport(import);
    context->setModuleID(shapes);
    context->setTypeDef(type);
    context->setMethodDef(run);
    context->setSuperToken(base);

    EXPECT_EQ(context->getFunctionID(), 0u);
    EXPECT_EQ(context->getMethodID(), static_cast<unsigned int>(shapes) + RidFromToken(run));
    EXPECT_EQ(className(), std::make_pair(std::string("MetadataShapes"), std::string("Shapes.DerivedFromDef")));
    EXPECT_EQ(methodName(), "Run");
    HRESULT hr = E_FAIL;
    EXPECT_EQ(parentName(hr).second, "Shapes.PlainBase");
    EXPECT_EQ(hr, S_OK);

    // The module's assembly is asked of the runtime on every call.
    info->resetCalls();
    ASSERT_EQ(context->getAssemblyName(&assembly), S_OK);
    ASSERT_EQ(context->getAssemblyName(&assembly), S_OK);
    EXPECT_EQ(RealAssemblies::narrow(assembly), "MetadataShapes");
    EXPECT_EQ(info->calls("GetModuleInfo"), 2);
    EXPECT_EQ(info->calls("GetAssemblyInfo"), 2);
}
