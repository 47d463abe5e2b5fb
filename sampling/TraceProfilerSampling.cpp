// The sampling thread: it wakes at the interval, stops the runtime once for all
// sessions that are due, takes a stack snapshot of each, and lets it go.
#include <cstdint>

#include "platform/AutoPointer.h"
#include "platform/HeldLock.h"
#include "platform/Performance.h"
#include "runtime/CorErrors.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/Guids.h"
#include "runtime/ProfilerEnumerators.h"
#include "sampling/TraceProfiler.h"

namespace {

constexpr HRESULT CORPROF_E_STACKSNAPSHOT_INVALID_TGT_THREAD = static_cast<HRESULT>(0x8013135E);
constexpr HRESULT CORPROF_E_STACKSNAPSHOT_UNMANAGED_CTX = static_cast<HRESULT>(0x8013135F);
constexpr HRESULT CORPROF_E_STACKSNAPSHOT_UNSAFE = static_cast<HRESULT>(0x80131360);
constexpr HRESULT CORPROF_E_STACKSNAPSHOT_ABORTED = static_cast<HRESULT>(0x80131361);
constexpr int kMaxFrames = 4096;
constexpr int kThreadsEnumerated = 256;
// A wait that ends this close to its plan is a regular tick.
constexpr int kTickTolerance = 6;

// What one walk collects. It lives on the sampling thread's stack: nothing is
// allocated while the runtime is stopped.
struct SnapshotClientData {
    ICorProfilerInfo2* info;
    trace_profiler_session* session;
    int count;
    int limit;
    FunctionID functions[kMaxFrames];  // innermost first
};

int32_t elapsed(int64_t later, int64_t earlier) {
    return static_cast<int32_t>(later - earlier);
}

}  // namespace

// Frames of native code come as 0 and are not recorded.
HRESULT TraceProfilerStackSnapshotCallback(FunctionID function, UINT_PTR ip, COR_PRF_FRAME_INFO frameInfo,
                                           ULONG32 contextSize, BYTE context[], void* clientData) {
    auto* data = static_cast<SnapshotClientData*>(clientData);
    if (function == 0) {
        return S_OK;
    }
    data->functions[data->count++] = function;
    trace_profiler_session* session = data->session;
    if (session->nativeThread == 0 && session->rootFunction == 0) {
        ModuleID module = 0;
        mdToken token = 0;
        data->info->GetFunctionInfo2(function, frameInfo, nullptr, &module, &token, 0, nullptr, nullptr);
        if (module == session->module && token == session->method) {
            session->rootFunction = function;
            return S_FALSE;
        }
    }
    if (data->count >= kMaxFrames || data->count >= data->limit || function == session->rootFunction) {
        return S_FALSE;
    }
    return S_OK;
}

void TraceProfiler::SampleTraces() {
    // Known to the runtime before it is first stopped: a thread that makes
    // itself known while the runtime is stopped can wait for it forever.
    {
        AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
        AutoCOMPointer<ICorProfilerInfo4> info4;
        if (info != nullptr &&
            SUCCEEDED(info->QueryInterface(IID_ICorProfilerInfo4, reinterpret_cast<void**>(&info4)))) {
            info4->InitializeCurrentThread();
        }
    }
    int64_t next = Performance::GetTimeInMillis();
    while (enabled) {
        bool wokeEarly = false;
        {
            HeldLock held(&sessionLock);
            // Checked under the lock before any wait: a shutdown's wake-up may
            // have come before this thread began to wait.
            if (shuttingDown) {
                break;
            }
            if (activeSessionCount() != 0) {
                int wait = elapsed(next, Performance::GetTimeInMillis());
                if (wait < 1) {
                    next = Performance::GetTimeInMillis() + samplingInterval;
                    wait = 3;
                }
                SleepConditionVariableCS(&wakeUp, &sessionLock, wait);
                int remaining = elapsed(next, Performance::GetTimeInMillis());
                if (remaining < kTickTolerance) {
                    next += samplingInterval;
                } else {
                    wokeEarly = true;
                    if (logs(kDebug)) {
                        log("Woke up early. Remaining sleep time: %d\n", remaining);
                    }
                }
            } else {
                SleepConditionVariableCS(&wakeUp, &sessionLock, -1);
                if (logs(kTrace)) {
                    log("Sampling thread woke up\n");
                }
                wokeEarly = true;
                next = Performance::GetTimeInMillis() + samplingInterval;
            }
            if (shuttingDown) {
                break;
            }
            // The runtime is not stopped for a pass that would sample nothing.
            if (!anySessionDue(wokeEarly)) {
                continue;
            }
        }
        samplePass(wokeEarly);
    }
    if (logs(kDebug)) {
        log("Trace Profiling thread will terminate.\n");
    }
}

void TraceProfiler::samplePass(bool wokeEarly) {
    const int64_t start = Performance::GetTimeInMillis();
    PassCounts counts;
    AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
    AutoCOMPointer<ICorProfilerInfo10> info10;
    if (info != nullptr) {
        info->QueryInterface(IID_ICorProfilerInfo10, reinterpret_cast<void**>(&info10));
    }
    // The session lock is taken only once the runtime has stopped: a thread
    // that the runtime waits for may be waiting for the lock, in one of its
    // callbacks.
    bool suspended = false;
    HRESULT suspendResult = S_OK;
    LARGE_INTEGER suspendStart;
    QueryPerformanceCounter(&suspendStart);
    if (info10 != nullptr) {
        suspendResult = info10->SuspendRuntime();
        suspended = SUCCEEDED(suspendResult);
    }
    EnterCriticalSection(&sessionLock);
    if (!suspended && info10 != nullptr && logs(kWarn)) {
        log("SuspendRuntime failed HR: 0x%x\n", suspendResult);
    }
    // Nothing thrown may leave the runtime stopped.
    try {
        sampleDueSessions(wokeEarly, suspended, counts);
        // Known before the runtime goes on, and with it an unload.
        HeldLock held(&sampledLock);
        sampledFunctions.insert(newFunctions.begin(), newFunctions.end());
    } catch (...) {
        if (logs(kError)) {
            log("Sampling pass ended by an error\n");
        }
    }
    // The pause lasts until the runtime is asked to go on.
    if (suspended) {
        LARGE_INTEGER resuming;
        QueryPerformanceCounter(&resuming);
        pauses.record(resuming.QuadPart - suspendStart.QuadPart);
    }
    if (info10 != nullptr) {
        HRESULT resumeResult = info10->ResumeRuntime();
        if (FAILED(resumeResult) && logs(kWarn)) {
            log("SuspendRuntime failed suspend HR: 0x%x resume HR: 0x%x\n", suspendResult, resumeResult);
        }
    }
    const int64_t duration = Performance::GetTimeInMillis() - start;
    if (duration > 1 && logs(kDebug)) {
        log("Sampled %d frames in %d sessions (open: %d, sampling: %d) (%lldms) \n", counts.frames, counts.sampled,
            counts.open, counts.active, static_cast<long long>(duration));
    }
    // The names of new frames are cached with the runtime running and without
    // the session lock: reading metadata may wait for a thread that itself
    // waits for one of them. The cache lock, taken before the session lock is
    // let go, keeps an agent that has read the samples from asking too early.
    EnterCriticalSection(&cacheLock);
    LeaveCriticalSection(&sessionLock);
    forgetStaleNames();
    {
        // An id of a module gone may have come back for another function; one
        // that an unload released after this pass sampled it stays released.
        HeldLock asked(&askLock);
        HeldLock sampled(&sampledLock);
        for (FunctionID function : newFunctions) {
            if (sampledFunctions.count(function) != 0) releasedFunctions.erase(function);
        }
    }
    if (useClassCache) {
        for (FunctionID function : newFunctions) cacheClassInfo(function);
    }
    newFunctions.clear();
    LeaveCriticalSection(&cacheLock);
}

// Under the session lock: each open session that is due is walked, or, with
// the runtime running on, counted as a failed sample.
void TraceProfiler::sampleDueSessions(bool wokeEarly, bool suspended, PassCounts& counts) {
    for (size_t i = 0; i < sessions.size() && !shuttingDown; ++i) {
        trace_profiler_session& session = sessions[i];
        if (session.index < 0) {
            continue;
        }
        ++counts.open;
        if (!session.sampling) {
            continue;
        }
        ++counts.active;
        if (!isDue(session, wokeEarly)) {
            continue;
        }
        if (suspended) {
            counts.frames += sampleForSession(session);
        } else {
            ++session.sampleCount;
            ++session.failedCount;
        }
        ++counts.sampled;
    }
}

// An early wake-up is for new sessions: the others keep their rhythm.
bool TraceProfiler::isDue(const trace_profiler_session& session, bool wokeEarly) {
    return !wokeEarly || session.sampleCount == 0;
}

bool TraceProfiler::anySessionDue(bool wokeEarly) {
    for (const auto& session : sessions) {
        if (session.index >= 0 && session.sampling && isDue(session, wokeEarly)) {
            return true;
        }
    }
    return false;
}

int TraceProfiler::sampleForSession(trace_profiler_session& session) {
    // A thread waiting for the lock gets in between two sessions.
    LeaveCriticalSection(&sessionLock);
    EnterCriticalSection(&sessionLock);
    if (unsafe) {
        return 0;
    }
    AutoCOMPointer<ICorProfilerInfo> info(profilerInfo());
    if (info == nullptr) {
        return 0;
    }
    if (session.nativeThread == 0 && session.rootFunction == 0) {
        // A failure here leaves the walk to find the root.
        info->GetFunctionFromToken(session.module, session.method, &session.rootFunction);
    }
    if (session.nativeThread != 0 && session.thread == 0 && !resolveThread(session, info)) {
        if (logs(kError)) {
            log("[%d] Failed to resolve the managed ThreadID for %d during snapshot.\n", session.index,
                session.nativeThread);
        }
        session.sampling = false;
        unresolvedThreads[session.nativeThread] = 0;
        return 0;
    }
    AutoCOMPointer<ICorProfilerInfo2> info2;
    if (FAILED(info->QueryInterface(IID_ICorProfilerInfo2, reinterpret_cast<void**>(&info2)))) {
        return 0;
    }
    SnapshotClientData data {};
    data.info = info2;
    data.session = &session;
    data.limit = maxStacks;
    HRESULT hr = info2->DoStackSnapshot(session.thread, TraceProfilerStackSnapshotCallback, 0, &data, nullptr, 0);

    const bool methodSession = session.nativeThread == 0;
    if (methodSession && session.rootFunction == 0) {
        if (logs(kError)) {
            log("Failed to resolve the root FunctionID during snapshot.\n");
        }
        session.sampling = false;
        return 0;
    }
    ++session.sampleCount;
    // A method session's walk ends at its root; one that ran to the end of the
    // stack never met it.
    if (methodSession ? hr != CORPROF_E_STACKSNAPSHOT_ABORTED : hr != S_OK) {
        ++session.failedCount;
    }
    if (hr != S_OK && hr != CORPROF_E_STACKSNAPSHOT_ABORTED) {
        logFailedSnapshot(session.index, hr);
        if (hr == CORPROF_E_STACKSNAPSHOT_INVALID_TGT_THREAD) {
            session.sampling = false;
        }
        return 0;
    }
    if (logs(kTrace)) {
        log("[%d] Sampled %d functions status: 0x%x function: 0x%x\n", session.index, data.count, hr,
            session.rootFunction);
    }
    if (session.sampleLimit > 0 &&
        session.sampleCount - session.failedCount == static_cast<unsigned int>(session.sampleLimit)) {
        session.sampling = false;
    }
    recordFrames(session, data.functions, data.count, hr == S_OK);
    if (logs(kTrace)) {
        log("[%d] Found %d unique functions\n", session.index, static_cast<int>(session.samples.size()));
    }
    return data.count;
}

// One walk's frames, innermost first, counted by function, caller and depth;
// a frame not seen before is noted as new.
void TraceProfiler::recordFrames(trace_profiler_session& session, const FunctionID* functions, int count,
                                 bool complete) {
    for (int i = 0; i < count; ++i) {
        trace_profiler_sample_key key {functions[i], i + 1 < count ? functions[i + 1] : 0, count - i};
        if (complete && logs(kTrace)) {
            log("0x%x %d\n", key.function, key.depth);
        }
        auto found = session.sampleIndex.find(key);
        if (found != session.sampleIndex.end()) {
            ++session.samples[found->second].count;
        } else {
            session.sampleIndex.emplace(key, session.samples.size());
            session.samples.push_back(trace_profiler_sample {key.function, key.parent, key.depth, 1});
            newFunctions.push_back(key.function);
        }
    }
}

// The managed thread that runs on the session's kernel thread, among the first
// threads that the runtime lists.
bool TraceProfiler::resolveThread(trace_profiler_session& session, ICorProfilerInfo* info) {
    AutoCOMPointer<ICorProfilerInfo4> info4;
    AutoCOMPointer<ICorProfilerThreadEnum> threads;
    if (FAILED(info->QueryInterface(IID_ICorProfilerInfo4, reinterpret_cast<void**>(&info4))) ||
        FAILED(info4->EnumThreads(&threads))) {
        return false;
    }
    ThreadID found[kThreadsEnumerated];
    ULONG count = 0;
    if (FAILED(threads->Next(kThreadsEnumerated, found, &count))) {
        return false;
    }
    for (ULONG i = 0; i < count && session.thread == 0; ++i) {
        DWORD osThread = 0;
        if (SUCCEEDED(info->GetThreadInfo(found[i], &osThread)) && osThread == static_cast<DWORD>(session.nativeThread)) {
            session.thread = found[i];
        }
    }
    return session.thread != 0;
}

void TraceProfiler::logFailedSnapshot(int index, HRESULT hr) {
    switch (hr) {
    case E_NOTIMPL:
        if (logs(kWarn)) log("[%d] Failed stack snapshot: Not implemented\n", index);
        break;
    case CORPROF_E_STACKSNAPSHOT_INVALID_TGT_THREAD:
        if (logs(kDebug)) log("[%d] Failed stack snapshot: Invalid target thread\n", index);
        break;
    case CORPROF_E_STACKSNAPSHOT_UNSAFE:
        if (logs(kDebug)) log("[%d] Failed stack snapshot: Unsafe\n", index);
        break;
    case CORPROF_E_STACKSNAPSHOT_UNMANAGED_CTX:
    case E_FAIL:
        break;
    default:
        if (logs(kDebug)) log("[%d] Failed stack snapshot at 0x%x\n", index, hr);
        break;
    }
}
