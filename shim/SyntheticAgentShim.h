// Writes the synthetic agent shim into a module: a public class whose static
// trace methods call through static delegate fields. In the core library it
// serves every module; in another module (see ProfilerCallback::moduleShim)
// it serves that module's own code and refers to the core library's types and
// members through references, so that the core library's metadata is never
// made writable for it. The class constructor points the fields at stubs and at a
// loader, loadInitTrace, which on the first initTrace loads the managed agent
// from disk, points every field at the agent's class and passes the call on.
//
// One call on a stack object; nothing survives it but the metadata and bodies
// given to the runtime.
#pragma once

#include <cstdio>
#include <map>
#include <string>

#include "rewrite/ILEmitter.h"
#include "rewrite/IMethodBuilder.h"
#include "rewrite/ModuleMetaData.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"
#include "shim/AgentTokens.h"
#include "shim/CoreLibraryLookups.h"
#include "shim/ShimDelegateTable.h"
#include "shim/ShimSignature.h"

class SyntheticAgentShim {
public:
    // The lookups in the core library are kept in lookups, which must outlive
    // the object.
    explicit SyntheticAgentShim(CoreLibraryLookups& lookups) : lookups(lookups) {}

    // Defines the class, its fields, methods and bodies in the module, then
    // applies the new metadata. The core library's members are looked up in
    // coreLibrary, which may be the module itself. Each failed step is
    // logged; nothing emitted is undone. info is not counted and must outlive
    // the call.
    [[nodiscard]] HRESULT DefineSyntheticAgentShim(ICorProfilerInfo* info, ModuleID module, FILE* log, bool dotnetCore,
                                                   bool attached, ModuleID coreLibrary);

    // The class, once defined.
    mdTypeDef definedClass() const { return shimType; }

private:
    // The core library's types that the shim refers to, in lookup order.
    enum CorlibType : unsigned int {
        Object,
        Type,
        RuntimeTypeHandle,
        Delegate,
        Int32,
        IsVolatile,
        MulticastDelegate,
        IAsyncResult,
        AsyncCallback,
        Assembly,
        MethodInfo,
        Exception,
        CorlibTypeCount
    };

    struct DelegateRecord {
        mdTypeDef type = 0;
        mdMethodDef ctor = 0;
        mdMethodDef invoke = 0;
        mdMethodDef emptyMethod = 0;
    };

    [[nodiscard]] HRESULT FindCorlibTypes();
    [[nodiscard]] HRESULT OpenReferences();
    // The token by which the module names a type of the core library (the
    // type's own in the core library); 0 and a log line if it has none.
    mdToken local(mdTypeDef corlibType);
    // The core library's method as the module names it; the signature is in
    // the core library's tokens.
    [[nodiscard]] HRESULT findMethod(mdTypeDef corlibType, const char16_t* name, const ShimSignature& signature,
                                     mdToken* outMethod);
    [[nodiscard]] HRESULT DefineDelegateType(const char16_t* name, const COR_SIGNATURE* signature, ULONG signatureLength,
                               mdTypeDef* outType, mdMethodDef* outInvoke, mdMethodDef* outCtor);
    [[nodiscard]] HRESULT DefineDelegateField(const char16_t* name, mdTypeDef delegateType, mdFieldDef* outField);
    [[nodiscard]] HRESULT DefineShimMethod(const char16_t* name, mdFieldDef field, mdMethodDef invoke,
                             const COR_SIGNATURE* signature, ULONG signatureLength, mdMethodDef* outMethod);
    [[nodiscard]] HRESULT DefineEmptyDelegateMethod(const char16_t* name, mdMethodDef* outMethod, const COR_SIGNATURE* signature,
                                      ULONG signatureLength);
    [[nodiscard]] HRESULT DefineLoadInitMethod();
    [[nodiscard]] HRESULT DefineLoaderStrings(HRESULT hr, mdString* pathString, mdString* agentClassString);
    [[nodiscard]] HRESULT SetLoaderLocals(IMethodBuilder* builder, HRESULT hr);
    [[nodiscard]] HRESULT EmitLoaderCode(IMethodBuilder* builder, HRESULT hr, mdString pathString, mdString agentClassString);
    // Continues the running result of DefineLoadInitMethod: after a failure
    // the lookups are skipped but their failure lines are still logged.
    [[nodiscard]] HRESULT FindLoaderMethods(HRESULT hr);
    [[nodiscard]] HRESULT FindAssemblyLoadMethods(HRESULT hr);
    [[nodiscard]] HRESULT FindReflectionMethods(HRESULT hr);
    // Assembly.ManifestModule, Module.ResolveMethod and what the check of the
    // module's version takes, for binding the agent by token; without them
    // the loader binds by name.
    void FindTokenMethods();
    // The members that the loader's failure handler calls to leave its line in
    // the native log; without them it fails quietly.
    void FindFailureLogMethods();
    // The fields that start at the loader, pointed at their stubs.
    void GenerateLoaderFieldsToStubs(ILEmitter& il);
    void GenerateLoadFailureHandler(ILEmitter& il);
    [[nodiscard]] HRESULT AddLoaderClauses(IMethodBuilder* builder);
    [[nodiscard]] HRESULT DefineClassCtor();
    [[nodiscard]] HRESULT AssignMethodBody(mdMethodDef method, IMethodBuilder* builder);
    void GenerateAssignEmptyDelegate(ILEmitter& il, mdFieldDef field, mdMethodDef delegateCtor, mdMethodDef method);
    void GenerateAssignDelegate(ILEmitter& il, mdFieldDef field, mdTypeDef delegateType, const char16_t* methodName,
                                const COR_SIGNATURE* signature);
    void GenerateModuleVersionCheck(ILEmitter& il);
    void GenerateAssignDelegateByToken(ILEmitter& il, mdFieldDef field, mdTypeDef delegateType, mdMethodDef method);
    [[nodiscard]] HRESULT DefineUserString(const char16_t* text, mdString* outToken);
    HRESULT DumpMethodsWithName(mdTypeDef type, const char16_t* name);
    HRESULT DumpSignature(const COR_SIGNATURE* signature, ULONG length);

    CoreLibraryLookups& lookups;
    ICorProfilerInfo* info = nullptr;
    IMetaDataEmit* emit = nullptr;
    // The core library's metadata: where its types and members are looked up.
    IMetaDataImport* import = nullptr;
    FILE* log = nullptr;
    ModuleID module = 0;
    ModuleID coreLibrary = 0;
    // Outside the core library: the module's metadata, its reference to the
    // core library's assembly and to the core library's types, by their
    // tokens there.
    ModuleMetaData target;
    unsigned int coreAssembly = 0;
    std::map<mdTypeDef, mdToken> localTypes;
    bool referenceFailed = false;
    bool dotnetCore = false;
    bool attached = false;

    mdTypeDef corlibTypes[CorlibTypeCount] = {};
    mdMethodDef getMethodMethod = 0;
    mdMethodDef getTypeFromHandleMethod = 0;
    mdMethodDef createDelegateMethod = 0;
    mdMethodDef loadFromMethod = 0;
    mdMethodDef getTypeMethod = 0;

    // The agent's functions by token, when its file could be read ahead of
    // the runtime (Core only).
    AgentTokens agentTokens;
    mdTypeDef moduleType = 0;
    mdMethodDef getManifestModuleMethod = 0;
    mdMethodDef resolveMethodMethod = 0;
    mdMethodDef getModuleVersionMethod = 0;
    mdMethodDef guidCtorMethod = 0;
    mdMethodDef guidEqualsMethod = 0;
    mdMethodDef exceptionCtorMethod = 0;

    std::u16string logPath;
    mdMethodDef concatMethod = 0;
    mdMethodDef getMessageMethod = 0;
    mdMethodDef appendAllTextMethod = 0;

    mdTypeDef loadContextType = 0;
    mdMethodDef getDefaultMethod = 0;
    mdMethodDef loadFromAssemblyPathMethod = 0;

    mdTypeDef shimType = 0;
    mdFieldDef delegateFields[ShimDelegateTable::kFieldCount] = {};
    mdMethodDef shimInitTraceMethod = 0;
    mdMethodDef loadInitTraceMethod = 0;
    DelegateRecord delegateRecords[ShimDelegateTable::DelegateKindCount];
};
