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
    struct Props {
        std::string name;
        DWORD flags = 0;
        DWORD implFlags = 0;
        ULONG rva = 0;
        std::string signature;
    };
    Props methodProps(mdMethodDef method) {
        Props props;
        PCCOR_SIGNATURE bytes = nullptr;
        ULONG length = 0;
        import->GetMethodProps(method, nullptr, nullptr, 0, nullptr, &props.flags, &bytes, &length, &props.rva,
                               &props.implFlags);
        props.name = text->methodName(method);
        props.signature = text->signature(bytes, length);
        return props;
    }

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

TEST_F(SyntheticAgentShimTest, DefinesPublicClassWithFourNestedDelegateTypes) {
    ASSERT_EQ(define(true, false), S_OK) << logText;

    mdTypeDef shim = shimType();
    ASSERT_NE(shim, 0u);
    DWORD flags = 0;
    mdToken extends = 0;
    ASSERT_EQ(import->GetTypeDefProps(shim, nullptr, 0, nullptr, &flags, &extends), S_OK);
    EXPECT_EQ(flags, 0x1u);
    EXPECT_EQ(extends, corlibType(u"System.Object"));

    struct Expected {
        const char16_t* name;
        const char* invoke;
        const char* beginInvoke;
    };
    const Expected delegates[] = {
        {u"InitTrace", "20 01 08 08", "20 03 class System.IAsyncResult 08 class System.AsyncCallback 1c"},
        {u"PushTrace", "20 02 01 08 1c", "20 04 class System.IAsyncResult 08 1c class System.AsyncCallback 1c"},
        {u"Trace", "20 00 01", "20 02 class System.IAsyncResult class System.AsyncCallback 1c"},
        {u"TraceObj", "20 01 01 1c", "20 03 class System.IAsyncResult 1c class System.AsyncCallback 1c"},
    };
    for (const Expected& expected : delegates) {
        SCOPED_TRACE(RealAssemblies::narrow(expected.name));
        mdTypeDef type = RealAssemblies::findType(import, expected.name, shim);
        ASSERT_NE(type, 0u);
        ASSERT_EQ(import->GetTypeDefProps(type, nullptr, 0, nullptr, &flags, &extends), S_OK);
        EXPECT_EQ(flags, 0x102u);
        EXPECT_EQ(extends, corlibType(u"System.MulticastDelegate"));
        mdTypeDef enclosing = 0;
        EXPECT_EQ(import->GetNestedClassProps(type, &enclosing), S_OK);
        EXPECT_EQ(enclosing, shim);

        std::vector<mdMethodDef> methods = methodsOf(type);
        ASSERT_EQ(methods.size(), 4u);
        Props ctor = methodProps(methods[0]);
        Props invoke = methodProps(methods[1]);
        Props begin = methodProps(methods[2]);
        Props end = methodProps(methods[3]);
        EXPECT_EQ(ctor.name, ".ctor");
        EXPECT_EQ(ctor.flags, 0x1886u);
        EXPECT_EQ(ctor.signature, "20 02 01 1c 18");
        EXPECT_EQ(invoke.name, "Invoke");
        EXPECT_EQ(invoke.signature, expected.invoke);
        EXPECT_EQ(begin.name, "BeginInvoke");
        EXPECT_EQ(begin.signature, expected.beginInvoke);
        // int32 for every delegate type, whatever Invoke returns.
        EXPECT_EQ(end.name, "EndInvoke");
        EXPECT_EQ(end.signature, "20 01 08 class System.IAsyncResult");
        for (const Props& props : {invoke, begin, end}) {
            EXPECT_EQ(props.flags, 0x1C6u) << props.name;
        }
        // The runtime supplies delegate code: no RVA, no body.
        for (const Props& props : {ctor, invoke, begin, end}) {
            EXPECT_EQ(props.implFlags, 3u) << props.name;
            EXPECT_EQ(props.rva, 0u) << props.name;
        }
        for (mdMethodDef method : methods) {
            EXPECT_EQ(info->bodies().count(method), 0u);
        }
    }
}

TEST_F(SyntheticAgentShimTest, DefinesTenPrivateStaticDelegateFields) {
    ASSERT_EQ(define(true, false), S_OK) << logText;

    std::vector<std::string> fields;
    for (mdFieldDef field : fieldsOf(shimType())) {
        DWORD flags = 0;
        PCCOR_SIGNATURE bytes = nullptr;
        ULONG length = 0;
        DWORD constantType = 0;
        import->GetFieldProps(field, nullptr, nullptr, 0, nullptr, &flags, &bytes, &length, &constantType, nullptr,
                              nullptr);
        EXPECT_EQ(flags, 0x11u) << text->fieldName(field);
        fields.push_back(text->fieldName(field) + ": " + text->signature(bytes, length));
    }
    EXPECT_THAT(fields, ElementsAre("InitTraceDelegate: 06 class InitTrace",
                                    "CorInitTraceDelegate: 06 class InitTrace",
                                    "LoadTraceDelegate: 06 class Trace",
                                    "LoadTraceObjDelegate: 06 class TraceObj",
                                    "PushTraceDelegate: 06 class PushTrace",
                                    "StartTraceDelegate: 06 class Trace",
                                    "FinishValueTypeTraceDelegate: 06 class TraceObj",
                                    "FinishTraceDelegate: 06 class Trace",
                                    "FinishTraceObjDelegate: 06 class TraceObj",
                                    "CatchTraceDelegate: 06 class TraceObj"));
}

TEST_F(SyntheticAgentShimTest, DefinesShimMethodsStubsLoaderAndClassConstructorWithBodiesOnlyInMemory) {
    ASSERT_EQ(define(true, false), S_OK) << logText;

    std::vector<std::string> methods;
    for (mdMethodDef method : methodsOf(shimType())) {
        Props props = methodProps(method);
        EXPECT_EQ(props.flags, props.name == ".cctor" ? 0x1810u : 0x96u) << props.name;
        EXPECT_EQ(props.implFlags, 0u) << props.name;
        EXPECT_EQ(props.rva, 0u) << props.name;
        EXPECT_EQ(info->bodies().count(method), 1u) << props.name;
        methods.push_back(props.name + " " + props.signature);
    }
    EXPECT_THAT(methods, ElementsAre("initTrace 00 01 08 08", "corInitTrace 00 01 08 08", "loadTrace 00 00 01",
                                     "loadTrace 00 01 01 1c", "pushTrace 00 02 01 08 1c", "startTrace 00 00 01",
                                     "finishValueTypeTrace 00 01 01 1c", "finishTrace 00 00 01",
                                     "finishTrace 00 01 01 1c", "catchTrace 00 01 01 1c",
                                     "emptyInitTrace 00 01 08 08", "emptyTrace 00 00 01", "emptyTraceObj 00 01 01 1c",
                                     "emptyPushTrace 00 02 01 08 1c", "loadInitTrace 00 01 08 08", ".cctor 00 00 01"));
    EXPECT_EQ(info->calls("SetILFunctionBody"), 16);
    EXPECT_EQ(info->calls("GetILFunctionBodyAllocator"), 16);
}

TEST_F(SyntheticAgentShimTest, ShimMethodsCallThroughTheirFieldsAndStubsDoNothing) {
    ASSERT_EQ(define(true, false), S_OK) << logText;
    mdTypeDef shim = shimType();
    std::vector<mdMethodDef> methods = methodsOf(shim);
    ASSERT_EQ(methods.size(), 16u);

    const char* invokes[] = {"InitTrace::Invoke (20 01 08 08)", "PushTrace::Invoke (20 02 01 08 1c)",
                             "Trace::Invoke (20 00 01)", "TraceObj::Invoke (20 01 01 1c)"};
    const int arguments[] = {1, 2, 0, 1};
    for (unsigned int i = 0; i < ShimDelegateTable::kFieldCount; ++i) {
        const auto& field = ShimDelegateTable::fields[i];
        SCOPED_TRACE(RealAssemblies::narrow(field.methodName));
        std::vector<std::string> expected = {"ldsfld " + RealAssemblies::narrow(field.fieldName)};
        if (arguments[field.kind] > 0) expected.push_back("ldarg.0");
        if (arguments[field.kind] > 1) expected.push_back("ldarg.1");
        expected.push_back(std::string("callvirt ") + invokes[field.kind]);
        expected.push_back("ret");
        MethodBody body = bodyOf(methods[i]);
        EXPECT_TRUE(body.fat);
        EXPECT_EQ(body.maxStack, 3u);
        EXPECT_THAT(body.code, ElementsAreArray(expected));
    }

    for (const char* stub : {"emptyInitTrace", "emptyTrace", "emptyTraceObj", "emptyPushTrace"}) {
        MethodBody body = bodyOf(methodNamed(shim, stub));
        EXPECT_EQ(body.maxStack, 8u) << stub;
        if (std::string(stub) == "emptyInitTrace") {
            EXPECT_THAT(body.code, ElementsAre("ldc.i4.0", "ret"));
        } else {
            EXPECT_THAT(body.code, ElementsAre("ret")) << stub;
        }
    }
}

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
