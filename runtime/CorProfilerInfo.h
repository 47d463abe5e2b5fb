// The runtime's profiling services, ICorProfilerInfo to ICorProfilerInfo10, as
// one inheritance chain. Every slot is declared, used or not, so that the later
// methods (ApplyMetaData, SuspendRuntime, ResumeRuntime) sit where the runtime
// has them. Binary layouts: pure virtual methods in slot order, nothing else.
#pragma once

#include "runtime/CorMetadataEnums.h"
#include "runtime/MetaDataStructs.h"
#include "runtime/MethodMalloc.h"
#include "runtime/ProfilerEnumerators.h"
#include "runtime/ProfilerStructs.h"
#include "runtime/Unknown.h"

struct ICorProfilerInfo : public IUnknown {
    virtual HRESULT GetClassFromObject(ObjectID objectId, ClassID* pClassId) = 0;
    virtual HRESULT GetClassFromToken(ModuleID moduleId, mdTypeDef typeDef, ClassID* pClassId) = 0;
    virtual HRESULT GetCodeInfo(FunctionID functionId, LPCBYTE* pStart, ULONG* pcSize) = 0;
    virtual HRESULT GetEventMask(DWORD* pdwEvents) = 0;
    virtual HRESULT GetFunctionFromIP(LPCBYTE ip, FunctionID* pFunctionId) = 0;
    virtual HRESULT GetFunctionFromToken(ModuleID moduleId, mdToken token, FunctionID* pFunctionId) = 0;
    virtual HRESULT GetHandleFromThread(ThreadID threadId, HANDLE* phThread) = 0;
    virtual HRESULT GetObjectSize(ObjectID objectId, ULONG* pcSize) = 0;
    virtual HRESULT IsArrayClass(ClassID classId, CorElementType* pBaseElemType, ClassID* pBaseClassId,
                                 ULONG* pcRank) = 0;
    virtual HRESULT GetThreadInfo(ThreadID threadId, DWORD* pdwWin32ThreadId) = 0;
    virtual HRESULT GetCurrentThreadID(ThreadID* pThreadId) = 0;
    virtual HRESULT GetClassIDInfo(ClassID classId, ModuleID* pModuleId, mdTypeDef* pTypeDefToken) = 0;
    virtual HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId,
                                    mdToken* pToken) = 0;
    virtual HRESULT SetEventMask(DWORD dwEvents) = 0;
    virtual HRESULT SetEnterLeaveFunctionHooks(FunctionEnter* pFuncEnter, FunctionLeave* pFuncLeave,
                                               FunctionTailcall* pFuncTailcall) = 0;
    virtual HRESULT SetFunctionIDMapper(FunctionIDMapper* pFunc) = 0;
    virtual HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                                    mdToken* pToken) = 0;
    // The base address comes before the name; the assembly is known only after
    // ModuleAttachedToAssembly.
    virtual HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName,
                                  WCHAR szName[], AssemblyID* pAssemblyId) = 0;
    virtual HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) = 0;
    // Points at the runtime's own copy of the header; nothing is copied.
    virtual HRESULT GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader,
                                      ULONG* pcbMethodSize) = 0;
    virtual HRESULT GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) = 0;
    // No size: the body is described by its own header.
    virtual HRESULT SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) = 0;
    virtual HRESULT GetAppDomainInfo(AppDomainID appDomainId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                     ProcessID* pProcessId) = 0;
    virtual HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                    AppDomainID* pAppDomainId, ModuleID* pModuleId) = 0;
    virtual HRESULT SetFunctionReJIT(FunctionID functionId) = 0;
    virtual HRESULT ForceGC() = 0;
    virtual HRESULT SetILInstrumentedCodeMap(FunctionID functionId, BOOL fStartJit, ULONG cILMapEntries,
                                             COR_IL_MAP rgILMapEntries[]) = 0;
    virtual HRESULT GetInprocInspectionInterface(IUnknown** ppicd) = 0;
    virtual HRESULT GetInprocInspectionIThisThread(IUnknown** ppicd) = 0;
    virtual HRESULT GetThreadContext(ThreadID threadId, ContextID* pContextId) = 0;
    virtual HRESULT BeginInprocDebugging(BOOL fThisThreadOnly, DWORD* pdwProfilerContext) = 0;
    virtual HRESULT EndInprocDebugging(DWORD dwProfilerContext) = 0;
    virtual HRESULT GetILToNativeMapping(FunctionID functionId, ULONG32 cMap, ULONG32* pcMap,
                                         COR_DEBUG_IL_TO_NATIVE_MAP map[]) = 0;
};

struct ICorProfilerInfo2 : public ICorProfilerInfo {
    // The context array comes before its size here, after it in the callback.
    virtual HRESULT DoStackSnapshot(ThreadID thread, StackSnapshotCallback* callback, ULONG32 infoFlags,
                                    void* clientData, BYTE context[], ULONG32 contextSize) = 0;
    virtual HRESULT SetEnterLeaveFunctionHooks2(FunctionEnter2* pFuncEnter, FunctionLeave2* pFuncLeave,
                                                FunctionTailcall2* pFuncTailcall) = 0;
    virtual HRESULT GetFunctionInfo2(FunctionID funcId, COR_PRF_FRAME_INFO frameInfo, ClassID* pClassId,
                                     ModuleID* pModuleId, mdToken* pToken, ULONG32 cTypeArgs, ULONG32* pcTypeArgs,
                                     ClassID typeArgs[]) = 0;
    virtual HRESULT GetStringLayout(ULONG* pBufferLengthOffset, ULONG* pStringLengthOffset,
                                    ULONG* pBufferOffset) = 0;
    virtual HRESULT GetClassLayout(ClassID classID, COR_FIELD_OFFSET rFieldOffset[], ULONG cFieldOffset,
                                   ULONG* pcFieldOffset, ULONG* pulClassSize) = 0;
    virtual HRESULT GetClassIDInfo2(ClassID classId, ModuleID* pModuleId, mdTypeDef* pTypeDefToken,
                                    ClassID* pParentClassId, ULONG32 cNumTypeArgs, ULONG32* pcNumTypeArgs,
                                    ClassID typeArgs[]) = 0;
    virtual HRESULT GetCodeInfo2(FunctionID functionID, ULONG32 cCodeInfos, ULONG32* pcCodeInfos,
                                 COR_PRF_CODE_INFO codeInfos[]) = 0;
    virtual HRESULT GetClassFromTokenAndTypeArgs(ModuleID moduleID, mdTypeDef typeDef, ULONG32 cTypeArgs,
                                                 ClassID typeArgs[], ClassID* pClassID) = 0;
    virtual HRESULT GetFunctionFromTokenAndTypeArgs(ModuleID moduleID, mdMethodDef funcDef, ClassID classId,
                                                    ULONG32 cTypeArgs, ClassID typeArgs[],
                                                    FunctionID* pFunctionID) = 0;
    virtual HRESULT EnumModuleFrozenObjects(ModuleID moduleID, ICorProfilerObjectEnum** ppEnum) = 0;
    virtual HRESULT GetArrayObjectInfo(ObjectID objectId, ULONG32 cDimensions, ULONG32 pDimensionSizes[],
                                       int pDimensionLowerBounds[], BYTE** ppData) = 0;
    virtual HRESULT GetBoxClassLayout(ClassID classId, ULONG32* pBufferOffset) = 0;
    virtual HRESULT GetThreadAppDomain(ThreadID threadId, AppDomainID* pAppDomainId) = 0;
    virtual HRESULT GetRVAStaticAddress(ClassID classId, mdFieldDef fieldToken, void** ppAddress) = 0;
    virtual HRESULT GetAppDomainStaticAddress(ClassID classId, mdFieldDef fieldToken, AppDomainID appDomainId,
                                              void** ppAddress) = 0;
    virtual HRESULT GetThreadStaticAddress(ClassID classId, mdFieldDef fieldToken, ThreadID threadId,
                                           void** ppAddress) = 0;
    virtual HRESULT GetContextStaticAddress(ClassID classId, mdFieldDef fieldToken, ContextID contextId,
                                            void** ppAddress) = 0;
    virtual HRESULT GetStaticFieldInfo(ClassID classId, mdFieldDef fieldToken, COR_PRF_STATIC_TYPE* pFieldInfo) = 0;
    virtual HRESULT GetGenerationBounds(ULONG cObjectRanges, ULONG* pcObjectRanges,
                                        COR_PRF_GC_GENERATION_RANGE ranges[]) = 0;
    virtual HRESULT GetObjectGeneration(ObjectID objectId, COR_PRF_GC_GENERATION_RANGE* range) = 0;
    virtual HRESULT GetNotifiedExceptionClauseInfo(COR_PRF_EX_CLAUSE_INFO* pinfo) = 0;
};

struct ICorProfilerInfo3 : public ICorProfilerInfo2 {
    virtual HRESULT EnumJITedFunctions(ICorProfilerFunctionEnum** ppEnum) = 0;
    virtual HRESULT RequestProfilerDetach(DWORD dwExpectedCompletionMilliseconds) = 0;
    virtual HRESULT SetFunctionIDMapper2(FunctionIDMapper2* pFunc, void* clientData) = 0;
    virtual HRESULT GetStringLayout2(ULONG* pStringLengthOffset, ULONG* pBufferOffset) = 0;
    virtual HRESULT SetEnterLeaveFunctionHooks3(FunctionEnter3* pFuncEnter3, FunctionLeave3* pFuncLeave3,
                                                FunctionTailcall3* pFuncTailcall3) = 0;
    virtual HRESULT SetEnterLeaveFunctionHooks3WithInfo(FunctionEnter3WithInfo* pFuncEnter3WithInfo,
                                                        FunctionLeave3WithInfo* pFuncLeave3WithInfo,
                                                        FunctionTailcall3WithInfo* pFuncTailcall3WithInfo) = 0;
    virtual HRESULT GetFunctionEnter3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo,
                                          COR_PRF_FRAME_INFO* pFrameInfo, ULONG* pcbArgumentInfo,
                                          COR_PRF_FUNCTION_ARGUMENT_INFO* pArgumentInfo) = 0;
    virtual HRESULT GetFunctionLeave3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo,
                                          COR_PRF_FRAME_INFO* pFrameInfo,
                                          COR_PRF_FUNCTION_ARGUMENT_RANGE* pRetvalRange) = 0;
    virtual HRESULT GetFunctionTailcall3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo,
                                             COR_PRF_FRAME_INFO* pFrameInfo) = 0;
    virtual HRESULT EnumModules(ICorProfilerModuleEnum** ppEnum) = 0;
    // Any argument may be null, but pcchVersionString must be given with szVersionString.
    virtual HRESULT GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType,
                                          USHORT* pMajorVersion, USHORT* pMinorVersion, USHORT* pBuildNumber,
                                          USHORT* pQFEVersion, ULONG cchVersionString, ULONG* pcchVersionString,
                                          WCHAR szVersionString[]) = 0;
    virtual HRESULT GetThreadStaticAddress2(ClassID classId, mdFieldDef fieldToken, AppDomainID appDomainId,
                                            ThreadID threadId, void** ppAddress) = 0;
    virtual HRESULT GetAppDomainsContainingModule(ModuleID moduleId, ULONG32 cAppDomainIds,
                                                  ULONG32* pcAppDomainIds, AppDomainID appDomainIds[]) = 0;
    virtual HRESULT GetModuleInfo2(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName,
                                   WCHAR szName[], AssemblyID* pAssemblyId, DWORD* pdwModuleFlags) = 0;
};

struct ICorProfilerInfo4 : public ICorProfilerInfo3 {
    virtual HRESULT EnumThreads(ICorProfilerThreadEnum** ppEnum) = 0;
    virtual HRESULT InitializeCurrentThread() = 0;
    virtual HRESULT RequestReJIT(ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[]) = 0;
    virtual HRESULT RequestRevert(ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[],
                                  HRESULT status[]) = 0;
    virtual HRESULT GetCodeInfo3(FunctionID functionID, ReJITID reJitId, ULONG32 cCodeInfos, ULONG32* pcCodeInfos,
                                 COR_PRF_CODE_INFO codeInfos[]) = 0;
    virtual HRESULT GetFunctionFromIP2(LPCBYTE ip, FunctionID* pFunctionId, ReJITID* pReJitId) = 0;
    virtual HRESULT GetReJITIDs(FunctionID functionId, ULONG cReJitIds, ULONG* pcReJitIds, ReJITID reJitIds[]) = 0;
    virtual HRESULT GetILToNativeMapping2(FunctionID functionId, ReJITID reJitId, ULONG32 cMap, ULONG32* pcMap,
                                          COR_DEBUG_IL_TO_NATIVE_MAP map[]) = 0;
    virtual HRESULT EnumJITedFunctions2(ICorProfilerFunctionEnum** ppEnum) = 0;
    virtual HRESULT GetObjectSize2(ObjectID objectId, SIZE_T* pcSize) = 0;
};

struct ICorProfilerInfo5 : public ICorProfilerInfo4 {
    virtual HRESULT GetEventMask2(DWORD* pdwEventsLow, DWORD* pdwEventsHigh) = 0;
    virtual HRESULT SetEventMask2(DWORD dwEventsLow, DWORD dwEventsHigh) = 0;
};

struct ICorProfilerInfo6 : public ICorProfilerInfo5 {
    virtual HRESULT EnumNgenModuleMethodsInliningThisMethod(ModuleID inlinersModuleId, ModuleID inlineeModuleId,
                                                            mdMethodDef inlineeMethodId, BOOL* incompleteData,
                                                            ICorProfilerMethodEnum** ppEnum) = 0;
};

struct ICorProfilerInfo7 : public ICorProfilerInfo6 {
    // Publishes metadata changes made after ModuleLoadFinished.
    virtual HRESULT ApplyMetaData(ModuleID moduleId) = 0;
    virtual HRESULT GetInMemorySymbolsLength(ModuleID moduleId, DWORD* pCountSymbolBytes) = 0;
    virtual HRESULT ReadInMemorySymbols(ModuleID moduleId, DWORD symbolsReadOffset, BYTE* pSymbolBytes,
                                        DWORD countSymbolBytes, DWORD* pCountSymbolBytesRead) = 0;
};

struct ICorProfilerInfo8 : public ICorProfilerInfo7 {
    virtual HRESULT IsFunctionDynamic(FunctionID functionId, BOOL* isDynamic) = 0;
    virtual HRESULT GetFunctionFromIP3(LPCBYTE ip, FunctionID* functionId, ReJITID* pReJitId) = 0;
    virtual HRESULT GetDynamicFunctionInfo(FunctionID functionId, ModuleID* moduleId, PCCOR_SIGNATURE* ppvSig,
                                           ULONG* pbSig, ULONG cchName, ULONG* pcchName, WCHAR wszName[]) = 0;
};

struct ICorProfilerInfo9 : public ICorProfilerInfo8 {
    virtual HRESULT GetNativeCodeStartAddresses(FunctionID functionID, ReJITID reJitId, ULONG32 cCodeStartAddresses,
                                                ULONG32* pcCodeStartAddresses, UINT_PTR codeStartAddresses[]) = 0;
    virtual HRESULT GetILToNativeMapping3(UINT_PTR pNativeCodeStartAddress, ULONG32 cMap, ULONG32* pcMap,
                                          COR_DEBUG_IL_TO_NATIVE_MAP map[]) = 0;
    virtual HRESULT GetCodeInfo4(UINT_PTR pNativeCodeStartAddress, ULONG32 cCodeInfos, ULONG32* pcCodeInfos,
                                 COR_PRF_CODE_INFO codeInfos[]) = 0;
};

struct ICorProfilerInfo10 : public ICorProfilerInfo9 {
    virtual HRESULT EnumerateObjectReferences(ObjectID objectId, ObjectReferenceCallback callback,
                                              void* clientData) = 0;
    virtual HRESULT IsFrozenObject(ObjectID objectId, BOOL* pbFrozen) = 0;
    virtual HRESULT GetLOHObjectSizeThreshold(DWORD* pThreshold) = 0;
    virtual HRESULT RequestReJITWithInliners(DWORD dwRejitFlags, ULONG cFunctions, ModuleID moduleIds[],
                                             mdMethodDef methodIds[]) = 0;
    // Stops managed threads without a garbage collection.
    virtual HRESULT SuspendRuntime() = 0;
    virtual HRESULT ResumeRuntime() = 0;
};
