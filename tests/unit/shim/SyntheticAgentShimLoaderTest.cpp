// How the loader binds the agent's trace functions: by token when the agent's
// file can be read ahead of the runtime, by name otherwise.
#include <gtest/gtest.h>

#include "ShimFixture.h"
#include "support/CapturedStream.h"
#include "support/DecodedBody.h"
#include "runtime/Guids.h"

namespace {

constexpr uint32_t kCallvirt = 0x6F;

class SyntheticAgentShimLoader : public ShimFixture {
protected:
    // The loader's body once the shim is defined with the agent at path.
    DecodedBody loaderFor(const std::string& path) {
        environment.set("com.tarn.harrowlite.agentLocation", path.c_str());
        EXPECT_EQ(define(true, false), S_OK) << logText;
        const unsigned char* body = info->installedBody(coreLib, methodNamed(shimType(), u"loadInitTrace"));
        if (body != nullptr) return DecodedBody::read(body);
        return DecodedBody{.error = "no loader", .instructions = {}, .clauses = {}};
    }

    mdMethodDef corlibMethod(const char16_t* type, const char16_t* name) {
        return RealAssemblies::findMethod(import, corlibType(type), name, 1);
    }
};

TEST_F(SyntheticAgentShimLoader, BindsEachFunctionByItsTokenWhenTheAgentCanBeRead) {
    const std::string agent = RealAssemblies::testAsset("AgentShapes");
    const DecodedBody loader = loaderFor(agent);
    ASSERT_TRUE(loader.ok()) << loader.error;
    const mdMethodDef resolve = corlibMethod(u"System.Reflection.Module", u"ResolveMethod");
    EXPECT_EQ(loader.count(kCallvirt, corlibMethod(u"System.Reflection.Assembly", u"GetType")), 0u);
    // Each field's token is the agent's function of the same name and signature.
    AutoCOMPointer<IMetaDataImport> agentScope = RealAssemblies::open(agent);
    const mdTypeDef agentClass = RealAssemblies::findType(agentScope, SharedNames::kPreAgentShimClass);
    unsigned int field = 0;
    for (size_t i = 1; i < loader.instructions.size(); ++i) {
        if (loader.instructions[i].opcode != kCallvirt || loader.instructions[i].operand != resolve) continue;
        ASSERT_LT(field, ShimDelegateTable::kFieldCount);
        const TraceMembers::Member& member = TraceMembers::kMembers[ShimDelegateTable::fields[field++].member];
        mdMethodDef expected = 0;
        ASSERT_EQ(agentScope->FindMethod(agentClass, member.name, member.signature, member.length, &expected), S_OK);
        EXPECT_EQ(loader.instructions[i - 1].operand, expected) << RealAssemblies::narrow(member.name);
    }
    EXPECT_EQ(field, ShimDelegateTable::kFieldCount);
    // The loading stops unless the module is the build the tokens came from.
    GUID version{};
    ASSERT_EQ(agentScope->GetScopeProps(nullptr, 0, nullptr, &version), S_OK);
    EXPECT_EQ(loader.count(0x20, version.Data1), 1u) << "ldc.i4 of the version's first part";
}

// An assembly without the agent's class, or whose class lacks a function,
// leaves the lookups by name, and the log says what it lacks.
TEST_F(SyntheticAgentShimLoader, BindsByNameWhenTheAgentsClassOrAFunctionIsNotFound) {
    const mdMethodDef resolve = corlibMethod(u"System.Reflection.Module", u"ResolveMethod");
    const std::pair<const char*, std::string> lacking[] = {
        {"PolicyShapes", "The agent's assembly defines no class com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim"},
        {"MetadataShapes", "The agent's class lacks corInitTrace(int): its functions are looked up by name"}};
    for (const auto& [asset, line] : lacking) {
        const DecodedBody byName = loaderFor(RealAssemblies::testAsset(asset));
        EXPECT_EQ(byName.count(kCallvirt, corlibMethod(u"System.Reflection.Assembly", u"GetType")), 1u);
        EXPECT_EQ(byName.count(kCallvirt, resolve), 0u);
        EXPECT_EQ(logLines(line).size(), 1u) << logText;
    }
}

// Outside the core library the shim calls the core library through member
// references of its own module, under an assembly reference to it, and the
// core library gains nothing.
TEST_F(SyntheticAgentShimLoader, OutsideTheCoreLibraryRefersToItsMembers) {
    environment.set("com.tarn.harrowlite.agentLocation", RealAssemblies::testAsset("AgentShapes").c_str());
    const ModuleID target = module(RealAssemblies::testAsset("PolicyShapes"), true);
    CapturedStream log;
    CoreLibraryLookups lookups;
    SyntheticAgentShim shim(lookups);
    ASSERT_EQ(shim.DefineSyntheticAgentShim(info.get(), target, log.get(), true, false, coreLib), S_OK) << log.text();
    EXPECT_EQ(shimType(), 0u);
    IMetaDataImport* own = info->importOf(target);
    ASSERT_EQ(RealAssemblies::findType(own, SharedNames::kSyntheticAgentShimClass), shim.definedClass());
    // The class extends a reference into the core library, and every type the
    // shim calls into is a reference under the same assembly reference.
    mdToken base = 0, coreScope = 0;
    char16_t coreName[64] = {};
    ULONG length = 0;
    AutoCOMPointer<IMetaDataAssemblyImport> assemblies;
    ASSERT_EQ(own->QueryInterface(IID_IMetaDataAssemblyImport, reinterpret_cast<void**>(&assemblies)), S_OK);
    ASSERT_EQ(own->GetTypeDefProps(shim.definedClass(), nullptr, 0, nullptr, nullptr, &base), S_OK);
    ASSERT_EQ(own->GetTypeRefProps(base, &coreScope, nullptr, 0, nullptr), S_OK);
    ASSERT_EQ(assemblies->GetAssemblyRefProps(coreScope, nullptr, nullptr, coreName, 64, &length, nullptr, nullptr,
                                              nullptr, nullptr),
              S_OK);
    EXPECT_EQ(std::u16string_view(coreName), SharedNames::kCoreLibrary);
    auto inCoreLibrary = [&](mdToken type) {
        mdToken scope = 0;
        return TypeFromToken(type) == mdtTypeRef &&
               SUCCEEDED(own->GetTypeRefProps(type, &scope, nullptr, 0, nullptr)) && scope == coreScope;
    };
    const DecodedBody loader = DecodedBody::read(
        info->installedBody(target, methodIn(target, {SharedNames::kSyntheticAgentShimClass}, u"loadInitTrace")));
    unsigned int calls = 0;
    for (const DecodedBody::Instruction& instruction : loader.instructions) {
        const auto token = static_cast<mdToken>(instruction.operand);
        mdToken parent = 0;
        if ((instruction.opcode == 0x28 || instruction.opcode == kCallvirt || instruction.opcode == 0x73) &&
            TypeFromToken(token) != mdtMethodDef) {
            ASSERT_EQ(own->GetMemberRefProps(token, &parent, nullptr, 0, nullptr, nullptr, nullptr), S_OK);
            EXPECT_TRUE(inCoreLibrary(parent)) << RealAssemblies::nameOf(own, token);
            ++calls;
        }
    }
    // Loading, the version check, and ten times the type handle and the delegate.
    EXPECT_GE(calls, 25u);
}

}  // namespace
