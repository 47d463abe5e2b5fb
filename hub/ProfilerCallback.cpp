#include "hub/ProfilerCallback.h"

#include <cstring>
#include <new>

#include "gate/ProfilingManager.h"
#include "platform/HeldLock.h"
#include "runtime/Guids.h"

ProfilerCallback* fpc = nullptr;

namespace {
bool isImplementedCallback(REFIID riid) {
    return riid == IID_IUnknown || riid == IID_ICorProfilerCallback || riid == IID_ICorProfilerCallback2 ||
           riid == IID_ICorProfilerCallback3 || riid == IID_ICorProfilerCallback4;
}
}  // namespace

HRESULT ProfilerCallback::CreateObject(REFIID riid, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (!isImplementedCallback(riid)) {
        return E_INVALIDARG;
    }
    ProfilerCallback* callback = nullptr;
    try {
        callback = new ProfilerCallback();
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    callback->AddRef();
    *ppv = static_cast<ICorProfilerCallback4*>(callback);
    return S_OK;
}

ProfilerCallback::ProfilerCallback()
    : traceProfiler(this),
      serviceWakeEvent(nullptr),
      attached(false),
      firstAttachMethodSeen(false),
      jitEnabled(true),
      referenceCount(0),
      clrVersion(0),
      supportsReJIT(false),
      eventMask(COR_PRF_MONITOR_JIT_COMPILATION),
      serviceThread(nullptr),
      inJITCallback(false),
      agentHijacked(false),
      logEnabled(false),
      logMethodBytes(false),
      logUninstrumented(false),
      disabled(false),
      nativeLog(nullptr),
      hooksEnabled(false),
      isCoreCLR(false),
      lastReJITRequestId(0),
      rejitStatus{},
      rejitStatusIndex(-2),
      reloadPending(false) {
    InitializeCriticalSection(&profilerLock);
    InitializeCriticalSection(&moduleLock);
    serviceWakeEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

// Nothing here may throw: the process would end.
ProfilerCallback::~ProfilerCallback() {
    logToController("Tear down profiler\n");
    stopServiceThread();
    CloseHandle(serviceWakeEvent);
    disabled = true;
    controller = nullptr;  // the process gate's
    // Whichever object it points to: where two runtimes share the process, the
    // refused second callback takes it from the first.
    fpc = nullptr;
    DeleteCriticalSection(&profilerLock);
    DeleteCriticalSection(&moduleLock);
}

void ProfilerCallback::logToController(const char* line) {
    if (controller != nullptr) {
        fprintf_8(controller->getNativeLog(), line);
    }
}

HRESULT ProfilerCallback::QueryInterface(REFIID riid, void** ppvObject) {
    if (ppvObject == nullptr) {
        return E_POINTER;
    }
    if (isImplementedCallback(riid)) {
        *ppvObject = static_cast<ICorProfilerCallback4*>(this);
        AddRef();
        return S_OK;
    }
    *ppvObject = nullptr;
    return E_NOINTERFACE;
}

ULONG ProfilerCallback::AddRef() {
    return ++referenceCount;
}

ULONG ProfilerCallback::Release() {
    ULONG count = --referenceCount;
    if (count == 0) {
        delete this;
    }
    return count;
}

HRESULT ProfilerCallback::Shutdown() {
    EnterCriticalSection(&profilerLock);
    logToController("Begin shutdown\n");
    if (controller != nullptr) {
        account.write(controller->getNativeLog());
    }
    // No compilation is reported any more.
    eventMask &= ~static_cast<DWORD>(COR_PRF_MONITOR_JIT_COMPILATION);
    if (profilerInfo != nullptr) {
        profilerInfo->SetEventMask(eventMask);
    }
    disabled = true;
    traceProfiler.Shutdown();
    profilerInfo = nullptr;
    profiler = nullptr;
    metaDataContext = nullptr;
    LeaveCriticalSection(&profilerLock);
    return S_OK;
}

HRESULT ProfilerCallback::AssemblyLoadStarted(AssemblyID assemblyId) {
    traceProfiler.SetUnsafe(true);
    return S_OK;
}

HRESULT ProfilerCallback::AssemblyLoadFinished(AssemblyID assemblyId, HRESULT hrStatus) {
    traceProfiler.SetUnsafe(false);
    return S_OK;
}

HRESULT ProfilerCallback::AssemblyUnloadStarted(AssemblyID assemblyId) {
    traceProfiler.SetUnsafe(true);
    return S_OK;
}

HRESULT ProfilerCallback::AssemblyUnloadFinished(AssemblyID assemblyId, HRESULT hrStatus) {
    traceProfiler.SetUnsafe(false);
    return S_OK;
}

HRESULT ProfilerCallback::ThreadDestroyed(ThreadID threadId) {
    traceProfiler.ThreadDestroyed(threadId);
    return S_OK;
}

HRESULT ProfilerCallback::ProfilerDetachSucceeded() {
    logToController("Detached profiler\n");
    return S_OK;
}

HRESULT ProfilerCallback::ReJITCompilationFinished(FunctionID functionId, ReJITID rejitId, HRESULT hrStatus,
                                                   BOOL fIsSafeToBlock) {
    return JITCompilationFinished(functionId, hrStatus, fIsSafeToBlock);
}
