// The runtime's callback interfaces, ICorProfilerCallback to ICorProfilerCallback4,
// implemented by the profiler. Binary layouts: pure virtual methods in slot
// order, nothing else.
#pragma once

#include "runtime/CorMetadataEnums.h"
#include "runtime/FunctionControl.h"
#include "runtime/ProfilerEnums.h"
#include "runtime/Unknown.h"

struct ICorProfilerCallback : public IUnknown {
    virtual HRESULT Initialize(IUnknown* pICorProfilerInfoUnk) = 0;
    virtual HRESULT Shutdown() = 0;
    virtual HRESULT AppDomainCreationStarted(AppDomainID appDomainId) = 0;
    virtual HRESULT AppDomainCreationFinished(AppDomainID appDomainId, HRESULT hrStatus) = 0;
    virtual HRESULT AppDomainShutdownStarted(AppDomainID appDomainId) = 0;
    virtual HRESULT AppDomainShutdownFinished(AppDomainID appDomainId, HRESULT hrStatus) = 0;
    virtual HRESULT AssemblyLoadStarted(AssemblyID assemblyId) = 0;
    virtual HRESULT AssemblyLoadFinished(AssemblyID assemblyId, HRESULT hrStatus) = 0;
    virtual HRESULT AssemblyUnloadStarted(AssemblyID assemblyId) = 0;
    virtual HRESULT AssemblyUnloadFinished(AssemblyID assemblyId, HRESULT hrStatus) = 0;
    virtual HRESULT ModuleLoadStarted(ModuleID moduleId) = 0;
    virtual HRESULT ModuleLoadFinished(ModuleID moduleId, HRESULT hrStatus) = 0;
    virtual HRESULT ModuleUnloadStarted(ModuleID moduleId) = 0;
    virtual HRESULT ModuleUnloadFinished(ModuleID moduleId, HRESULT hrStatus) = 0;
    virtual HRESULT ModuleAttachedToAssembly(ModuleID moduleId, AssemblyID AssemblyId) = 0;
    virtual HRESULT ClassLoadStarted(ClassID classId) = 0;
    virtual HRESULT ClassLoadFinished(ClassID classId, HRESULT hrStatus) = 0;
    virtual HRESULT ClassUnloadStarted(ClassID classId) = 0;
    virtual HRESULT ClassUnloadFinished(ClassID classId, HRESULT hrStatus) = 0;
    virtual HRESULT FunctionUnloadStarted(FunctionID functionId) = 0;
    virtual HRESULT JITCompilationStarted(FunctionID functionId, BOOL fIsSafeToBlock) = 0;
    virtual HRESULT JITCompilationFinished(FunctionID functionId, HRESULT hrStatus, BOOL fIsSafeToBlock) = 0;
    virtual HRESULT JITCachedFunctionSearchStarted(FunctionID functionId, BOOL* pbUseCachedFunction) = 0;
    virtual HRESULT JITCachedFunctionSearchFinished(FunctionID functionId, COR_PRF_JIT_CACHE result) = 0;
    virtual HRESULT JITFunctionPitched(FunctionID functionId) = 0;
    virtual HRESULT JITInlining(FunctionID callerId, FunctionID calleeId, BOOL* pfShouldInline) = 0;
    virtual HRESULT ThreadCreated(ThreadID threadId) = 0;
    virtual HRESULT ThreadDestroyed(ThreadID threadId) = 0;
    virtual HRESULT ThreadAssignedToOSThread(ThreadID managedThreadId, DWORD osThreadId) = 0;
    virtual HRESULT RemotingClientInvocationStarted() = 0;
    virtual HRESULT RemotingClientSendingMessage(GUID* pCookie, BOOL fIsAsync) = 0;
    virtual HRESULT RemotingClientReceivingReply(GUID* pCookie, BOOL fIsAsync) = 0;
    virtual HRESULT RemotingClientInvocationFinished() = 0;
    virtual HRESULT RemotingServerReceivingMessage(GUID* pCookie, BOOL fIsAsync) = 0;
    virtual HRESULT RemotingServerInvocationStarted() = 0;
    virtual HRESULT RemotingServerInvocationReturned() = 0;
    virtual HRESULT RemotingServerSendingReply(GUID* pCookie, BOOL fIsAsync) = 0;
    virtual HRESULT UnmanagedToManagedTransition(FunctionID functionId, COR_PRF_TRANSITION_REASON reason) = 0;
    virtual HRESULT ManagedToUnmanagedTransition(FunctionID functionId, COR_PRF_TRANSITION_REASON reason) = 0;
    virtual HRESULT RuntimeSuspendStarted(COR_PRF_SUSPEND_REASON suspendReason) = 0;
    virtual HRESULT RuntimeSuspendFinished() = 0;
    virtual HRESULT RuntimeSuspendAborted() = 0;
    virtual HRESULT RuntimeResumeStarted() = 0;
    virtual HRESULT RuntimeResumeFinished() = 0;
    virtual HRESULT RuntimeThreadSuspended(ThreadID threadId) = 0;
    virtual HRESULT RuntimeThreadResumed(ThreadID threadId) = 0;
    virtual HRESULT MovedReferences(ULONG cMovedObjectIDRanges, ObjectID oldObjectIDRangeStart[],
                                    ObjectID newObjectIDRangeStart[], ULONG cObjectIDRangeLength[]) = 0;
    virtual HRESULT ObjectAllocated(ObjectID objectId, ClassID classId) = 0;
    virtual HRESULT ObjectsAllocatedByClass(ULONG cClassCount, ClassID classIds[], ULONG cObjects[]) = 0;
    virtual HRESULT ObjectReferences(ObjectID objectId, ClassID classId, ULONG cObjectRefs,
                                     ObjectID objectRefIds[]) = 0;
    virtual HRESULT RootReferences(ULONG cRootRefs, ObjectID rootRefIds[]) = 0;
    virtual HRESULT ExceptionThrown(ObjectID thrownObjectId) = 0;
    virtual HRESULT ExceptionSearchFunctionEnter(FunctionID functionId) = 0;
    virtual HRESULT ExceptionSearchFunctionLeave() = 0;
    virtual HRESULT ExceptionSearchFilterEnter(FunctionID functionId) = 0;
    virtual HRESULT ExceptionSearchFilterLeave() = 0;
    virtual HRESULT ExceptionSearchCatcherFound(FunctionID functionId) = 0;
    virtual HRESULT ExceptionOSHandlerEnter(UINT_PTR reserved) = 0;
    virtual HRESULT ExceptionOSHandlerLeave(UINT_PTR reserved) = 0;
    virtual HRESULT ExceptionUnwindFunctionEnter(FunctionID functionId) = 0;
    virtual HRESULT ExceptionUnwindFunctionLeave() = 0;
    virtual HRESULT ExceptionUnwindFinallyEnter(FunctionID functionId) = 0;
    virtual HRESULT ExceptionUnwindFinallyLeave() = 0;
    virtual HRESULT ExceptionCatcherEnter(FunctionID functionId, ObjectID objectId) = 0;
    virtual HRESULT ExceptionCatcherLeave() = 0;
    virtual HRESULT COMClassicVTableCreated(ClassID wrappedClassId, REFGUID implementedIID, void* pVTable,
                                            ULONG cSlots) = 0;
    virtual HRESULT COMClassicVTableDestroyed(ClassID wrappedClassId, REFGUID implementedIID, void* pVTable) = 0;
    virtual HRESULT ExceptionCLRCatcherFound() = 0;
    virtual HRESULT ExceptionCLRCatcherExecute() = 0;
};

struct ICorProfilerCallback2 : public ICorProfilerCallback {
    // name is not terminated: cchName units.
    virtual HRESULT ThreadNameChanged(ThreadID threadId, ULONG cchName, WCHAR name[]) = 0;
    virtual HRESULT GarbageCollectionStarted(int cGenerations, BOOL generationCollected[],
                                             COR_PRF_GC_REASON reason) = 0;
    virtual HRESULT SurvivingReferences(ULONG cSurvivingObjectIDRanges, ObjectID objectIDRangeStart[],
                                        ULONG cObjectIDRangeLength[]) = 0;
    virtual HRESULT GarbageCollectionFinished() = 0;
    virtual HRESULT FinalizeableObjectQueued(DWORD finalizerFlags, ObjectID objectID) = 0;
    virtual HRESULT RootReferences2(ULONG cRootRefs, ObjectID rootRefIds[], COR_PRF_GC_ROOT_KIND rootKinds[],
                                    COR_PRF_GC_ROOT_FLAGS rootFlags[], UINT_PTR rootIds[]) = 0;
    virtual HRESULT HandleCreated(GCHandleID handleId, ObjectID initialObjectId) = 0;
    virtual HRESULT HandleDestroyed(GCHandleID handleId) = 0;
};

struct ICorProfilerCallback3 : public ICorProfilerCallback2 {
    virtual HRESULT InitializeForAttach(IUnknown* pCorProfilerInfoUnk, void* pvClientData, UINT cbClientData) = 0;
    virtual HRESULT ProfilerAttachComplete() = 0;
    virtual HRESULT ProfilerDetachSucceeded() = 0;
};

struct ICorProfilerCallback4 : public ICorProfilerCallback3 {
    virtual HRESULT ReJITCompilationStarted(FunctionID functionId, ReJITID rejitId, BOOL fIsSafeToBlock) = 0;
    virtual HRESULT GetReJITParameters(ModuleID moduleId, mdMethodDef methodId,
                                       ICorProfilerFunctionControl* pFunctionControl) = 0;
    virtual HRESULT ReJITCompilationFinished(FunctionID functionId, ReJITID rejitId, HRESULT hrStatus,
                                             BOOL fIsSafeToBlock) = 0;
    virtual HRESULT ReJITError(ModuleID moduleId, mdMethodDef methodId, FunctionID functionId,
                               HRESULT hrStatus) = 0;
    // Called before MovedReferences, which follows only if this one succeeded.
    virtual HRESULT MovedReferences2(ULONG cMovedObjectIDRanges, ObjectID oldObjectIDRangeStart[],
                                     ObjectID newObjectIDRangeStart[], SIZE_T cObjectIDRangeLength[]) = 0;
    virtual HRESULT SurvivingReferences2(ULONG cSurvivingObjectIDRanges, ObjectID objectIDRangeStart[],
                                         SIZE_T cObjectIDRangeLength[]) = 0;
};
