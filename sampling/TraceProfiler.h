// The stack-sampling profiler that lives beside the instrumentation. The managed
// agent opens a session on a method or a thread through the Native_ exports; a
// background thread stops the runtime at the sampling interval, takes a stack
// snapshot for every session that is sampling, merges identical frames into
// counted samples, and lets the runtime go. Once a session has stopped, the
// agent reads its samples back and closes it.
//
// Contract: a member of ProfilerCallback, built with a pointer to its owner,
// through which it reaches the runtime and the native log. The session lock
// guards the table, the unsafe flag and the unresolved threads; the cache lock
// the three name caches, and no one takes the session lock while holding it.
// Neither lock is held while the runtime is asked to stop. Enabled and
// shutting down are plain fields. The ask lock guards the released functions
// and is held over the runtime's answers about them; the sampled lock guards
// the sampled functions and the stale names, is taken last and is never held
// over a call into the runtime.
// Results are small negative numbers: -1 no such session or table full, -2 the
// runtime could not say which thread calls, -42 a thread number known to have
// no managed thread, -404 sampling is disabled.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/AutoPointer.h"
#include "platform/CoreCLRPAL.h"
#include "platform/HeldLock.h"
#include "runtime/CorErrors.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/ProfilerStructs.h"
#include "policy/IProperties.h"
#include "sampling/ISamplingOwner.h"
#include "sampling/PauseStatistics.h"
#include "sampling/TraceProfilerSession.h"

class IProperties;
struct ICorProfilerInfo;
struct IMetaDataImport;

class TraceProfiler {
public:
    static constexpr int kMaxSessions = 64;
    // Log levels of the sampling lines.
    enum Level { kError = 1, kWarn, kInfo, kDebug, kTrace };

    explicit TraceProfiler(ISamplingOwner* callback);
    ~TraceProfiler();
    TraceProfiler(const TraceProfiler&) = delete;
    TraceProfiler& operator=(const TraceProfiler&) = delete;

    // Once, from the owner's initialisation, with the process's properties.
    void Init(IProperties* properties);
    // The configuration from these properties (null: all defaults).
    void configure(IProperties* properties);
    // Stops all sampling for good: closes every session and ends the sampling thread.
    void Shutdown();

    int StartProfilingForMethod(ModuleID module, unsigned int methodToken, int sampleLimit);
    int StartProfilingForThread(int nativeThread, int sampleLimit);
    int StartProfilingWithSession(trace_profiler_session& session);
    int StopProfiling(int index);
    int CloseProfilingSession(int index);
    bool isSessionOpen(int index);
    int openSessionCount();
    int activeSessionCount();

    // Each -1 while the session is closed or still sampling.
    int ReadStackSampleCount(int index);
    int ReadFailedStackSampleCount(int index);
    int ReadStackSnapshotEntryCount(int index);
    // Copies the merged samples, in order of first appearance, into arrays that
    // the caller sized by ReadStackSnapshotEntryCount; their number.
    int ReadStackSnapshots(int index, unsigned long* functions, unsigned long* parents, int* depths, int* counts);

    void PushSamplingInterval(unsigned int milliseconds);
    void PopSamplingInterval();

    // Stops the sessions that sample this thread; they stay readable.
    void ThreadDestroyed(ThreadID threadId);
    // True while the runtime loads or unloads an assembly: no snapshot then.
    void SetUnsafe(bool value);
    bool isUnsafe();

    // Appends "Class, Assembly" for the function from the class cache, within
    // size units with the terminator; out is left as it was if either is unknown.
    int GetClassForFunctionId(FunctionID function, char16_t* out, int size);

    // Asks the runtime about a function id that the agent hands back: ask(info)
    // answers, under the lock that an unload takes to release ids. A released
    // id is refused with E_INVALIDARG and no call, as the runtime has freed
    // what it points at; -1 once the runtime is gone.
    template <typename Ask>
    HRESULT askAboutFunction(FunctionID function, Ask ask);
    // From a module's unload, while its ids are still valid: a session on a
    // method of the module that has not found its frame yet stops, and the
    // sampled functions that functionOfModule claims are released. Their
    // classes that classOfModule claims lose their cached names.
    void ModuleUnloading(ModuleID module, const std::function<bool(FunctionID)>& functionOfModule,
                         const std::function<bool(ClassID)>& classOfModule);

    bool isEnabled() const { return enabled; }
    bool isShuttingDown() const { return shuttingDown; }
    int getLogLevel() const { return logLevel; }
    int getMaxStacks() const { return maxStacks; }
    unsigned int getSamplingInterval() const { return samplingInterval; }
    bool usesClassCache() const { return useClassCache; }

    // The sampling thread's loop, until shutdown.
    void SampleTraces();

private:
    bool logs(int level) const { return !shuttingDown && logLevel >= level; }
    void log(const char* format, ...);
    int getIntProperty(IProperties* properties, const char16_t* name, int defaultValue, int minimum, int maximum);
    // The runtime's interface with a reference of its own; null after shutdown.
    ICorProfilerInfo* profilerInfo();
    // One pass: the runtime stopped, a snapshot of each session due, resumed.
    void samplePass(bool wokeEarly);
    struct PassCounts {
        int frames = 0;
        int sampled = 0;
        int open = 0;
        int active = 0;
    };
    void sampleDueSessions(bool wokeEarly, bool suspended, PassCounts& counts);
    static bool isDue(const trace_profiler_session& session, bool wokeEarly);
    bool anySessionDue(bool wokeEarly);
    int sampleForSession(trace_profiler_session& session);
    void recordFrames(trace_profiler_session& session, const FunctionID* functions, int count, bool complete);
    bool resolveThread(trace_profiler_session& session, ICorProfilerInfo* info);
    void logFailedSnapshot(int index, HRESULT hr);
    // The function's class, module and token, and its module's assembly.
    [[nodiscard]] HRESULT askFunctionAndAssembly(FunctionID function, ClassID& classId, ModuleID& moduleId,
                                                 mdToken* token, AssemblyID& assemblyId);
    void cacheClassInfo(FunctionID function);
    // Notes, while the ids are still valid, the names cached for the module's
    // assembly, the released functions and those of their classes that go with
    // the module: the runtime gives freed ids to later assemblies, classes and
    // functions. The sampled functions lose the released ones.
    void forgetLater(ModuleID module, const std::vector<FunctionID>& released,
                     const std::function<bool(ClassID)>& classOfModule);
    // Under the cache lock, before the cache is read or written: takes out
    // the names noted so.
    void forgetStaleNames();
    [[nodiscard]] HRESULT cacheAssemblyName(ICorProfilerInfo* info, AssemblyID assemblyId, FunctionID function);
    void concatEnclosingClass(mdTypeDef typeDef, IMetaDataImport* import, char16_t* out);

    ISamplingOwner* callback;
    // Read by the sampling thread, written by the runtime's.
    std::atomic<bool> enabled;
    bool unsafe;
    std::atomic<bool> shuttingDown;
    bool useClassCache;
    int logLevel;
    int maxStacks;
    unsigned int samplingInterval;
    std::vector<unsigned int> intervalStack;
    std::map<unsigned long, std::u16string> assemblyNames;
    std::map<unsigned long, std::u16string> classNames;
    std::map<unsigned long, std::u16string> functionNames;
    std::map<int, int> unresolvedThreads;
    // Functions of the samples that the last pass added.
    std::vector<FunctionID> newFunctions;
    // Every function that a sample has named, until its module unloads.
    std::unordered_set<FunctionID> sampledFunctions;
    // Functions of unloaded modules, until a sample names the same id again.
    std::unordered_set<FunctionID> releasedFunctions;
    // Ids whose cached names an unload made stale, under the sampled lock.
    struct StaleNames {
        std::vector<AssemblyID> assemblies;
        std::vector<ClassID> classes;
        std::vector<FunctionID> functions;
    };
    StaleNames staleNames;
    // Under the session lock; written to the log at shutdown.
    PauseStatistics pauses;
    // Its storage is reserved for all 64 entries at once: the sampling thread
    // holds a reference into it while a start may append.
    std::vector<trace_profiler_session> sessions;
    HANDLE samplingThread;
    CRITICAL_SECTION cacheLock;
    CRITICAL_SECTION sessionLock;
    CRITICAL_SECTION askLock;
    CRITICAL_SECTION sampledLock;
    CONDITION_VARIABLE wakeUp;
};

// The walk's callback, of the runtime's StackSnapshotCallback form: S_OK goes
// on, S_FALSE ends the walk.
[[nodiscard]] HRESULT TraceProfilerStackSnapshotCallback(FunctionID function, UINT_PTR ip, COR_PRF_FRAME_INFO frameInfo,
                                           ULONG32 contextSize, BYTE context[], void* clientData);

template <typename Ask>
HRESULT TraceProfiler::askAboutFunction(FunctionID function, Ask ask) {
    AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
    if (info == nullptr) {
        return -1;
    }
    HeldLock held(&askLock);
    return releasedFunctions.count(function) != 0 ? E_INVALIDARG : ask(info.get());
}
