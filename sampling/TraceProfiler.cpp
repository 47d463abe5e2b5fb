#include "sampling/TraceProfiler.h"

#include <cstdarg>
#include <utility>

#include "platform/AutoPointer.h"
#include "platform/HeldLock.h"
#include "platform/SharedNames.h"

namespace {

constexpr int kDisabled = -404;
constexpr int kNoThreadId = -2;
constexpr int kUnresolvableThread = -42;

DWORD runSamplingThread(void* parameter) {
    static_cast<TraceProfiler*>(parameter)->SampleTraces();
    return 0;
}

}  // namespace

TraceProfiler::TraceProfiler(ISamplingOwner* callback)
    : callback(callback),
      enabled(true),
      unsafe(false),
      shuttingDown(false),
      useClassCache(false),
      logLevel(0),
      maxStacks(0),
      samplingInterval(0),
      samplingThread(nullptr) {
    sessions.reserve(kMaxSessions);
    InitializeCriticalSection(&cacheLock);
    InitializeCriticalSection(&sessionLock);
    InitializeCriticalSection(&askLock);
    InitializeCriticalSection(&sampledLock);
    InitializeConditionVariable(&wakeUp);
}

TraceProfiler::~TraceProfiler() {
    Shutdown();
    pthread_cond_destroy(&wakeUp);
    DeleteCriticalSection(&sampledLock);
    DeleteCriticalSection(&askLock);
    DeleteCriticalSection(&sessionLock);
    DeleteCriticalSection(&cacheLock);
}

void TraceProfiler::Init(IProperties* properties) {
    configure(properties);
}

void TraceProfiler::configure(IProperties* properties) {
    auto flag = [properties](const char16_t* key, bool defaultValue) {
        return properties == nullptr ? defaultValue : properties->getBoolProperty(key, defaultValue);
    };
    enabled = flag(SharedNames::kDeepInstrumentationKey, true);
    // Read while the level is still 0: a value out of range falls back silently.
    maxStacks = getIntProperty(properties, u"harrowlite.agent.deep.instrumentation.max.stacks", 256, 1, 4096);
    samplingInterval = static_cast<unsigned int>(
        getIntProperty(properties, u"harrowlite.agent.deep.instrumentation.sampling.interval.ms", 100, 1, 5000));
    useClassCache = flag(u"harrowlite.agent.deep.instrumentation.useClassCache", false);

    // Each word that the value is a leading part of sets the level, so the last
    // one matched counts: "t" is TRACE, and an empty value ends at ERROR.
    logLevel = kWarn;
    const char16_t* key = u"harrowlite.agent.deep.instrumentation.logLevel";
    if (properties != nullptr && properties->hasProperty(key)) {
        const char16_t* value = properties->getProperty(key);
        const struct {
            const char16_t* word;
            int level;
        } words[] = {{u"TRACE", kTrace}, {u"DEBUG", kDebug}, {u"INFO", kInfo}, {u"WARN", kWarn}, {u"ERROR", kError}};
        for (const auto& entry : words) {
            if (strcasecmp_u16(value, entry.word) == 0) {
                logLevel = entry.level;
            }
        }
    }
}

int TraceProfiler::getIntProperty(IProperties* properties, const char16_t* name, int defaultValue, int minimum,
                                  int maximum) {
    if (properties == nullptr || !properties->hasProperty(name)) {
        return defaultValue;
    }
    const char16_t* text = properties->getProperty(name);
    int value = atoi_u16(text);
    if (value >= minimum && value <= maximum) {
        return value;
    }
    if (logs(kWarn)) {
        log("Invalid value %S for %S\n", text, name);
    }
    return defaultValue;
}

void TraceProfiler::log(const char* format, ...) {
    FILE* nativeLog = callback != nullptr ? callback->getNativeLog() : nullptr;
    if (nativeLog == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    vfprintf_8(nativeLog, format, args);
    va_end(args);
    fflush(nativeLog);
}

ICorProfilerInfo* TraceProfiler::profilerInfo() {
    ICorProfilerInfo* info = callback != nullptr ? callback->getProfilerInfo() : nullptr;
    if (info != nullptr) {
        info->AddRef();
    }
    return info;
}

void TraceProfiler::Shutdown() {
    {
        // What sampling cost the program, once, while logging is still on.
        HeldLock held(&sessionLock);
        if (pauses.count() != 0 && logs(kInfo)) {
            log("Sampling stopped the runtime %u times: median %lld us, worst %lld us\n", pauses.count(),
                static_cast<long long>(pauses.medianMicroseconds()), static_cast<long long>(pauses.worstMicroseconds()));
        }
    }
    shuttingDown = true;
    if (enabled) {
        enabled = false;
        HeldLock held(&sessionLock);
        for (const auto& session : sessions) {
            CloseProfilingSession(static_cast<int>(&session - sessions.data()));
        }
    }
    HANDLE thread = nullptr;
    {
        HeldLock held(&sessionLock);
        thread = std::exchange(samplingThread, nullptr);
        WakeConditionVariable(&wakeUp);
    }
    // The thread ends as soon as it sees the flag: waiting for it keeps it from
    // outliving the locks it uses.
    if (thread != nullptr) {
        JoinThread(thread);
        CloseHandle(thread);
    }
}

int TraceProfiler::StartProfilingForMethod(ModuleID module, unsigned int methodToken, int sampleLimit) {
    if (!enabled) {
        return kDisabled;
    }
    trace_profiler_session session;
    AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
    if (info == nullptr || FAILED(info->GetCurrentThreadID(&session.thread))) {
        return kNoThreadId;
    }
    session.module = module;
    session.method = methodToken;
    session.sampleLimit = sampleLimit;
    return StartProfilingWithSession(session);
}

int TraceProfiler::StartProfilingForThread(int nativeThread, int sampleLimit) {
    if (!enabled) {
        return kDisabled;
    }
    {
        HeldLock held(&sessionLock);
        if (unresolvedThreads.count(nativeThread) != 0) {
            return kUnresolvableThread;
        }
    }
    trace_profiler_session session;
    session.nativeThread = nativeThread;
    session.sampleLimit = sampleLimit;
    return StartProfilingWithSession(session);
}

int TraceProfiler::StartProfilingWithSession(trace_profiler_session& session) {
    int index = -1;
    {
        HeldLock held(&sessionLock);
        session.sampling = true;
        if (sessions.size() < kMaxSessions) {
            // A closed entry is reused only once the table has grown full.
            index = static_cast<int>(sessions.size());
            sessions.push_back(session);
        } else {
            for (auto& entry : sessions) {
                if (entry.index == -1) {
                    index = static_cast<int>(&entry - sessions.data());
                    entry = session;
                    break;
                }
            }
        }
        if (index >= 0) {
            sessions[index].index = index;
        }
        if (samplingThread == nullptr && !shuttingDown) {
            samplingThread = CreateThread(nullptr, 0, runSamplingThread, this, 0, nullptr);
            if (samplingThread == nullptr && logs(kError)) {
                log("No thread to be had for sampling: the next request tries again\n");
            }
        }
        if (index >= 0 && logs(kInfo)) {
            log("[%d] Start profiling from 0x%x.0x%x on thread (%d)\n", index, session.module, session.method,
                session.nativeThread);
        }
    }
    WakeConditionVariable(&wakeUp);
    return index;
}

int TraceProfiler::StopProfiling(int index) {
    HeldLock held(&sessionLock);
    if (!isSessionOpen(index)) {
        if (logs(kError)) {
            log("[%d] Stop profiling on closed session...\n", index);
        }
        return -1;
    }
    trace_profiler_session& session = sessions[index];
    session.sampling = false;
    if (logs(kInfo)) {
        log("[%d] Stop profiling from 0x%x on thread 0x%x(%d) with %d samples (%d failed) %d frames\n", index,
            session.rootFunction, session.thread, session.nativeThread, session.sampleCount, session.failedCount,
            static_cast<int>(session.samples.size()));
    }
    return 0;
}

int TraceProfiler::CloseProfilingSession(int index) {
    if (index < 0) {
        return -1;
    }
    HeldLock held(&sessionLock);
    if (logs(kInfo)) {
        // An index beyond the table names no module; callers pass only the ones they were given.
        bool inTable = index < static_cast<int>(sessions.size());
        log("[%d] Closing profiling session 0x%x.0x%x\n", index, inTable ? sessions[index].module : 0,
            inTable ? sessions[index].method : 0);
    }
    if (!isSessionOpen(index)) {
        return -1;
    }
    trace_profiler_session& session = sessions[index];
    session.index = -1;
    session.module = 0;
    session.method = 0;
    session.rootFunction = 0;
    session.samples.clear();
    session.sampleIndex.clear();
    return 0;
}

bool TraceProfiler::isSessionOpen(int index) {
    HeldLock held(&sessionLock);
    return index >= 0 && index < static_cast<int>(sessions.size()) && sessions[index].index >= 0;
}

int TraceProfiler::openSessionCount() {
    HeldLock held(&sessionLock);
    int count = 0;
    for (const auto& session : sessions) {
        count += session.index >= 0 ? 1 : 0;
    }
    return count;
}

int TraceProfiler::activeSessionCount() {
    HeldLock held(&sessionLock);
    int count = 0;
    for (const auto& session : sessions) {
        count += session.index >= 0 && session.sampling ? 1 : 0;
    }
    return count;
}

int TraceProfiler::ReadStackSampleCount(int index) {
    HeldLock held(&sessionLock);
    if (!isSessionOpen(index) || sessions[index].sampling) {
        return -1;
    }
    return static_cast<int>(sessions[index].sampleCount);
}

int TraceProfiler::ReadFailedStackSampleCount(int index) {
    HeldLock held(&sessionLock);
    if (!isSessionOpen(index) || sessions[index].sampling) {
        return -1;
    }
    return static_cast<int>(sessions[index].failedCount);
}

int TraceProfiler::ReadStackSnapshotEntryCount(int index) {
    HeldLock held(&sessionLock);
    if (!isSessionOpen(index) || sessions[index].sampling) {
        return -1;
    }
    return static_cast<int>(sessions[index].samples.size());
}

int TraceProfiler::ReadStackSnapshots(int index, unsigned long* functions, unsigned long* parents, int* depths,
                                      int* counts) {
    if (functions == nullptr || parents == nullptr || depths == nullptr || counts == nullptr) {
        return -1;
    }
    HeldLock held(&sessionLock);
    if (!isSessionOpen(index) || sessions[index].sampling) {
        return -1;
    }
    const auto& samples = sessions[index].samples;
    for (size_t i = 0; i < samples.size(); ++i) {
        functions[i] = samples[i].function;
        parents[i] = samples[i].parent;
        depths[i] = samples[i].depth;
        counts[i] = static_cast<int>(samples[i].count);
    }
    return static_cast<int>(samples.size());
}

// The agent may push and pop from several threads at once: the stack is
// guarded like the table.
void TraceProfiler::PushSamplingInterval(unsigned int milliseconds) {
    HeldLock held(&sessionLock);
    intervalStack.push_back(samplingInterval);
    samplingInterval = milliseconds;
}

void TraceProfiler::PopSamplingInterval() {
    HeldLock held(&sessionLock);
    if (!intervalStack.empty()) {
        samplingInterval = intervalStack.back();
        intervalStack.pop_back();
    }
}

void TraceProfiler::ThreadDestroyed(ThreadID threadId) {
    HeldLock held(&sessionLock);
    if (samplingThread == nullptr) {
        return;
    }
    for (auto& session : sessions) {
        if (session.sampling && session.thread == threadId) {
            session.sampling = false;
            if (logs(kDebug)) {
                log("Stopped sampling session %d on destroyed thread: 0x%x\n",
                    static_cast<int>(&session - sessions.data()), threadId);
            }
        }
    }
}

void TraceProfiler::ModuleUnloading(ModuleID module, const std::function<bool(FunctionID)>& functionOfModule,
                                    const std::function<bool(ClassID)>& classOfModule) {
    {
        // Such a session would look the method up in the module at each pass.
        HeldLock held(&sessionLock);
        for (auto& session : sessions) {
            if (session.sampling && session.nativeThread == 0 && session.rootFunction == 0 &&
                session.module == module) {
                session.sampling = false;
                if (logs(kDebug)) {
                    log("Stopped sampling session %d: its method's module unloads\n",
                        static_cast<int>(&session - sessions.data()));
                }
            }
        }
    }
    std::vector<FunctionID> released;
    {
        HeldLock held(&sampledLock);
        released.assign(sampledFunctions.begin(), sampledFunctions.end());
    }
    // The runtime is asked with no lock held.
    std::erase_if(released, [&](FunctionID function) { return !functionOfModule(function); });
    forgetLater(module, released, classOfModule);
    if (released.empty()) {
        return;
    }
    HeldLock held(&askLock);
    releasedFunctions.insert(released.begin(), released.end());
    if (logs(kDebug)) {
        log("Released %d sampled functions of an unloading module\n", static_cast<int>(released.size()));
    }
}

void TraceProfiler::forgetLater(ModuleID module, const std::vector<FunctionID>& released,
                                const std::function<bool(ClassID)>& classOfModule) {
    AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
    AssemblyID assembly = 0;
    std::vector<ClassID> types;
    if (info != nullptr) {
        (void)info->GetModuleInfo(module, nullptr, 0, nullptr, nullptr, &assembly);
        for (FunctionID function : released) {
            ClassID type = 0;
            // A method instantiated over the module's types may belong to a class that stays.
            if (SUCCEEDED(info->GetFunctionInfo(function, &type, nullptr, nullptr)) && type != 0 &&
                classOfModule(type)) {
                types.push_back(type);
            }
        }
    }
    HeldLock held(&sampledLock);
    for (FunctionID function : released) sampledFunctions.erase(function);
    if (assembly != 0) staleNames.assemblies.push_back(assembly);
    staleNames.classes.insert(staleNames.classes.end(), types.begin(), types.end());
    staleNames.functions.insert(staleNames.functions.end(), released.begin(), released.end());
}

void TraceProfiler::forgetStaleNames() {
    StaleNames stale;
    {
        HeldLock held(&sampledLock);
        std::swap(stale, staleNames);
    }
    for (AssemblyID assembly : stale.assemblies) assemblyNames.erase(assembly);
    for (ClassID type : stale.classes) classNames.erase(type);
    for (FunctionID function : stale.functions) functionNames.erase(function);
}

void TraceProfiler::SetUnsafe(bool value) {
    HeldLock held(&sessionLock);
    unsafe = value;
}

bool TraceProfiler::isUnsafe() {
    HeldLock held(&sessionLock);
    return unsafe;
}
