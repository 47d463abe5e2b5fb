// The shim as written into a real core library: the class, its delegate types,
// fields, methods and their bodies, read back through the library's own import.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ShimFixture.h"

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

class SyntheticAgentShimTest : public ShimFixture {
protected:
    // The .cctor listing for one run: each field gets a delegate of its type
    // over its initial target.
    std::vector<std::string> expectedClassCtor(bool attached) {
        const char* kinds[] = {"InitTrace", "PushTrace", "Trace", "TraceObj"};
        const char* stubs[] = {"emptyInitTrace", "emptyPushTrace", "emptyTrace", "emptyTraceObj"};
        const char* sigs[] = {"00 01 08 08", "00 02 01 08 1c", "00 00 01", "00 01 01 1c"};
        std::vector<std::string> code;
        for (const auto& field : ShimDelegateTable::fields) {
            using ShimDelegateTable::InitialTarget;
            bool loader = field.initialTarget == InitialTarget::LoadInitTrace ||
                          (field.initialTarget == InitialTarget::LoadInitTraceIfAttached && attached);
            std::string target = loader ? "loadInitTrace (00 01 08 08)"
                                        : std::string(stubs[field.kind]) + " (" + sigs[field.kind] + ")";
            code.push_back("ldnull");
            code.push_back("ldftn com.tarn.harrowlite.fieldmark.dotnet.SyntheticAgentShim::" + target);
            code.push_back(std::string("newobj ") + kinds[field.kind] + "::.ctor (20 02 01 1c 18)");
            code.push_back("stsfld " + RealAssemblies::narrow(field.fieldName));
        }
        code.push_back("ret");
        return code;
    }
};

constexpr const char* kShim = "com.tarn.harrowlite.fieldmark.dotnet.SyntheticAgentShim";




TEST_F(SyntheticAgentShimTest, ClassConstructorLeavesCorInitTraceQuietWhenLaunched) {
    ASSERT_EQ(define(true, false), S_OK) << logText;
    MethodBody body = bodyOf(methodNamed(shimType(), ".cctor"));
    EXPECT_EQ(body.maxStack, 10u);
    EXPECT_THAT(body.code, ElementsAreArray(expectedClassCtor(false)));
    EXPECT_EQ(body.code[5], std::string("ldftn ") + kShim + "::emptyInitTrace (00 01 08 08)");
}

TEST_F(SyntheticAgentShimTest, ClassConstructorLetsCorInitTraceLoadTheAgentWhenAttached) {
    ASSERT_EQ(define(true, true), S_OK) << logText;
    MethodBody body = bodyOf(methodNamed(shimType(), ".cctor"));
    EXPECT_THAT(body.code, ElementsAreArray(expectedClassCtor(true)));
    EXPECT_EQ(body.code[5], std::string("ldftn ") + kShim + "::loadInitTrace (00 01 08 08)");
}

// The listing of loadInitTrace after the agent's class is in local 0.
std::vector<std::string> expectedDelegateAssignments() {
    const char* kinds[] = {"InitTrace", "PushTrace", "Trace", "TraceObj"};
    const std::vector<std::vector<const char*>> parameters = {
        {"System.Int32"}, {"System.Int32", "System.Object"}, {}, {"System.Object"}};
    const std::string getTypeFromHandle =
        "call System.Type::GetTypeFromHandle (00 01 class System.Type valuetype System.RuntimeTypeHandle)";
    std::vector<std::string> code;
    for (const auto& field : ShimDelegateTable::fields) {
        const auto& types = parameters[field.kind];
        code.push_back(std::string("ldtoken ") + kinds[field.kind]);
        code.push_back(getTypeFromHandle);
        code.push_back("ldloc.0");
        code.push_back("ldstr \"" + RealAssemblies::narrow(field.methodName) + "\"");
        code.push_back("ldc.i4." + std::to_string(types.size()));
        code.push_back("newarr System.Type");
        for (size_t i = 0; i < types.size(); ++i) {
            code.push_back("dup");
            code.push_back("ldc.i4." + std::to_string(i));
            code.push_back(std::string("ldtoken ") + types[i]);
            code.push_back(getTypeFromHandle);
            code.push_back("stelem.ref");
        }
        code.push_back("callvirt System.Type::GetMethod (20 02 class System.Reflection.MethodInfo 0e 1d class "
                       "System.Type)");
        code.push_back("call System.Delegate::CreateDelegate (00 02 class System.Delegate class System.Type class "
                       "System.Reflection.MethodInfo)");
        code.push_back(std::string("castclass ") + kinds[field.kind]);
        code.push_back("stsfld " + RealAssemblies::narrow(field.fieldName));
    }
    // Whatever the loading throws: initTrace goes to its stub, and the call
    // answers 0 (a log in memory has no path for the failure line).
    code.push_back("leave.s");
    code.push_back("stloc.1");
    code.push_back("ldnull");
    code.push_back(std::string("ldftn ") + kShim + "::emptyInitTrace (00 01 08 08)");
    code.push_back("newobj InitTrace::.ctor (20 02 01 1c 18)");
    code.push_back("stsfld InitTraceDelegate");
    code.push_back("leave.s");
    code.push_back("ldarg.0");
    code.push_back(std::string("call ") + kShim + "::initTrace (00 01 08 08)");
    code.push_back("ret");
    code.push_back("ldc.i4.0");
    code.push_back("ret");
    return code;
}

TEST_F(SyntheticAgentShimTest, LoaderOnCoreLoadsTheAgentThroughTheDefaultLoadContext) {
    ASSERT_EQ(define(true, false), S_OK) << logText;

    EXPECT_EQ(logText, "Looking for agent at /opt/tarn/bin/netcore/tarn.Agent.dll\n");
    ASSERT_EQ(info->metaDataRequests().size(), 2u);
    EXPECT_EQ(info->metaDataRequests()[0].flags, static_cast<DWORD>(ofWrite));
    EXPECT_TRUE(info->metaDataRequests()[0].iid == IID_IMetaDataEmit);
    EXPECT_EQ(info->metaDataRequests()[1].flags, static_cast<DWORD>(ofRead));
    EXPECT_TRUE(info->metaDataRequests()[1].iid == IID_IMetaDataImport);
    EXPECT_THAT(info->applied(), ElementsAre(kModule));
    EXPECT_NE(std::find(faulting->typeNamesSought().begin(), faulting->typeNamesSought().end(),
                        u"System.Runtime.Loader.AssemblyLoadContext"),
              faulting->typeNamesSought().end());

    MethodBody body = bodyOf(methodNamed(shimType(), "loadInitTrace"));
    EXPECT_EQ(body.maxStack, 10u);
    PCCOR_SIGNATURE locals = nullptr;
    ULONG length = 0;
    ASSERT_EQ(import->GetSigFromToken(body.localsToken, &locals, &length), S_OK);
    EXPECT_EQ(text->signature(locals, length), "07 02 class System.Type class System.Exception");

    std::vector<std::string> expected = {
        "call System.Runtime.Loader.AssemblyLoadContext::get_Default (00 00 class "
        "System.Runtime.Loader.AssemblyLoadContext)",
        "ldstr \"/opt/tarn/bin/netcore/tarn.Agent.dll\"",
        "callvirt System.Runtime.Loader.AssemblyLoadContext::LoadFromAssemblyPath (20 01 class "
        "System.Reflection.Assembly 0e)",
        "ldstr \"com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim\"",
        "callvirt System.Reflection.Assembly::GetType (20 01 class System.Type 0e)",
        "stloc.0",
    };
    for (const std::string& line : expectedDelegateAssignments()) expected.push_back(line);
    EXPECT_THAT(body.code, ElementsAreArray(expected));
}

TEST_F(SyntheticAgentShimTest, LoaderOnTheDesktopRuntimeUsesLoadFromAndNeverSeeksALoadContext) {
    ASSERT_EQ(define(false, false), S_OK) << logText;

    EXPECT_EQ(logText, "Looking for agent at /opt/tarn/bin/tarn.Agent.dll\n");
    EXPECT_EQ(faulting->typeNamesSought().size(), 14u);
    for (const std::u16string& name : faulting->typeNamesSought()) {
        EXPECT_EQ(name.find(u"Loader"), std::u16string::npos) << RealAssemblies::narrow(name.c_str());
    }
    EXPECT_THAT(info->applied(), ElementsAre(kModule));

    MethodBody body = bodyOf(methodNamed(shimType(), "loadInitTrace"));
    std::vector<std::string> expected = {
        "ldstr \"/opt/tarn/bin/tarn.Agent.dll\"",
        "call System.Reflection.Assembly::LoadFrom (00 01 class System.Reflection.Assembly 0e)",
        "ldstr \"com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim\"",
        "callvirt System.Reflection.Assembly::GetType (20 01 class System.Type 0e)",
        "stloc.0",
    };
    for (const std::string& line : expectedDelegateAssignments()) expected.push_back(line);
    EXPECT_THAT(body.code, ElementsAreArray(expected));
}

TEST_F(SyntheticAgentShimTest, AgentLocationVariableIsUsedUnchanged) {
    environment.set("com.tarn.harrowlite.agentLocation", "/srv/custom agent/Agent Build.dll");
    environment.set("com.tarn.harrowlite.AgentProfile", "/elsewhere/AgentProfile.config");
    ASSERT_EQ(define(true, false), S_OK) << logText;

    EXPECT_EQ(logText, "Looking for agent at /srv/custom agent/Agent Build.dll\n");
    MethodBody body = bodyOf(methodNamed(shimType(), "loadInitTrace"));
    ASSERT_GE(body.code.size(), 2u);
    EXPECT_EQ(body.code[1], "ldstr \"/srv/custom agent/Agent Build.dll\"");
}

}  // namespace
