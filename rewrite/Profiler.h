// The instrumentation engine. One object per process, owned by the callback
// hub; no lock of its own: the hub calls it under profilerLock, or on the
// module-load path one scan at a time. What belongs to the method in hand is
// one value (MethodRewrite), made anew for each method; one method is
// rewritten at a time.
#pragma once

#include <cstdio>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "metadata/IMetaDataContext.h"
#include "platform/AutoPointer.h"
#include "policy/IProfilerController.h"
#include "rewrite/BodyVerifier.h"
#include "rewrite/IBlobOutputStream.h"
#include "rewrite/IMemberTokenGetter.h"
#include "rewrite/IMethodBlobInputStream.h"
#include "rewrite/IMethodBuffer.h"
#include "rewrite/IMethodBuilder.h"
#include "rewrite/ILEmitter.h"
#include "rewrite/IProfiler.h"
#include "rewrite/ITypeTokenGetter.h"
#include "rewrite/IValueTypeSpecTokenGetter.h"
#include "rewrite/IVarTypeSpecTokenGetter.h"
#include "rewrite/TraceMembers.h"

class Profiler : public IProfiler {
public:
    // The trace functions, in the order of the member getters.
    using TraceMember = TraceMembers::Index;
    using enum TraceMembers::Index;
    // The types that the injected code names, in the order of the type getters.
    enum TraceType : unsigned int {
        kException,
        kValueType,
        kRuntimeValueType,
        kEnum,
        kBoolean,
        kChar,
        kSByte,
        kInt16,
        kInt32,
        kInt64,
        kByte,
        kUInt16,
        kUInt32,
        kUInt64,
        kSingle,
        kDouble,
        kTraceTypeCount,
    };
    // The places of traceTokens.
    enum TraceToken : unsigned int {
        kInitToken,
        kLoadToken,
        kPushToken,
        kStartToken,
        kFinishValueTypeToken,
        kFinishToken,
        kCatchToken,
        kExceptionToken,
        kTraceTokenCount,
    };
    // The desktop hijack's switch field, then the forwarder of each trace
    // function at its place (the place of corInitTrace is the field's).
    static constexpr unsigned int kHijackTokenCount = TraceMembers::kCount;

    // IProfiler::newInstance with the concrete type; a null controller counts
    // as no setting and no log.
    static Profiler* newInstance(ICorProfilerInfo* info, unsigned int clrVersion, bool isCoreCLR,
                                 IProfilerController* controller);

    Profiler(ICorProfilerInfo* info, unsigned int clrVersion);

    IMethodBuilder* getBuilder() override { return current.builder.get(); }
    HRESULT hijackMethod(IMetaDataContext* context) override;
    HRESULT instrumentMethod(IMetaDataContext* context, unsigned int* step) override;
    bool hasOutcome(IMetaDataContext* context) override;
    void installInto(ICorProfilerFunctionControl* target) override { version = target; }
    void clearHistoryForFunction(IMetaDataContext* context) override;
    bool usingSyntheticShim() override { return useSyntheticShim; }
    void placeShimInModules(std::function<HRESULT(ModuleID)> define) override { defineModuleShim = std::move(define); }
    const char16_t* getLastError() override { return lastError; }
    bool mapRewrittenOnLoad(FunctionID function) override;
    void forgetModule(ModuleID module) override;
    void keepOriginalBodies() override { keepingOriginals = true; }
    HRESULT restoreOriginalBody(IMetaDataContext* context) override;

    // The stages, in pipeline order; each returns an HRESULT and reads what
    // the earlier ones stored.
    [[nodiscard]] HRESULT updateContext(IMetaDataContext* context);
    [[nodiscard]] HRESULT updateSignatures();
    [[nodiscard]] HRESULT updateOriginalCode();
    [[nodiscard]] HRESULT updateTokens();
    [[nodiscard]] HRESULT updateInitTrace();
    [[nodiscard]] HRESULT updateCorTrace();
    [[nodiscard]] HRESULT updateStartTrace();
    [[nodiscard]] HRESULT updateFinishTrace();
    [[nodiscard]] HRESULT updateCatchTrace();

    // What the set-up decided and resolved, for the tests and the log.
    bool isCoreLibraryMethod() const { return current.isCoreLibrary; }
    bool isValueTypeMethod() const { return current.isValueType; }
    unsigned int getLocalCount() const { return current.localCount; }
    unsigned int getTraceToken(TraceToken which) const { return current.traceTokens[which]; }

private:
    // How each method's first rewrite ended, and why it failed: later
    // instantiations of the method get the same answer and the same reason.
    struct Outcome {
        HRESULT result;
        std::u16string reason;
    };
    // Whether a value type lives only on the stack, and whether it is read-only.
    struct TypeTraits {
        bool byRefLike = false;
        bool readOnly = false;
    };
    // What the rewrite keeps of a module until it unloads: one lookup a method
    // reaches it all, and what the runtime was asked once is not asked again.
    struct ModuleFacts {
        // The runtime's own view of the module's metadata, which sees what the
        // rewrite defines; the context may read from the module's image.
        AutoCOMPointer<IMetaDataImport> import;
        std::unordered_map<mdMethodDef, Outcome> outcomes;
        // The bodies as the runtime first handed them, when asked to keep them:
        // the runtime may later hand back the rewritten one.
        std::unordered_map<mdMethodDef, std::vector<unsigned char>> originalBodies;
        // The offset maps of the bodies rewritten on module load, handed to the
        // runtime when each method compiles (it has no function id before).
        std::unordered_map<mdMethodDef, std::vector<COR_IL_MAP>> loadTimeMaps;
        // Local signatures already turned into tokens, by their bytes: the
        // runtime would find the equal blob too, at a far greater cost.
        std::unordered_map<std::string, unsigned int> localSignatureTokens;
        // The same for the TypeSpecs of generic value types that are boxed.
        std::unordered_map<std::string, unsigned int> typeSpecTokens;
        // The traits of the value types met, by the module's token for them;
        // a type whose definition could not be found is asked again.
        std::unordered_map<unsigned int, TypeTraits> typeTraits;
        // What the check of rewritten bodies read of the callees' signatures:
        // the trace functions' above all, called by every rewritten method.
        VerifiedCallees callees;
        // Whether each class met lies on the trace calls' own path, and
        // whether the module is the core library's: read with a class's name.
        std::unordered_map<mdTypeDef, bool> onTracePath;
        bool coreLibrary = false;
    };
    // The token kept for a blob's bytes, else the one that ask gives, kept then.
    template <typename Ask>
    static HRESULT tokenOnce(std::unordered_map<std::string, unsigned int>& known, const unsigned char* bytes,
                             unsigned int length, unsigned int* token, Ask ask) {
        std::string key(reinterpret_cast<const char*>(bytes), length);
        if (auto found = known.find(key); found != known.end()) {
            *token = found->second;
            return S_OK;
        }
        const HRESULT hr = ask(token);
        if (SUCCEEDED(hr)) known.emplace(std::move(key), *token);
        return hr;
    }

    [[nodiscard]] HRESULT createGetters(bool isCoreCLR);
    [[nodiscard]] HRESULT readClass(IMetaDataContext* context, ModuleFacts& facts, bool* onTracePath);
    [[nodiscard]] HRESULT runStages(IMetaDataContext* context, unsigned int* counter);
    [[nodiscard]] HRESULT runStage(unsigned int stage, IMetaDataContext* context);
    [[nodiscard]] HRESULT writeBody(unsigned int* counter, HRESULT hr);
    [[nodiscard]] HRESULT verifyBody();
    [[nodiscard]] HRESULT allocateBody(ModuleID module, unsigned int size, unsigned char** body);
    // The forwarders and the switch field in the desktop core library, once.
    [[nodiscard]] HRESULT updateHijacks();
    [[nodiscard]] HRESULT defineForwardMethod(unsigned int typeDef, const char16_t* name,
                                              const unsigned char* signature, unsigned int signatureLength,
                                              const unsigned char* body, unsigned int bodyLength, unsigned int* token);
    void mapOriginalOffsets();
    [[nodiscard]] HRESULT readReturnType(IMethodBlobInputStream* stream, unsigned char* type, unsigned int* token,
                                         bool* reported);
    [[nodiscard]] HRESULT checkValueTypeOwner(unsigned char flags, bool* isValueTypeOwner);
    [[nodiscard]] HRESULT buildLocalSignature(IMethodBlobInputStream* stream, bool hasResult,
                                              AutoPointer<IBlobOutputStream>& blob, unsigned int* sigToken,
                                              unsigned int* count);
    [[nodiscard]] HRESULT getClassToken(unsigned int* token);
    [[nodiscard]] HRESULT refuseUnwrappableCode();
    [[nodiscard]] HRESULT findBaseConstructorCall(unsigned int* index);
    static unsigned int classOf(IMetaDataImport* import, unsigned int token);
    ILEmitter behindLabel(unsigned int label);
    ILEmitter atEntry();
    void boxedCopy(ILEmitter& il);
    void insertParameters(ILEmitter& il);
    [[nodiscard]] HRESULT insertParameter(ILEmitter& il, unsigned int argument, unsigned int first);
    bool findDefinition(unsigned int token, AutoCOMPointer<IMetaDataImport>& otherScope, IMetaDataImport** scope,
                        unsigned int* definition);
    TypeTraits traitsOf(unsigned int token);
    bool isByRefLikeType(unsigned int token);
    bool isStackOnlyType(unsigned int token);
    bool mayBeByRefLike(unsigned char type, IMethodBlobInputStream* stream, unsigned int index);
    void insertResultBoxing(ILEmitter& il);

    [[nodiscard]] HRESULT getPrimativeToken(unsigned char elementType, unsigned int* token);
    [[nodiscard]] HRESULT getVarTypeToken(IMethodBlobInputStream* stream, unsigned int index, unsigned int* token);
    [[nodiscard]] HRESULT getMVarTypeToken(IMethodBlobInputStream* stream, unsigned int index, unsigned int* token);
    [[nodiscard]] HRESULT getGenInstToken(IMethodBlobInputStream* stream, unsigned int index, unsigned int* token);
    [[nodiscard]] HRESULT getParameterTypeToken(IVarTypeSpecTokenGetter* getter, IMethodBlobInputStream* stream,
                                                unsigned int index, unsigned int* token);
    [[nodiscard]] static HRESULT resolveTypeSpecClassToken(IMetaDataImport* import, unsigned int typeSpec,
                                                           unsigned int* token);
    static TypeTraits readTraits(IMetaDataImport* import, unsigned int typeDef);

    ICorProfilerInfo* info;
    unsigned int clrVersion;
    std::unordered_map<ModuleID, ModuleFacts> modules;
    bool keepingOriginals = false;
    // The ReJIT version the bodies go to, if any, and the room for its copy.
    ICorProfilerFunctionControl* version = nullptr;
    std::vector<unsigned char> versionBody;
    AutoPointer<IMemberTokenGetter> memberGetters[TraceMembers::kCount];
    // The same members in the method's own module, when each module has its shim.
    AutoPointer<IMemberTokenGetter> ownMemberGetters[TraceMembers::kCount];
    std::function<HRESULT(ModuleID)> defineModuleShim;
    unsigned int hijackTokens[kHijackTokenCount] = {};
    AutoPointer<ITypeTokenGetter> typeGetters[kTraceTypeCount];
    AutoPointer<IVarTypeSpecTokenGetter> varGetter;
    AutoPointer<IVarTypeSpecTokenGetter> mvarGetter;
    AutoPointer<IValueTypeSpecTokenGetter> valueTypeGetter;
    bool useSyntheticShim = false;
    bool isDotnetCore = false;
    const char16_t* coreLibraryName = nullptr;
    const char16_t* lastError = nullptr;
    static constexpr unsigned int kVerifierReasonSize = 160;
    char16_t verifierReason[kVerifierReasonSize] = {};
    // The edges of the incoming clauses and the map of offsets handed to the
    // runtime, their room kept from one method to the next.
    std::vector<unsigned long> clausePlaces;
    std::vector<COR_IL_MAP> originMap;
    IProfilerController* controller = nullptr;
    FILE* log = nullptr;

    // What the rewrite of the method in hand finds out and builds, stage by
    // stage: made anew by the first stage of each method, read by the later
    // ones, and left as it is until the next method, for the log and the
    // tests.
    struct MethodRewrite {
        IMetaDataContext* context = nullptr;
        ModuleFacts* facts = nullptr;
        IMetaDataImport* import() const { return facts->import.get(); }
        AutoPointer<IMethodBuilder> builder;
        AutoPointer<IMethodBuffer> buffer;
        AutoPointer<IMethodBlobInputStream> signature;
        unsigned char* newBody = nullptr;
        bool isCoreLibrary = false;
        bool isValueType = false;
        bool hasThis = false;
        bool hasReturn = false;
        // Whether the result can go to the agent as an object; otherwise it
        // is reported as null.
        bool resultReported = false;
        unsigned char returnType = 0;
        unsigned int returnToken = 0;
        unsigned int paramCount = 0;
        unsigned int localSigToken = 0;
        // The local signature's bytes, as built: the check reads them.
        AutoPointer<IBlobOutputStream> localSignature;
        unsigned int localCount = 0;
        unsigned int resultLocal = 0;
        unsigned int traceLocal = 0;
        unsigned int traceTokens[kTraceTokenCount] = {};
        unsigned int minStack = 0;
        unsigned int stackGrowth = 0;
    };
    MethodRewrite current;
};
