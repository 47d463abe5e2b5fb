// loadInitTrace: loads the managed agent, points every delegate field at the
// agent's class, and passes the first initTrace call on.
#include "shim/SyntheticAgentShim.h"

#include "platform/AutoPointer.h"
#include "platform/File16.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/SystemUtils.h"
#include "platform/TextConversion.h"
#include "shim/AgentLocation.h"
#include "shim/ShimSignature.h"

using namespace ShimDelegateTable;

namespace {

constexpr DWORD kShimMethodFlags = mdPublic | mdStatic | mdHideBySig;

// Places in the loader's body, above the builder's own label numbers.
enum LoaderLabel : unsigned int {
    kLoadTry = 0x81000000,
    kLoadHandler,
    kLogTry,
    kLogHandler,
    kLogged,
    kHandlerEnd,
    kLoaded,
    kFailed,
    kSameAgent,
};

// ldc.i4.<n> in its shortest form.
Opcode loadConstant(unsigned int value) {
    return value <= 8 ? static_cast<Opcode>(static_cast<unsigned int>(Opcode::ldc_i4_0) + value) : Opcode::ldc_i4_s;
}

}  // namespace

HRESULT SyntheticAgentShim::DefineLoadInitMethod() {
    HRESULT hr = emit->DefineMethod(shimType, u"loadInitTrace", kShimMethodFlags, initTraceSig, sizeof(initTraceSig), 0,
                                    0, &loadInitTraceMethod);
    mdString pathString = 0;
    mdString agentClassString = 0;
    hr = DefineLoaderStrings(hr, &pathString, &agentClassString);
    hr = FindLoaderMethods(hr);
    if (SUCCEEDED(hr)) {
        FindFailureLogMethods();
    }

    AutoPointer<IMethodBuilder> builder(IMethodBuilder::newInstance());
    if (SUCCEEDED(hr) && builder.get() == nullptr) {
        hr = E_OUTOFMEMORY;
    }
    hr = SetLoaderLocals(builder.get(), hr);
    hr = EmitLoaderCode(builder.get(), hr, pathString, agentClassString);

    if (FAILED(hr)) {
        fprintf_8(log, "Failed to create method body\n");
    } else {
        hr = AssignMethodBody(loadInitTraceMethod, builder.get());
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to AssignMethodBody\n");
        }
    }
    return hr;
}

// The agent's path and class name as user strings of the core library.
HRESULT SyntheticAgentShim::DefineLoaderStrings(HRESULT hr, mdString* pathString, mdString* agentClassString) {
    std::u16string path;
    if (SUCCEEDED(hr)) {
        path = AgentLocation::find(dotnetCore);
        if (path.empty()) {
            fprintf_8(log, "No agent location: neither the agent location nor the agent profile is set\n");
            hr = E_INVALIDARG;
        } else {
            fprintf_8(log, "Looking for agent at %S\n", path.c_str());
            warnIfWorldWritable(log, path.c_str());
            if (dotnetCore) agentTokens = AgentTokens::readOnce(path);
            if (agentTokens.lacksClass) {
                fprintf_8(log, "The agent's assembly defines no class %S: it is looked up by name\n",
                          SharedNames::kPreAgentShimClass);
            } else if (agentTokens.lacksFunction != nullptr) {
                fprintf_8(log, "The agent's class lacks %S%s: its functions are looked up by name\n",
                          agentTokens.lacksFunction->name, agentTokens.lacksFunction->parameterList());
            }
        }
    }
    if (SUCCEEDED(hr)) {
        // Managed code opens the path: the bytes of its name are UTF-8.
        hr = DefineUserString(Utf16FromUtf8(path.c_str()).c_str(), pathString);
    }
    if (SUCCEEDED(hr)) {
        hr = DefineUserString(SharedNames::kPreAgentShimClass, agentClassString);
    }
    return hr;
}

// The loader's two locals: the agent's class (or, bound by token, its
// module), and what the loading threw.
HRESULT SyntheticAgentShim::SetLoaderLocals(IMethodBuilder* builder, HRESULT hr) {
    ShimSignature locals;
    locals.add(IMAGE_CEE_CS_CALLCONV_LOCAL_SIG)
        .add(2)
        .addClass(local(agentTokens.found() ? moduleType : corlibTypes[Type]))
        .addClass(local(corlibTypes[Exception]));
    mdSignature localsToken = 0;
    if (SUCCEEDED(hr)) {
        // The deepest stack: a module version and the eleven parts of another.
        builder->getFatHeader()->MaxStack = 12;
        hr = emit->GetTokenFromSig(locals.bytes(), locals.length(), &localsToken);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to GetTokenFromSig\n");
    } else {
        builder->getFatHeader()->LocalVarSigTok = localsToken;
    }
    return hr;
}

// Load the agent's assembly and class, point every delegate field at the
// agent, and deliver the first initTrace; a failure anywhere answers 0.
HRESULT SyntheticAgentShim::EmitLoaderCode(IMethodBuilder* builder, HRESULT hr, mdString pathString,
                                           mdString agentClassString) {
    ILEmitter il(builder, 0, hr);
    // The loading runs code that may itself be traced: the core library's
    // loader methods after an attach, an application's load event handler.
    // Its trace calls meet the stubs, as any before the agent is up, instead
    // of the loader again, which would recurse until the stack overflows.
    GenerateLoaderFieldsToStubs(il);
    il.label(kLoadTry);
    if (dotnetCore) {
        il.op(Opcode::call, getDefaultMethod)
            .op(Opcode::ldstr, pathString)
            .op(Opcode::callvirt, loadFromAssemblyPathMethod);
    } else {
        il.op(Opcode::ldstr, pathString).op(Opcode::call, loadFromMethod);
    }
    if (agentTokens.found()) {
        il.op(Opcode::callvirt, getManifestModuleMethod).op(Opcode::stloc_0);
        GenerateModuleVersionCheck(il);
    } else {
        il.op(Opcode::ldstr, agentClassString).op(Opcode::callvirt, getTypeMethod).op(Opcode::stloc_0);
    }
    // A field that cannot be pointed at the agent keeps its stub; the others
    // still go over.
    for (unsigned int i = 0; i < kFieldCount; ++i) {
        const FieldShape& field = fields[i];
        const mdTypeDef delegateType = delegateRecords[field.kind()].type;
        il.optional([&](ILEmitter& assignment) {
            if (agentTokens.found()) {
                GenerateAssignDelegateByToken(assignment, delegateFields[i], delegateType, agentTokens.methods[i]);
            } else {
                GenerateAssignDelegate(assignment, delegateFields[i], delegateType, field.methodName(),
                                       delegates[field.kind()].signature);
            }
        });
    }
    il.jump(Opcode::leave, kLoaded);
    GenerateLoadFailureHandler(il);
    // By now initTrace leads to the agent: the first call is delivered after all.
    il.label(kLoaded)
        .op(Opcode::ldarg_0)
        .op(Opcode::call, shimInitTraceMethod)
        .op(Opcode::ret)
        .label(kFailed)
        .op(Opcode::ldc_i4_0)
        .op(Opcode::ret);
    return il.then([&] { return AddLoaderClauses(builder); }).status();
}

HRESULT SyntheticAgentShim::FindLoaderMethods(HRESULT hr) {
    hr = FindReflectionMethods(FindAssemblyLoadMethods(hr));
    if (SUCCEEDED(hr) && agentTokens.found()) FindTokenMethods();
    return hr;
}

void SyntheticAgentShim::FindTokenMethods() {
    mdTypeDef methodBaseType = 0;
    mdTypeDef guidType = 0;
    if (SUCCEEDED(lookups.findType(import, u"System.Reflection.Module", &moduleType)) &&
        SUCCEEDED(lookups.findType(import, u"System.Reflection.MethodBase", &methodBaseType)) &&
        SUCCEEDED(lookups.findType(import, u"System.Guid", &guidType))) {
        ShimSignature manifestModule;
        manifestModule.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(0).addClass(moduleType);
        ShimSignature resolveMethod;
        resolveMethod.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(1).addClass(methodBaseType).add(ELEMENT_TYPE_I4);
        ShimSignature moduleVersion;
        moduleVersion.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(0).addValueType(guidType);
        // Guid(int, short, short, byte, byte, byte, byte, byte, byte, byte, byte)
        ShimSignature guidCtor;
        guidCtor.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(11).add(ELEMENT_TYPE_VOID).add(ELEMENT_TYPE_I4);
        guidCtor.add(ELEMENT_TYPE_I2).add(ELEMENT_TYPE_I2);
        for (int i = 0; i < 8; ++i) guidCtor.add(ELEMENT_TYPE_U1);
        ShimSignature guidEquals;
        guidEquals.add(IMAGE_CEE_CS_CALLCONV_DEFAULT)
            .add(2)
            .add(ELEMENT_TYPE_BOOLEAN)
            .addValueType(guidType)
            .addValueType(guidType);
        ShimSignature exceptionCtor;
        exceptionCtor.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(1).add(ELEMENT_TYPE_VOID).add(ELEMENT_TYPE_STRING);
        if (SUCCEEDED(
                findMethod(corlibTypes[Assembly], u"get_ManifestModule", manifestModule, &getManifestModuleMethod)) &&
            SUCCEEDED(findMethod(moduleType, u"ResolveMethod", resolveMethod, &resolveMethodMethod)) &&
            SUCCEEDED(findMethod(moduleType, u"get_ModuleVersionId", moduleVersion, &getModuleVersionMethod)) &&
            SUCCEEDED(findMethod(guidType, u".ctor", guidCtor, &guidCtorMethod)) &&
            SUCCEEDED(findMethod(guidType, u"op_Equality", guidEquals, &guidEqualsMethod)) &&
            SUCCEEDED(findMethod(corlibTypes[Exception], u".ctor", exceptionCtor, &exceptionCtorMethod))) {
            return;
        }
    }
    fprintf_8(log, "Failed to locate the members that bind the agent by token: it is bound by name\n");
    agentTokens = AgentTokens();
}

// How the agent's assembly is loaded: through the default load context on
// Core, Assembly.LoadFrom on the desktop runtime.
HRESULT SyntheticAgentShim::FindAssemblyLoadMethods(HRESULT hr) {
    if (dotnetCore) {
        ShimSignature getDefault;
        getDefault.add(IMAGE_CEE_CS_CALLCONV_DEFAULT).add(0).addClass(loadContextType);
        if (SUCCEEDED(hr)) {
            hr = findMethod(loadContextType, u"get_Default", getDefault, &getDefaultMethod);
        }
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to locate AssemblyLoadContext.get_Default\n");
            DumpMethodsWithName(loadContextType, u"get_Default");
        }

        ShimSignature loadFromPath;
        loadFromPath.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(1).addClass(corlibTypes[Assembly]).add(ELEMENT_TYPE_STRING);
        if (SUCCEEDED(hr)) {
            hr = findMethod(loadContextType, u"LoadFromAssemblyPath", loadFromPath, &loadFromAssemblyPathMethod);
        }
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to locate LoadFromAssemblyPath\n");
            DumpSignature(loadFromPath.bytes(), loadFromPath.length());
            DumpMethodsWithName(loadContextType, u"LoadFromAssemblyPath");
        }
    } else {
        ShimSignature loadFrom;
        loadFrom.add(IMAGE_CEE_CS_CALLCONV_DEFAULT).add(1).addClass(corlibTypes[Assembly]).add(ELEMENT_TYPE_STRING);
        if (SUCCEEDED(hr)) {
            hr = findMethod(corlibTypes[Assembly], u"LoadFrom", loadFrom, &loadFromMethod);
        }
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to locate Assembly.LoadFrom\n");
        }
    }
    return hr;
}

// What fills the delegates: Assembly.GetType, Type.GetMethod,
// Type.GetTypeFromHandle and Delegate.CreateDelegate.
HRESULT SyntheticAgentShim::FindReflectionMethods(HRESULT hr) {
    ShimSignature getType;
    getType.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(1).addClass(corlibTypes[Type]).add(ELEMENT_TYPE_STRING);
    if (SUCCEEDED(hr)) {
        hr = findMethod(corlibTypes[Assembly], u"GetType", getType, &getTypeMethod);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to locate GetType 0x%x\n", hr);
        DumpMethodsWithName(corlibTypes[Assembly], u"GetType");
    }

    ShimSignature getMethod;
    getMethod.add(IMAGE_CEE_CS_CALLCONV_HASTHIS)
        .add(2)
        .addClass(corlibTypes[MethodInfo])
        .add(ELEMENT_TYPE_STRING)
        .add(ELEMENT_TYPE_SZARRAY)
        .addClass(corlibTypes[Type]);
    if (SUCCEEDED(hr)) {
        hr = findMethod(corlibTypes[Type], u"GetMethod", getMethod, &getMethodMethod);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to locate GetMethod 0x%x\n", hr);
        DumpMethodsWithName(corlibTypes[Type], u"GetMethod");
    }

    ShimSignature getTypeFromHandle;
    getTypeFromHandle.add(IMAGE_CEE_CS_CALLCONV_DEFAULT)
        .add(1)
        .addClass(corlibTypes[Type])
        .addValueType(corlibTypes[RuntimeTypeHandle]);
    if (SUCCEEDED(hr)) {
        hr = findMethod(corlibTypes[Type], u"GetTypeFromHandle", getTypeFromHandle, &getTypeFromHandleMethod);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to find GetTypeFromHandle\n");
    }

    ShimSignature createDelegate;
    createDelegate.add(IMAGE_CEE_CS_CALLCONV_DEFAULT)
        .add(2)
        .addClass(corlibTypes[Delegate])
        .addClass(corlibTypes[Type])
        .addClass(corlibTypes[MethodInfo]);
    if (SUCCEEDED(hr)) {
        hr = findMethod(corlibTypes[Delegate], u"CreateDelegate", createDelegate, &createDelegateMethod);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to find CreateDelegate\n");
    }
    return hr;
}

void SyntheticAgentShim::GenerateAssignDelegate(ILEmitter& il, mdFieldDef field, mdTypeDef delegateType,
                                                const char16_t* methodName, const COR_SIGNATURE* signature) {
    // field = (DelegateType) Delegate.CreateDelegate(typeof(DelegateType),
    //     agentType.GetMethod(methodName, new Type[] { parameter types }))
    mdString nameString = 0;
    il.op(Opcode::ldtoken, delegateType).op(Opcode::call, getTypeFromHandleMethod).op(Opcode::ldloc_0);
    il.then([&] { return DefineUserString(methodName, &nameString); });
    il.op(Opcode::ldstr, nameString);
    // The delegate shapes have at most two parameters, each an int32 or an object.
    const unsigned int parameterCount = signature[1];
    if (parameterCount <= 2) {
        il.op(loadConstant(parameterCount));
    }
    il.op(Opcode::newarr, local(corlibTypes[Type]));
    for (unsigned int i = 0; i < parameterCount; ++i) {
        il.op(Opcode::dup).op(loadConstant(i), i);
        if (signature[i + 3] == ELEMENT_TYPE_I4) {
            il.op(Opcode::ldtoken, local(corlibTypes[Int32]));
        } else if (signature[i + 3] == ELEMENT_TYPE_OBJECT) {
            il.op(Opcode::ldtoken, local(corlibTypes[Object]));
        }
        il.op(Opcode::call, getTypeFromHandleMethod).op(Opcode::stelem_ref);
    }
    il.op(Opcode::callvirt, getMethodMethod)
        .op(Opcode::call, createDelegateMethod)
        .op(Opcode::castclass, delegateType)
        .op(Opcode::stsfld, field);
}

// The tokens hold for the build of the agent they were read from: an agent
// replaced since then fails to load as a whole, as any agent that cannot be
// loaded does, rather than have a field bound to another function.
void SyntheticAgentShim::GenerateModuleVersionCheck(ILEmitter& il) {
    // if (agentModule.ModuleVersionId != new Guid(...)) throw new Exception(...)
    const GUID& version = agentTokens.moduleVersion;
    mdString changed = 0;
    il.then([&] { return DefineUserString(u"The agent's assembly changed after the profiler read it", &changed); });
    il.op(Opcode::ldloc_0)
        .op(Opcode::callvirt, getModuleVersionMethod)
        .op(Opcode::ldc_i4, version.Data1)
        .op(Opcode::ldc_i4, version.Data2)
        .op(Opcode::ldc_i4, version.Data3);
    for (UCHAR byte : version.Data4) il.op(Opcode::ldc_i4, byte);
    il.op(Opcode::newobj, guidCtorMethod)
        .op(Opcode::call, guidEqualsMethod)
        .jump(Opcode::brtrue, kSameAgent)
        .op(Opcode::ldstr, changed)
        .op(Opcode::newobj, exceptionCtorMethod)
        .op(Opcode::throw_)
        .label(kSameAgent);
}

void SyntheticAgentShim::GenerateAssignDelegateByToken(ILEmitter& il, mdFieldDef field, mdTypeDef delegateType,
                                                       mdMethodDef method) {
    // field = (DelegateType) Delegate.CreateDelegate(typeof(DelegateType),
    //     (MethodInfo) agentModule.ResolveMethod(method))
    il.op(Opcode::ldtoken, delegateType)
        .op(Opcode::call, getTypeFromHandleMethod)
        .op(Opcode::ldloc_0)
        .op(Opcode::ldc_i4, method)
        .op(Opcode::callvirt, resolveMethodMethod)
        .op(Opcode::castclass, local(corlibTypes[MethodInfo]))
        .op(Opcode::call, createDelegateMethod)
        .op(Opcode::castclass, delegateType)
        .op(Opcode::stsfld, field);
}

void SyntheticAgentShim::GenerateLoaderFieldsToStubs(ILEmitter& il) {
    for (unsigned int i = 0; i < kFieldCount; ++i) {
        if (fields[i].startsAtLoader(attached)) {
            const DelegateRecord& record = delegateRecords[fields[i].kind()];
            GenerateAssignEmptyDelegate(il, delegateFields[i], record.ctor, record.emptyMethod);
        }
    }
}

// Whatever loading the agent throws (no file, no access, no assembly, no
// class, no method) ends here: the fields that led to the loader keep the
// stubs it gave them, so that nothing calls the loader again; one line goes
// to the native log, and the call answers 0. The program runs on untraced.
void SyntheticAgentShim::GenerateLoadFailureHandler(ILEmitter& il) {
    il.label(kLoadHandler).op(Opcode::stloc_1);
    // A log that cannot be written to is no reason to fail the program.
    if (appendAllTextMethod != 0 && !logPath.empty()) {
        mdString pathString = 0;
        mdString prefixString = 0;
        mdString endString = 0;
        il.then([&] { return DefineUserString(logPath.c_str(), &pathString); })
            .then([&] { return DefineUserString(u"Failed to load the agent: ", &prefixString); })
            .then([&] { return DefineUserString(u"\n", &endString); });
        il.label(kLogTry)
            .op(Opcode::ldstr, pathString)
            .op(Opcode::ldstr, prefixString)
            .op(Opcode::ldloc_1)
            .op(Opcode::callvirt, getMessageMethod)
            .op(Opcode::ldstr, endString)
            .op(Opcode::call, concatMethod)
            .op(Opcode::call, appendAllTextMethod)
            .jump(Opcode::leave, kLogged)
            .label(kLogHandler)
            .op(Opcode::pop)
            .jump(Opcode::leave, kLogged)
            .label(kLogged);
    }
    il.jump(Opcode::leave, kFailed).label(kHandlerEnd);
}

// The clause of the log line inside the clause of the loading, in that order.
HRESULT SyntheticAgentShim::AddLoaderClauses(IMethodBuilder* builder) {
    auto at = [&](unsigned int label) {
        int found = builder->findLabel(label);
        return found < 0 ? 0u : builder->getILByteIndex(static_cast<unsigned int>(found));
    };
    HRESULT hr = S_OK;
    if (builder->findLabel(kLogTry) >= 0) {
        hr = builder->insertEHClause(local(corlibTypes[Exception]), COR_ILEXCEPTION_CLAUSE_NONE, at(kLogTry),
                                     at(kLogHandler) - at(kLogTry), at(kLogHandler), at(kLogged) - at(kLogHandler), 0);
    }
    if (SUCCEEDED(hr)) {
        hr = builder->insertEHClause(local(corlibTypes[Exception]), COR_ILEXCEPTION_CLAUSE_NONE, at(kLoadTry),
                                     at(kLoadHandler) - at(kLoadTry), at(kLoadHandler),
                                     at(kHandlerEnd) - at(kLoadHandler), 0);
    }
    if (SUCCEEDED(hr)) {
        builder->getFatHeader()->Flags |= CorILMethod_MoreSects;
    }
    return hr;
}

void SyntheticAgentShim::FindFailureLogMethods() {
    logPath = Utf16FromUtf8(SystemUtils::PathOfStream(log));
    mdTypeDef stringType = 0;
    mdTypeDef fileType = 0;
    ShimSignature concat;
    concat.add(IMAGE_CEE_CS_CALLCONV_DEFAULT)
        .add(3)
        .add(ELEMENT_TYPE_STRING)
        .add(ELEMENT_TYPE_STRING)
        .add(ELEMENT_TYPE_STRING)
        .add(ELEMENT_TYPE_STRING);
    ShimSignature getMessage;
    getMessage.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(0).add(ELEMENT_TYPE_STRING);
    ShimSignature appendAllText;
    appendAllText.add(IMAGE_CEE_CS_CALLCONV_DEFAULT)
        .add(2)
        .add(ELEMENT_TYPE_VOID)
        .add(ELEMENT_TYPE_STRING)
        .add(ELEMENT_TYPE_STRING);
    if (FAILED(lookups.findType(import, u"System.String", &stringType)) ||
        FAILED(lookups.findType(import, u"System.IO.File", &fileType)) ||
        FAILED(findMethod(stringType, u"Concat", concat, &concatMethod)) ||
        FAILED(findMethod(corlibTypes[Exception], u"get_Message", getMessage, &getMessageMethod)) ||
        FAILED(findMethod(fileType, u"AppendAllText", appendAllText, &appendAllTextMethod))) {
        appendAllTextMethod = 0;
        fprintf_8(log, "Failed to locate the members of the loader's failure line\n");
    }
}
