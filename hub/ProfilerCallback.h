// The runtime's callback object and the hub of the profiler: it owns the runtime's
// info interface, the policy, the instrumentation engine, the shared metadata
// context and the sampling profiler, and everything else is reached from it.
//
// Threads: the runtime calls the slots on its own threads, several at once.
// profilerLock (recursive) guards metaDataContext and serialises compile events;
// moduleLock guards the module map alone. Nothing thrown may leave a slot.
#pragma once

#include <atomic>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "hub/MethodTraceRecords.h"
#include "hub/MethodsByModule.h"
#include "hub/ProfilerAccount.h"
#include "metadata/IMetaDataContext.h"
#include "platform/AutoPointer.h"
#include "platform/CoreCLRPAL.h"
#include "platform/MultipleReaderSingleWriter.h"
#include "policy/IProfilerController.h"
#include "rewrite/IProfiler.h"
#include "runtime/CorProfilerCallback.h"
#include "runtime/ProfilerCallbackDefaults.h"
#include "runtime/CorProfilerInfo.h"
#include "sampling/TraceProfiler.h"
#include "shim/CoreLibraryLookups.h"

// One batch of methods for the runtime to compile again (or to revert).
struct rejit_requests {
    int identifier;
    ModuleID modules[128];
    mdMethodDef methods[128];
    unsigned int count;
};

class ProfilerCallback final : public ProfilerCallbackDefaults, public ISamplingOwner {
public:
    // The creation function of g_CoClasses. Clears *ppv; accepts IUnknown and
    // ICorProfilerCallback to ICorProfilerCallback4, else E_INVALIDARG. The new
    // object carries one reference, the caller's.
    [[nodiscard]] static HRESULT CreateObject(REFIID riid, void** ppv);

    ProfilerCallback();
    ~ProfilerCallback();
    ProfilerCallback(const ProfilerCallback&) = delete;
    ProfilerCallback& operator=(const ProfilerCallback&) = delete;

    // IUnknown. QueryInterface stops at ICorProfilerCallback4: the runtime asks
    // for the newest version first and must see this object as a Callback4.
    HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG AddRef() override;
    ULONG Release() override;

    // ICorProfilerCallback
    HRESULT Initialize(IUnknown* pICorProfilerInfoUnk) override;
    HRESULT Shutdown() override;
    HRESULT AssemblyLoadStarted(AssemblyID assemblyId) override;
    HRESULT AssemblyLoadFinished(AssemblyID assemblyId, HRESULT hrStatus) override;
    HRESULT AssemblyUnloadStarted(AssemblyID assemblyId) override;
    HRESULT AssemblyUnloadFinished(AssemblyID assemblyId, HRESULT hrStatus) override;
    HRESULT ModuleLoadFinished(ModuleID moduleId, HRESULT hrStatus) override;
    HRESULT ModuleUnloadStarted(ModuleID moduleId) override;
    HRESULT ModuleUnloadFinished(ModuleID moduleId, HRESULT hrStatus) override;
    HRESULT JITCompilationStarted(FunctionID functionId, BOOL fIsSafeToBlock) override;
    HRESULT JITCompilationFinished(FunctionID functionId, HRESULT hrStatus, BOOL fIsSafeToBlock) override;
    HRESULT JITCachedFunctionSearchStarted(FunctionID functionId, BOOL* pbUseCachedFunction) override;
    HRESULT JITInlining(FunctionID callerId, FunctionID calleeId, BOOL* pfShouldInline) override;
    HRESULT ThreadDestroyed(ThreadID threadId) override;

    // ICorProfilerCallback2

    // ICorProfilerCallback3
    HRESULT InitializeForAttach(IUnknown* pCorProfilerInfoUnk, void* pvClientData, UINT cbClientData) override;
    HRESULT ProfilerAttachComplete() override;
    HRESULT ProfilerDetachSucceeded() override;

    // ICorProfilerCallback4
    HRESULT ReJITCompilationStarted(FunctionID functionId, ReJITID rejitId, BOOL fIsSafeToBlock) override;
    HRESULT GetReJITParameters(ModuleID moduleId, mdMethodDef methodId, ICorProfilerFunctionControl* version) override;
    HRESULT ReJITCompilationFinished(FunctionID functionId, ReJITID rejitId, HRESULT hrStatus,
                                     BOOL fIsSafeToBlock) override;

    // The controller's native log once Initialize has succeeded; not owned.
    FILE* getNativeLog() const override { return nativeLog; }
    bool IsProfilerAttached() const { return attached; }
    // Set by Shutdown, or when the agent turns itself off: no further method is
    // looked at.
    bool isDisabled() const { return disabled; }
    DWORD getEventMask() const { return eventMask; }
    bool getSupportsReJIT() const { return supportsReJIT; }
    // Not owned; null after Shutdown.
    ICorProfilerInfo* getProfilerInfo() const override { return profilerInfo.get(); }
    TraceProfiler& getTraceProfiler() { return traceProfiler; }

    // Queues one method for the service thread; a revert brings back its own
    // body. The identifier of the batch it went into. Takes profilerLock.
    int RequestReJIT(ModuleID module, mdMethodDef method, bool revert);
    // The same for a module known by path or assembly name; -1, and a log
    // line, for a module that is not loaded.
    int RequestReJIT(const char16_t* moduleName, const char16_t* assemblyName, int method);
    // The loaded module with this path or assembly name, or 0.
    ModuleID GetModuleID(const char16_t* name);
    // The runtime's answer for a batch passed to it, or -1.
    int GetReJITStatus(int identifier);
    // Asks the service thread for a hot reload; with wait, returns once done.
    void ReloadDirectives(bool wait);
    // One directive line added to the running directives, under profilerLock.
    void AddDynamicDirective(const char16_t* directive);
    // One round of the service thread.
    void ServiceReJITRequests();

    // The method trace registry. The agent names classes, marks on each
    // thread when an enclosing method is entered and left, and registers the
    // methods traced inside it; the enter and leave hooks, which nothing
    // installs on this platform, would record their timings. Results are 0.
    int RegisterClassIdentifier(char16_t* name, unsigned long classId);
    unsigned long GetClassIdFromClassName(char16_t* name);
    char16_t* getRegisteredClassName(unsigned long classId);
    FunctionData* getFunctionData(const char16_t* className, unsigned int token);
    int RegisterMethodTrace(unsigned long classId, unsigned int token, unsigned long enclosingClassId,
                            unsigned int enclosingToken);
    int UnregsiterMethodTrace(unsigned long classId, unsigned int token);
    int ToggleEnterLeaveFunctionHooks(bool enable);
    void MarkEnteredEnclosingMethod(unsigned long classId, unsigned int token, long startTime);
    void MarkExitEnclosingMethod(unsigned long classId, unsigned int token);
    // Copies the records of the calling thread's run of the enclosing method
    // to out[index] for each index below maximum; their number.
    int GetTraceData(unsigned long classId, unsigned int token, MethodData* out, int maximum);
    PerThreadEnclosingData* GetMethodDataSlot(unsigned long classId, unsigned int token);
    PerThreadEnclosingData* GetExecutingEnclosingMethodDataSlot(unsigned long uniqueId);
    // The mapper's decision for one function: its record, or null (and
    // *hookFunction false) for a method that is not hooked.
    FunctionData* MapFunction(FunctionID functionId, BOOL* hookFunction);
    void FunctionEntered(FunctionData* function);
    void FunctionLeft(FunctionData* function);
    IProfilerController* getController() const { return controller; }
    // KEY=VALUE lines for the managed agent: an attach's client data, then the
    // profile and agent name of the start-up.
    const std::string& getAttachEnvironment() const { return attachEnvironment; }

    // False without ICorProfilerInfo4, else "harrowlite.agent.rejit.enabled"
    // (default true); the properties are read anew at each call.
    bool IsReJITEnabled();
    // "harrowlite.agent.deep.instrumentation.enabled" (default true), read anew.
    bool IsTraceProfilerEnabled();
    // Body of the ReJIT service thread; the argument is the callback object.
    static DWORD ServiceReJITThreadFunction(LPVOID callback);

private:
    // What a module load learns of the module's names.
    struct ModuleNames {
        std::u16string path;
        std::u16string assembly;
        std::u16string domain;
        AppDomainID domainId = 0;
        // COR_PRF_MODULE_FLAGS; none where the runtime cannot say.
        DWORD flags = 0;
        bool flagsKnown = false;
    };
    [[nodiscard]] HRESULT recordModuleNames(ModuleID moduleId, ModuleNames& names);
    void logModuleAndPatchAgent(ModuleID moduleId, const ModuleNames& names);
    [[nodiscard]] HRESULT prepareFirstModule(ModuleID moduleId, HRESULT result, bool onModuleLoad,
                                             bool coreLibrarySelected);

    // The phases of Initialize, in their order.
    [[nodiscard]] HRESULT queryInfoInterfaces(IUnknown* unknown);
    [[nodiscard]] HRESULT decideActivation(HRESULT hr, bool& stop);
    [[nodiscard]] HRESULT setEventMask(FILE* log, HRESULT hr, bool& stop);
    [[nodiscard]] HRESULT checkRuntimeInformation(FILE* log, int coreMajor, int coreMinor, int corePatch, bool& stop);
    void settleLogging(FILE* log, HRESULT hr);
    [[nodiscard]] HRESULT createEngineAndContext(HRESULT hr);

    // Unit tests put a recording engine in place and read the queues.
    friend class ProfilerCallbackTestAccess;

    PerThreadEnclosingData* hookSlot(FunctionData* function);
    // Writes to the controller's log, if there is a controller.
    void logToController(const char* line);
    // What a compile asks of the compile path: the method's own body, decided
    // and rewritten; only its offset map, rewritten when its module loaded; or
    // the body of a ReJIT version, given in GetReJITParameters.
    enum class CompileKind { kOwnBody, kOffsetMapOnly, kReJIT };
    // Set while the compile path runs: a compile that our own work sets off
    // on the same thread passes untouched.
    struct ReentranceMark {
        bool& mark;
        explicit ReentranceMark(bool& flag) : mark(flag) { mark = true; }
        ~ReentranceMark() { mark = false; }
    };
    // A compile under profilerLock, passed over when our own work set it off.
    HRESULT startCompile(FunctionID functionId, BOOL fIsSafeToBlock, CompileKind kind);
    // The runtime's own compile of the method runs from here to its finish
    // event: the account's yardstick.
    void timeRuntimeCompile(FunctionID functionId);
    // The compile path of one method, under profilerLock and the re-entrance
    // flag; for a ReJIT version the context stands on the method already.
    void compileMethod(FunctionID functionId, CompileKind kind);
    // Whether the runtime already has code of the method's own body: compiled
    // again, the method still runs that code.
    bool runsOwnBody(FunctionID functionId);
    // The controller's decision on the function in hand; one that it newly
    // remembers is noted if an unload may take it. Under profilerLock.
    int decide(IMetaDataContext* context);
    void noteDecided(FunctionID functionId);
    void noteModuleKind(ModuleID moduleId, bool flagsKnown, DWORD flags);
    // Assembly, class and method of the method in hand; false if one cannot be read.
    bool methodNames(char16_t** assembly, char16_t** className, char16_t** method);
    // Steps of ModuleLoadFinished: the generic agent trigger, the hijack of
    // AppDomain.SetupDomain (desktop runtime), the rewriting on module load.
    void findGenericTrigger(ModuleID moduleId, AppDomainID domainId, const char16_t* domainName, HRESULT result);
    void hijackSetupDomain(ModuleID moduleId);
    void instrumentModule(ModuleID moduleId, const char16_t* assemblyName, HRESULT result);
    // The precompiled methods of a module that inlined its selected methods
    // when compiled ahead of time: their precompiled code is refused too, or
    // the selected method would run untraced inside them.
    void refusePrecompiledInliners(ModuleID moduleId, const char16_t* assemblyName,
                                   const std::set<mdMethodDef>& selected);
    // The module's methods that the directives select, the directives read
    // first if they were not yet.
    std::set<mdMethodDef> selectedMethods(ModuleID moduleId);
    // The shim that a module's code calls when the core library's does not
    // serve every module: made before the module's first rewrite, once. S_OK
    // for the module's own, S_FALSE for the core library's. Under profilerLock.
    HRESULT moduleShim(ModuleID moduleId);
    // Defines a shim in the module; with loaderFirst its corInitTrace starts
    // at the loader.
    HRESULT defineShim(ModuleID moduleId, bool loaderFirst);
    // Whether the runtime may run precompiled code and asks before it does.
    bool keepsPrecompiledCode() const;
    // After a reload: the precompiled methods of the loaded modules that
    // inlined a newly selected method are compiled again, which no longer
    // inlines it. Returns how many. Under profilerLock.
    int recompilePrecompiledInliners();
    // Signals the service thread until it has left; then its handle is closed.
    void stopServiceThread();
    // No service thread could be had: queued re-instrumentation waits.
    void logNoServiceThread();
    // The catch-up of an attach.
    [[nodiscard]] HRESULT catchUp();
    [[nodiscard]] HRESULT listModules(ICorProfilerInfo3* info3, std::vector<ModuleID>& modules);
    bool isCoreLibraryModule(ModuleID module);
    void catchUpModule(ICorProfilerInfo3* info3, ModuleID module, bool coreLibrary);
    void forceOverloads(ModuleID module, const char16_t* className, const char16_t* methodName, const char* printed);
    [[nodiscard]] HRESULT requestCompiledFunctions(ICorProfilerInfo3* info3);
    void putReJITStatus(int identifier, HRESULT result);
    void hotReload();
    // "Request ReJIT to <verb> [A]C::M" for the method in hand, if its names can be read.
    void logReJITRequest(const char16_t* verb);

    AutoCOMPointer<ICorProfilerInfo> profilerInfo;
    // Owned by the process gate, which lives as long as the process: a second
    // runtime's callback, and the exports after ours is gone, may still reach it.
    IProfilerController* controller = nullptr;
    TraceProfiler traceProfiler;
    // KEY=VALUE lines handed to the managed agent.
    std::string attachEnvironment;
    // Wakes the service thread: for a reload, or to make it stop.
    HANDLE serviceWakeEvent;
    bool attached;
    bool firstAttachMethodSeen;
    bool jitEnabled;
    // Methods are rewritten when their module loads; a compile only brings
    // the rewritten body's offset map.
    bool rewritesOnLoad = false;
    std::atomic<ULONG> referenceCount;
    // 1, 2 or 4 by the highest info interface obtained.
    long clrVersion;
    bool supportsReJIT;
    DWORD eventMask;
    AutoPointer<IProfiler> profiler;
    AutoPointer<IMetaDataContext> metaDataContext;
    HANDLE serviceThread;
    // Set by the service thread as it leaves.
    std::atomic<bool> serviceThreadDone{false};
    std::atomic<bool> serviceStopping{false};
    CRITICAL_SECTION profilerLock;
    CRITICAL_SECTION moduleLock;
    bool inJITCallback;
    bool agentHijacked;
    bool logEnabled;
    bool logMethodBytes;
    bool logUninstrumented;
    bool disabled;
    FILE* nativeLog;
    MultipleReaderSingleWriter classLock;
    MultipleReaderSingleWriter threadLock;
    bool hooksEnabled;
    bool isCoreCLR;
    int lastReJITRequestId;
    // The core library's module, and whether the agent's assembly has loaded.
    ModuleID coreLibraryModule = 0;
    std::atomic<bool> agentLoaded{false};
    // What defining each module's own shim gave, and its class; under profilerLock.
    struct ModuleShim {
        HRESULT result;
        mdTypeDef shimClass;
    };
    std::map<ModuleID, ModuleShim> moduleShims;
    // What every shim looks up in the core library.
    CoreLibraryLookups coreLibraryLookups;
    // Methods refused their precompiled code for inlining selected ones;
    // under profilerLock. Every search for precompiled code looks here, and a
    // selection that reaches the core library refuses some fifteen thousand.
    MethodsByModule precompiledInliners;
    // Whether each loaded module can unload (collectible, or of a kind the
    // runtime would not say), noted before any of its functions is decided,
    // and how many can. Under profilerLock.
    std::unordered_map<ModuleID, bool> moduleCanUnload;
    size_t modulesThatCanUnload = 0;
    // The decided functions that an unload may take: an unload walks only
    // these, not every decided function. Under profilerLock.
    std::unordered_set<FunctionID> unloadableFunctions;
    // Batches waiting for the service thread, under profilerLock.
    std::vector<rejit_requests> rejitRequests;
    std::vector<rejit_requests> revertRequests;
    // Ring of 64 pairs: request identifier, then result.
    int rejitStatus[128];
    // Index of the newest pair; -2 while the ring is empty.
    int rejitStatusIndex;
    bool reloadPending;
    // Module paths and assembly names of every loaded module, under moduleLock.
    std::map<std::u16string, ModuleID> moduleIds;
    MultipleReaderSingleWriter functionLock;
    // The method trace registry. Keys of classIdentifiers compare as
    // pointers: each registration adds an entry.
    struct ByAddress {
        using is_transparent = void;
        static const char16_t* address(const char16_t* name) { return name; }
        static const char16_t* address(const std::unique_ptr<char16_t[]>& name) { return name.get(); }
        template <typename A, typename B>
        bool operator()(const A& a, const B& b) const {
            return std::less<const char16_t*>()(address(a), address(b));
        }
    };
    std::map<ThreadID, std::unique_ptr<ThreadData>> threadData;
    std::map<std::unique_ptr<char16_t[]>, unsigned long, ByAddress> classIdentifiers;
    std::map<FunctionID, std::unique_ptr<FunctionData>> functionData;
    std::map<mdTypeDef, std::u16string> classNames;
    // What the profiler did and what it cost, written at shutdown.
    ProfilerAccount account;
};

// The registry's mapper and hooks in the runtime's forms, for whoever installs
// them; each goes through fpc.
UINT_PTR TarnFunctionIDMapper(FunctionID functionId, BOOL* hookFunction);
void TarnFunctionEnter2(FunctionData* function);
void TarnFunctionLeave2(FunctionData* function);
void TarnFunctionTailcall2(FunctionData* function);

// The live callback object: null until Initialize has succeeded and after the
// object is destroyed.
extern ProfilerCallback* fpc;
