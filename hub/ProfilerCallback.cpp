#include "hub/ProfilerCallback.h"

#include <cstring>
#include <new>

#include "gate/ProfilingManager.h"
#include "platform/HeldLock.h"
#include "runtime/Guids.h"

ProfilerCallback* fpc = nullptr;
// Initialised by each callback object's constructor, deleted by its destructor.
CRITICAL_SECTION gProfilingManagerLock;

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
      serviceStopEvent(nullptr),
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
    InitializeCriticalSection(&gProfilingManagerLock);
    InitializeCriticalSection(&profilerLock);
    InitializeCriticalSection(&moduleLock);
    serviceStopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

// Nothing here may throw: the process would end.
ProfilerCallback::~ProfilerCallback() {
    logToController("Tear down profiler\n");
    stopServiceThread();
    CloseHandle(serviceStopEvent);
    disabled = true;
    controller = nullptr;
    // Whichever object it points to: where two runtimes share the process, the
    // refused second callback takes it from the first.
    fpc = nullptr;
    releaseRegistry();
    DeleteCriticalSection(&gProfilingManagerLock);
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


// Slots that ignore their arguments.
HRESULT ProfilerCallback::AppDomainCreationStarted(AppDomainID appDomainId) {
    return S_OK;
}

HRESULT ProfilerCallback::AppDomainCreationFinished(AppDomainID appDomainId, HRESULT hrStatus) {
    return S_OK;
}

HRESULT ProfilerCallback::AppDomainShutdownStarted(AppDomainID appDomainId) {
    return S_OK;
}

HRESULT ProfilerCallback::AppDomainShutdownFinished(AppDomainID appDomainId, HRESULT hrStatus) {
    return S_OK;
}

HRESULT ProfilerCallback::ModuleLoadStarted(ModuleID moduleId) {
    return S_OK;
}

HRESULT ProfilerCallback::ModuleUnloadStarted(ModuleID moduleId) {
    return S_OK;
}

HRESULT ProfilerCallback::ModuleUnloadFinished(ModuleID moduleId, HRESULT hrStatus) {
    HeldLock held(&profilerLock);
    if (profiler != nullptr) {
        profiler->forgetModule(moduleId);
    }
    return S_OK;
}

HRESULT ProfilerCallback::ModuleAttachedToAssembly(ModuleID moduleId, AssemblyID AssemblyId) {
    return S_OK;
}

HRESULT ProfilerCallback::ClassLoadStarted(ClassID classId) {
    return S_OK;
}

HRESULT ProfilerCallback::ClassLoadFinished(ClassID classId, HRESULT hrStatus) {
    return S_OK;
}

HRESULT ProfilerCallback::ClassUnloadStarted(ClassID classId) {
    return S_OK;
}

HRESULT ProfilerCallback::ClassUnloadFinished(ClassID classId, HRESULT hrStatus) {
    return S_OK;
}

HRESULT ProfilerCallback::FunctionUnloadStarted(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::JITCachedFunctionSearchFinished(FunctionID functionId, COR_PRF_JIT_CACHE result) {
    return S_OK;
}

HRESULT ProfilerCallback::JITFunctionPitched(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::ThreadCreated(ThreadID threadId) {
    return S_OK;
}

HRESULT ProfilerCallback::ThreadAssignedToOSThread(ThreadID managedThreadId, DWORD osThreadId) {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingClientInvocationStarted() {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingClientSendingMessage(GUID* pCookie, BOOL fIsAsync) {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingClientReceivingReply(GUID* pCookie, BOOL fIsAsync) {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingClientInvocationFinished() {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingServerReceivingMessage(GUID* pCookie, BOOL fIsAsync) {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingServerInvocationStarted() {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingServerInvocationReturned() {
    return S_OK;
}

HRESULT ProfilerCallback::RemotingServerSendingReply(GUID* pCookie, BOOL fIsAsync) {
    return S_OK;
}

HRESULT ProfilerCallback::UnmanagedToManagedTransition(FunctionID functionId, COR_PRF_TRANSITION_REASON reason) {
    return S_OK;
}

HRESULT ProfilerCallback::ManagedToUnmanagedTransition(FunctionID functionId, COR_PRF_TRANSITION_REASON reason) {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeSuspendStarted(COR_PRF_SUSPEND_REASON suspendReason) {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeSuspendFinished() {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeSuspendAborted() {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeResumeStarted() {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeResumeFinished() {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeThreadSuspended(ThreadID threadId) {
    return S_OK;
}

HRESULT ProfilerCallback::RuntimeThreadResumed(ThreadID threadId) {
    return S_OK;
}

HRESULT ProfilerCallback::MovedReferences(ULONG cMovedObjectIDRanges, ObjectID oldObjectIDRangeStart[], ObjectID newObjectIDRangeStart[], ULONG cObjectIDRangeLength[]) {
    return S_OK;
}

HRESULT ProfilerCallback::ObjectAllocated(ObjectID objectId, ClassID classId) {
    return S_OK;
}

HRESULT ProfilerCallback::ObjectsAllocatedByClass(ULONG cClassCount, ClassID classIds[], ULONG cObjects[]) {
    return S_OK;
}

HRESULT ProfilerCallback::ObjectReferences(ObjectID objectId, ClassID classId, ULONG cObjectRefs, ObjectID objectRefIds[]) {
    return S_OK;
}

HRESULT ProfilerCallback::RootReferences(ULONG cRootRefs, ObjectID rootRefIds[]) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionThrown(ObjectID thrownObjectId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionSearchFunctionEnter(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionSearchFunctionLeave() {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionSearchFilterEnter(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionSearchFilterLeave() {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionSearchCatcherFound(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionOSHandlerEnter(UINT_PTR reserved) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionOSHandlerLeave(UINT_PTR reserved) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionUnwindFunctionEnter(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionUnwindFunctionLeave() {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionUnwindFinallyEnter(FunctionID functionId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionUnwindFinallyLeave() {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionCatcherEnter(FunctionID functionId, ObjectID objectId) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionCatcherLeave() {
    return S_OK;
}

HRESULT ProfilerCallback::COMClassicVTableCreated(ClassID wrappedClassId, REFGUID implementedIID, void* pVTable, ULONG cSlots) {
    return S_OK;
}

HRESULT ProfilerCallback::COMClassicVTableDestroyed(ClassID wrappedClassId, REFGUID implementedIID, void* pVTable) {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionCLRCatcherFound() {
    return S_OK;
}

HRESULT ProfilerCallback::ExceptionCLRCatcherExecute() {
    return S_OK;
}

HRESULT ProfilerCallback::ThreadNameChanged(ThreadID threadId, ULONG cchName, WCHAR name[]) {
    return S_OK;
}

HRESULT ProfilerCallback::GarbageCollectionStarted(int cGenerations, BOOL generationCollected[], COR_PRF_GC_REASON reason) {
    return S_OK;
}

HRESULT ProfilerCallback::SurvivingReferences(ULONG cSurvivingObjectIDRanges, ObjectID objectIDRangeStart[], ULONG cObjectIDRangeLength[]) {
    return S_OK;
}

HRESULT ProfilerCallback::GarbageCollectionFinished() {
    return S_OK;
}

HRESULT ProfilerCallback::FinalizeableObjectQueued(DWORD finalizerFlags, ObjectID objectID) {
    return S_OK;
}

HRESULT ProfilerCallback::RootReferences2(ULONG cRootRefs, ObjectID rootRefIds[], COR_PRF_GC_ROOT_KIND rootKinds[], COR_PRF_GC_ROOT_FLAGS rootFlags[], UINT_PTR rootIds[]) {
    return S_OK;
}

HRESULT ProfilerCallback::HandleCreated(GCHandleID handleId, ObjectID initialObjectId) {
    return S_OK;
}

HRESULT ProfilerCallback::HandleDestroyed(GCHandleID handleId) {
    return S_OK;
}

HRESULT ProfilerCallback::GetReJITParameters(ModuleID moduleId, mdMethodDef methodId, ICorProfilerFunctionControl* pFunctionControl) {
    return S_OK;
}

HRESULT ProfilerCallback::ReJITError(ModuleID moduleId, mdMethodDef methodId, FunctionID functionId, HRESULT hrStatus) {
    return S_OK;
}

HRESULT ProfilerCallback::MovedReferences2(ULONG cMovedObjectIDRanges, ObjectID oldObjectIDRangeStart[], ObjectID newObjectIDRangeStart[], SIZE_T cObjectIDRangeLength[]) {
    return S_OK;
}

HRESULT ProfilerCallback::SurvivingReferences2(ULONG cSurvivingObjectIDRanges, ObjectID objectIDRangeStart[], SIZE_T cObjectIDRangeLength[]) {
    return S_OK;
}
