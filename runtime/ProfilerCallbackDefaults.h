// Every slot of the runtime's callback interfaces answering S_OK and doing
// nothing: what the profiler's callback object is for the events it does not
// use. The object overrides the slots that have work; IUnknown stays its own.
#pragma once

#include "runtime/CorErrors.h"
#include "runtime/CorProfilerCallback.h"

class ProfilerCallbackDefaults : public ICorProfilerCallback4 {
public:
    HRESULT Initialize(IUnknown* pICorProfilerInfoUnk) override { return S_OK; }
    HRESULT Shutdown() override { return S_OK; }
    HRESULT AppDomainCreationStarted(AppDomainID appDomainId) override { return S_OK; }
    HRESULT AppDomainCreationFinished(AppDomainID appDomainId, HRESULT hrStatus) override { return S_OK; }
    HRESULT AppDomainShutdownStarted(AppDomainID appDomainId) override { return S_OK; }
    HRESULT AppDomainShutdownFinished(AppDomainID appDomainId, HRESULT hrStatus) override { return S_OK; }
    HRESULT AssemblyLoadStarted(AssemblyID assemblyId) override { return S_OK; }
    HRESULT AssemblyLoadFinished(AssemblyID assemblyId, HRESULT hrStatus) override { return S_OK; }
    HRESULT AssemblyUnloadStarted(AssemblyID assemblyId) override { return S_OK; }
    HRESULT AssemblyUnloadFinished(AssemblyID assemblyId, HRESULT hrStatus) override { return S_OK; }
    HRESULT ModuleLoadStarted(ModuleID moduleId) override { return S_OK; }
    HRESULT ModuleLoadFinished(ModuleID moduleId, HRESULT hrStatus) override { return S_OK; }
    HRESULT ModuleUnloadStarted(ModuleID moduleId) override { return S_OK; }
    HRESULT ModuleUnloadFinished(ModuleID moduleId, HRESULT hrStatus) override { return S_OK; }
    HRESULT ModuleAttachedToAssembly(ModuleID moduleId, AssemblyID AssemblyId) override { return S_OK; }
    HRESULT ClassLoadStarted(ClassID classId) override { return S_OK; }
    HRESULT ClassLoadFinished(ClassID classId, HRESULT hrStatus) override { return S_OK; }
    HRESULT ClassUnloadStarted(ClassID classId) override { return S_OK; }
    HRESULT ClassUnloadFinished(ClassID classId, HRESULT hrStatus) override { return S_OK; }
    HRESULT FunctionUnloadStarted(FunctionID functionId) override { return S_OK; }
    HRESULT JITCompilationStarted(FunctionID functionId, BOOL fIsSafeToBlock) override { return S_OK; }
    HRESULT JITCompilationFinished(FunctionID functionId, HRESULT hrStatus, BOOL fIsSafeToBlock) override { return S_OK; }
    HRESULT JITCachedFunctionSearchStarted(FunctionID functionId, BOOL* pbUseCachedFunction) override { return S_OK; }
    HRESULT JITCachedFunctionSearchFinished(FunctionID functionId, COR_PRF_JIT_CACHE result) override { return S_OK; }
    HRESULT JITFunctionPitched(FunctionID functionId) override { return S_OK; }
    HRESULT JITInlining(FunctionID callerId, FunctionID calleeId, BOOL* pfShouldInline) override { return S_OK; }
    HRESULT ThreadCreated(ThreadID threadId) override { return S_OK; }
    HRESULT ThreadDestroyed(ThreadID threadId) override { return S_OK; }
    HRESULT ThreadAssignedToOSThread(ThreadID managedThreadId, DWORD osThreadId) override { return S_OK; }
    HRESULT RemotingClientInvocationStarted() override { return S_OK; }
    HRESULT RemotingClientSendingMessage(GUID* pCookie, BOOL fIsAsync) override { return S_OK; }
    HRESULT RemotingClientReceivingReply(GUID* pCookie, BOOL fIsAsync) override { return S_OK; }
    HRESULT RemotingClientInvocationFinished() override { return S_OK; }
    HRESULT RemotingServerReceivingMessage(GUID* pCookie, BOOL fIsAsync) override { return S_OK; }
    HRESULT RemotingServerInvocationStarted() override { return S_OK; }
    HRESULT RemotingServerInvocationReturned() override { return S_OK; }
    HRESULT RemotingServerSendingReply(GUID* pCookie, BOOL fIsAsync) override { return S_OK; }
    HRESULT UnmanagedToManagedTransition(FunctionID functionId, COR_PRF_TRANSITION_REASON reason) override { return S_OK; }
    HRESULT ManagedToUnmanagedTransition(FunctionID functionId, COR_PRF_TRANSITION_REASON reason) override { return S_OK; }
    HRESULT RuntimeSuspendStarted(COR_PRF_SUSPEND_REASON suspendReason) override { return S_OK; }
    HRESULT RuntimeSuspendFinished() override { return S_OK; }
    HRESULT RuntimeSuspendAborted() override { return S_OK; }
    HRESULT RuntimeResumeStarted() override { return S_OK; }
    HRESULT RuntimeResumeFinished() override { return S_OK; }
    HRESULT RuntimeThreadSuspended(ThreadID threadId) override { return S_OK; }
    HRESULT RuntimeThreadResumed(ThreadID threadId) override { return S_OK; }
    HRESULT MovedReferences(ULONG cMovedObjectIDRanges, ObjectID oldObjectIDRangeStart[], ObjectID newObjectIDRangeStart[], ULONG cObjectIDRangeLength[]) override { return S_OK; }
    HRESULT ObjectAllocated(ObjectID objectId, ClassID classId) override { return S_OK; }
    HRESULT ObjectsAllocatedByClass(ULONG cClassCount, ClassID classIds[], ULONG cObjects[]) override { return S_OK; }
    HRESULT ObjectReferences(ObjectID objectId, ClassID classId, ULONG cObjectRefs, ObjectID objectRefIds[]) override { return S_OK; }
    HRESULT RootReferences(ULONG cRootRefs, ObjectID rootRefIds[]) override { return S_OK; }
    HRESULT ExceptionThrown(ObjectID thrownObjectId) override { return S_OK; }
    HRESULT ExceptionSearchFunctionEnter(FunctionID functionId) override { return S_OK; }
    HRESULT ExceptionSearchFunctionLeave() override { return S_OK; }
    HRESULT ExceptionSearchFilterEnter(FunctionID functionId) override { return S_OK; }
    HRESULT ExceptionSearchFilterLeave() override { return S_OK; }
    HRESULT ExceptionSearchCatcherFound(FunctionID functionId) override { return S_OK; }
    HRESULT ExceptionOSHandlerEnter(UINT_PTR reserved) override { return S_OK; }
    HRESULT ExceptionOSHandlerLeave(UINT_PTR reserved) override { return S_OK; }
    HRESULT ExceptionUnwindFunctionEnter(FunctionID functionId) override { return S_OK; }
    HRESULT ExceptionUnwindFunctionLeave() override { return S_OK; }
    HRESULT ExceptionUnwindFinallyEnter(FunctionID functionId) override { return S_OK; }
    HRESULT ExceptionUnwindFinallyLeave() override { return S_OK; }
    HRESULT ExceptionCatcherEnter(FunctionID functionId, ObjectID objectId) override { return S_OK; }
    HRESULT ExceptionCatcherLeave() override { return S_OK; }
    HRESULT COMClassicVTableCreated(ClassID wrappedClassId, REFGUID implementedIID, void* pVTable, ULONG cSlots) override { return S_OK; }
    HRESULT COMClassicVTableDestroyed(ClassID wrappedClassId, REFGUID implementedIID, void* pVTable) override { return S_OK; }
    HRESULT ExceptionCLRCatcherFound() override { return S_OK; }
    HRESULT ExceptionCLRCatcherExecute() override { return S_OK; }
    HRESULT ThreadNameChanged(ThreadID threadId, ULONG cchName, WCHAR name[]) override { return S_OK; }
    HRESULT GarbageCollectionStarted(int cGenerations, BOOL generationCollected[], COR_PRF_GC_REASON reason) override { return S_OK; }
    HRESULT SurvivingReferences(ULONG cSurvivingObjectIDRanges, ObjectID objectIDRangeStart[], ULONG cObjectIDRangeLength[]) override { return S_OK; }
    HRESULT GarbageCollectionFinished() override { return S_OK; }
    HRESULT FinalizeableObjectQueued(DWORD finalizerFlags, ObjectID objectID) override { return S_OK; }
    HRESULT RootReferences2(ULONG cRootRefs, ObjectID rootRefIds[], COR_PRF_GC_ROOT_KIND rootKinds[], COR_PRF_GC_ROOT_FLAGS rootFlags[], UINT_PTR rootIds[]) override { return S_OK; }
    HRESULT HandleCreated(GCHandleID handleId, ObjectID initialObjectId) override { return S_OK; }
    HRESULT HandleDestroyed(GCHandleID handleId) override { return S_OK; }
    HRESULT InitializeForAttach(IUnknown* pCorProfilerInfoUnk, void* pvClientData, UINT cbClientData) override { return S_OK; }
    HRESULT ProfilerAttachComplete() override { return S_OK; }
    HRESULT ProfilerDetachSucceeded() override { return S_OK; }
    HRESULT ReJITCompilationStarted(FunctionID functionId, ReJITID rejitId, BOOL fIsSafeToBlock) override { return S_OK; }
    HRESULT GetReJITParameters(ModuleID moduleId, mdMethodDef methodId, ICorProfilerFunctionControl* pFunctionControl) override { return S_OK; }
    HRESULT ReJITCompilationFinished(FunctionID functionId, ReJITID rejitId, HRESULT hrStatus, BOOL fIsSafeToBlock) override { return S_OK; }
    HRESULT ReJITError(ModuleID moduleId, mdMethodDef methodId, FunctionID functionId, HRESULT hrStatus) override { return S_OK; }
    HRESULT MovedReferences2(ULONG cMovedObjectIDRanges, ObjectID oldObjectIDRangeStart[], ObjectID newObjectIDRangeStart[], SIZE_T cObjectIDRangeLength[]) override { return S_OK; }
    HRESULT SurvivingReferences2(ULONG cSurvivingObjectIDRanges, ObjectID objectIDRangeStart[], SIZE_T cObjectIDRangeLength[]) override { return S_OK; }

protected:
    ProfilerCallbackDefaults() = default;
    ~ProfilerCallbackDefaults() = default;
};
