// The runtime's ICorProfilerInfo chain, up to ICorProfilerInfo10, where no
// runtime runs the profiler: in tests and in offline tools. Every slot counts
// its calls and fails with E_NOTIMPL, except the few served here:
// QueryInterface (for the versions offered), reference counting, and
// SetEventMask (which records the mask). A user that needs more derives from it
// and overrides the slot it serves.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "runtime/CorProfilerInfo.h"

class RefusingProfilerInfo : public ICorProfilerInfo10 {
public:
    // Offers IUnknown and ICorProfilerInfo up to version highestVersion (1..10).
    explicit RefusingProfilerInfo(int highestVersion = 10);
    virtual ~RefusingProfilerInfo() = default;

    HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT SetEventMask(DWORD dwEvents) override;

    // Calls of a slot by name, and of all slots but the IUnknown ones.
    int calls(const std::string& name) const;
    int totalCalls() const;
    void resetCalls() { callCounts.clear(); }
    // Interfaces asked for by QueryInterface, in order, answered or not.
    const std::vector<IID>& queried() const { return queriedInterfaces; }
    ULONG references() const { return referenceCount; }
    DWORD lastEventMask() const { return eventMask; }
    HRESULT setEventMaskResult = S_OK;

    HRESULT GetClassFromObject(ObjectID objectId, ClassID* pClassId) override { return fail("GetClassFromObject"); }
    HRESULT GetClassFromToken(ModuleID moduleId, mdTypeDef typeDef, ClassID* pClassId) override { return fail("GetClassFromToken"); }
    HRESULT GetCodeInfo(FunctionID functionId, LPCBYTE* pStart, ULONG* pcSize) override { return fail("GetCodeInfo"); }
    HRESULT GetEventMask(DWORD* pdwEvents) override { return fail("GetEventMask"); }
    HRESULT GetFunctionFromIP(LPCBYTE ip, FunctionID* pFunctionId) override { return fail("GetFunctionFromIP"); }
    HRESULT GetFunctionFromToken(ModuleID moduleId, mdToken token, FunctionID* pFunctionId) override { return fail("GetFunctionFromToken"); }
    HRESULT GetHandleFromThread(ThreadID threadId, HANDLE* phThread) override { return fail("GetHandleFromThread"); }
    HRESULT GetObjectSize(ObjectID objectId, ULONG* pcSize) override { return fail("GetObjectSize"); }
    HRESULT IsArrayClass(ClassID classId, CorElementType* pBaseElemType, ClassID* pBaseClassId, ULONG* pcRank) override { return fail("IsArrayClass"); }
    HRESULT GetThreadInfo(ThreadID threadId, DWORD* pdwWin32ThreadId) override { return fail("GetThreadInfo"); }
    HRESULT GetCurrentThreadID(ThreadID* pThreadId) override { return fail("GetCurrentThreadID"); }
    HRESULT GetClassIDInfo(ClassID classId, ModuleID* pModuleId, mdTypeDef* pTypeDefToken) override { return fail("GetClassIDInfo"); }
    HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken) override { return fail("GetFunctionInfo"); }
    HRESULT SetEnterLeaveFunctionHooks(FunctionEnter* pFuncEnter, FunctionLeave* pFuncLeave, FunctionTailcall* pFuncTailcall) override { return fail("SetEnterLeaveFunctionHooks"); }
    HRESULT SetFunctionIDMapper(FunctionIDMapper* pFunc) override { return fail("SetFunctionIDMapper"); }
    HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport, mdToken* pToken) override { return fail("GetTokenAndMetaDataFromFunction"); }
    HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId) override { return fail("GetModuleInfo"); }
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override { return fail("GetModuleMetaData"); }
    HRESULT GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader, ULONG* pcbMethodSize) override { return fail("GetILFunctionBody"); }
    HRESULT GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) override { return fail("GetILFunctionBodyAllocator"); }
    HRESULT SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) override { return fail("SetILFunctionBody"); }
    HRESULT GetAppDomainInfo(AppDomainID appDomainId, ULONG cchName, ULONG* pcchName, WCHAR szName[], ProcessID* pProcessId) override { return fail("GetAppDomainInfo"); }
    HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[], AppDomainID* pAppDomainId, ModuleID* pModuleId) override { return fail("GetAssemblyInfo"); }
    HRESULT SetFunctionReJIT(FunctionID functionId) override { return fail("SetFunctionReJIT"); }
    HRESULT ForceGC() override { return fail("ForceGC"); }
    HRESULT SetILInstrumentedCodeMap(FunctionID functionId, BOOL fStartJit, ULONG cILMapEntries, COR_IL_MAP rgILMapEntries[]) override { return fail("SetILInstrumentedCodeMap"); }
    HRESULT GetInprocInspectionInterface(IUnknown** ppicd) override { return fail("GetInprocInspectionInterface"); }
    HRESULT GetInprocInspectionIThisThread(IUnknown** ppicd) override { return fail("GetInprocInspectionIThisThread"); }
    HRESULT GetThreadContext(ThreadID threadId, ContextID* pContextId) override { return fail("GetThreadContext"); }
    HRESULT BeginInprocDebugging(BOOL fThisThreadOnly, DWORD* pdwProfilerContext) override { return fail("BeginInprocDebugging"); }
    HRESULT EndInprocDebugging(DWORD dwProfilerContext) override { return fail("EndInprocDebugging"); }
    HRESULT GetILToNativeMapping(FunctionID functionId, ULONG32 cMap, ULONG32* pcMap, COR_DEBUG_IL_TO_NATIVE_MAP map[]) override { return fail("GetILToNativeMapping"); }
    HRESULT DoStackSnapshot(ThreadID thread, StackSnapshotCallback* callback, ULONG32 infoFlags, void* clientData, BYTE context[], ULONG32 contextSize) override { return fail("DoStackSnapshot"); }
    HRESULT SetEnterLeaveFunctionHooks2(FunctionEnter2* pFuncEnter, FunctionLeave2* pFuncLeave, FunctionTailcall2* pFuncTailcall) override { return fail("SetEnterLeaveFunctionHooks2"); }
    HRESULT GetFunctionInfo2(FunctionID funcId, COR_PRF_FRAME_INFO frameInfo, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken, ULONG32 cTypeArgs, ULONG32* pcTypeArgs, ClassID typeArgs[]) override { return fail("GetFunctionInfo2"); }
    HRESULT GetStringLayout(ULONG* pBufferLengthOffset, ULONG* pStringLengthOffset, ULONG* pBufferOffset) override { return fail("GetStringLayout"); }
    HRESULT GetClassLayout(ClassID classID, COR_FIELD_OFFSET rFieldOffset[], ULONG cFieldOffset, ULONG* pcFieldOffset, ULONG* pulClassSize) override { return fail("GetClassLayout"); }
    HRESULT GetClassIDInfo2(ClassID classId, ModuleID* pModuleId, mdTypeDef* pTypeDefToken, ClassID* pParentClassId, ULONG32 cNumTypeArgs, ULONG32* pcNumTypeArgs, ClassID typeArgs[]) override { return fail("GetClassIDInfo2"); }
    HRESULT GetCodeInfo2(FunctionID functionID, ULONG32 cCodeInfos, ULONG32* pcCodeInfos, COR_PRF_CODE_INFO codeInfos[]) override { return fail("GetCodeInfo2"); }
    HRESULT GetClassFromTokenAndTypeArgs(ModuleID moduleID, mdTypeDef typeDef, ULONG32 cTypeArgs, ClassID typeArgs[], ClassID* pClassID) override { return fail("GetClassFromTokenAndTypeArgs"); }
    HRESULT GetFunctionFromTokenAndTypeArgs(ModuleID moduleID, mdMethodDef funcDef, ClassID classId, ULONG32 cTypeArgs, ClassID typeArgs[], FunctionID* pFunctionID) override { return fail("GetFunctionFromTokenAndTypeArgs"); }
    HRESULT EnumModuleFrozenObjects(ModuleID moduleID, ICorProfilerObjectEnum** ppEnum) override { return fail("EnumModuleFrozenObjects"); }
    HRESULT GetArrayObjectInfo(ObjectID objectId, ULONG32 cDimensions, ULONG32 pDimensionSizes[], int pDimensionLowerBounds[], BYTE** ppData) override { return fail("GetArrayObjectInfo"); }
    HRESULT GetBoxClassLayout(ClassID classId, ULONG32* pBufferOffset) override { return fail("GetBoxClassLayout"); }
    HRESULT GetThreadAppDomain(ThreadID threadId, AppDomainID* pAppDomainId) override { return fail("GetThreadAppDomain"); }
    HRESULT GetRVAStaticAddress(ClassID classId, mdFieldDef fieldToken, void** ppAddress) override { return fail("GetRVAStaticAddress"); }
    HRESULT GetAppDomainStaticAddress(ClassID classId, mdFieldDef fieldToken, AppDomainID appDomainId, void** ppAddress) override { return fail("GetAppDomainStaticAddress"); }
    HRESULT GetThreadStaticAddress(ClassID classId, mdFieldDef fieldToken, ThreadID threadId, void** ppAddress) override { return fail("GetThreadStaticAddress"); }
    HRESULT GetContextStaticAddress(ClassID classId, mdFieldDef fieldToken, ContextID contextId, void** ppAddress) override { return fail("GetContextStaticAddress"); }
    HRESULT GetStaticFieldInfo(ClassID classId, mdFieldDef fieldToken, COR_PRF_STATIC_TYPE* pFieldInfo) override { return fail("GetStaticFieldInfo"); }
    HRESULT GetGenerationBounds(ULONG cObjectRanges, ULONG* pcObjectRanges, COR_PRF_GC_GENERATION_RANGE ranges[]) override { return fail("GetGenerationBounds"); }
    HRESULT GetObjectGeneration(ObjectID objectId, COR_PRF_GC_GENERATION_RANGE* range) override { return fail("GetObjectGeneration"); }
    HRESULT GetNotifiedExceptionClauseInfo(COR_PRF_EX_CLAUSE_INFO* pinfo) override { return fail("GetNotifiedExceptionClauseInfo"); }
    HRESULT EnumJITedFunctions(ICorProfilerFunctionEnum** ppEnum) override { return fail("EnumJITedFunctions"); }
    HRESULT RequestProfilerDetach(DWORD dwExpectedCompletionMilliseconds) override { return fail("RequestProfilerDetach"); }
    HRESULT SetFunctionIDMapper2(FunctionIDMapper2* pFunc, void* clientData) override { return fail("SetFunctionIDMapper2"); }
    HRESULT GetStringLayout2(ULONG* pStringLengthOffset, ULONG* pBufferOffset) override { return fail("GetStringLayout2"); }
    HRESULT SetEnterLeaveFunctionHooks3(FunctionEnter3* pFuncEnter3, FunctionLeave3* pFuncLeave3, FunctionTailcall3* pFuncTailcall3) override { return fail("SetEnterLeaveFunctionHooks3"); }
    HRESULT SetEnterLeaveFunctionHooks3WithInfo(FunctionEnter3WithInfo* pFuncEnter3WithInfo, FunctionLeave3WithInfo* pFuncLeave3WithInfo, FunctionTailcall3WithInfo* pFuncTailcall3WithInfo) override { return fail("SetEnterLeaveFunctionHooks3WithInfo"); }
    HRESULT GetFunctionEnter3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo, COR_PRF_FRAME_INFO* pFrameInfo, ULONG* pcbArgumentInfo, COR_PRF_FUNCTION_ARGUMENT_INFO* pArgumentInfo) override { return fail("GetFunctionEnter3Info"); }
    HRESULT GetFunctionLeave3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo, COR_PRF_FRAME_INFO* pFrameInfo, COR_PRF_FUNCTION_ARGUMENT_RANGE* pRetvalRange) override { return fail("GetFunctionLeave3Info"); }
    HRESULT GetFunctionTailcall3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo, COR_PRF_FRAME_INFO* pFrameInfo) override { return fail("GetFunctionTailcall3Info"); }
    HRESULT EnumModules(ICorProfilerModuleEnum** ppEnum) override { return fail("EnumModules"); }
    HRESULT GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType, USHORT* pMajorVersion, USHORT* pMinorVersion, USHORT* pBuildNumber, USHORT* pQFEVersion, ULONG cchVersionString, ULONG* pcchVersionString, WCHAR szVersionString[]) override { return fail("GetRuntimeInformation"); }
    HRESULT GetThreadStaticAddress2(ClassID classId, mdFieldDef fieldToken, AppDomainID appDomainId, ThreadID threadId, void** ppAddress) override { return fail("GetThreadStaticAddress2"); }
    HRESULT GetAppDomainsContainingModule(ModuleID moduleId, ULONG32 cAppDomainIds, ULONG32* pcAppDomainIds, AppDomainID appDomainIds[]) override { return fail("GetAppDomainsContainingModule"); }
    HRESULT GetModuleInfo2(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId, DWORD* pdwModuleFlags) override { return fail("GetModuleInfo2"); }
    HRESULT EnumThreads(ICorProfilerThreadEnum** ppEnum) override { return fail("EnumThreads"); }
    HRESULT InitializeCurrentThread() override { return fail("InitializeCurrentThread"); }
    HRESULT RequestReJIT(ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[]) override { return fail("RequestReJIT"); }
    HRESULT RequestRevert(ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[], HRESULT status[]) override { return fail("RequestRevert"); }
    HRESULT GetCodeInfo3(FunctionID functionID, ReJITID reJitId, ULONG32 cCodeInfos, ULONG32* pcCodeInfos, COR_PRF_CODE_INFO codeInfos[]) override { return fail("GetCodeInfo3"); }
    HRESULT GetFunctionFromIP2(LPCBYTE ip, FunctionID* pFunctionId, ReJITID* pReJitId) override { return fail("GetFunctionFromIP2"); }
    HRESULT GetReJITIDs(FunctionID functionId, ULONG cReJitIds, ULONG* pcReJitIds, ReJITID reJitIds[]) override { return fail("GetReJITIDs"); }
    HRESULT GetILToNativeMapping2(FunctionID functionId, ReJITID reJitId, ULONG32 cMap, ULONG32* pcMap, COR_DEBUG_IL_TO_NATIVE_MAP map[]) override { return fail("GetILToNativeMapping2"); }
    HRESULT EnumJITedFunctions2(ICorProfilerFunctionEnum** ppEnum) override { return fail("EnumJITedFunctions2"); }
    HRESULT GetObjectSize2(ObjectID objectId, SIZE_T* pcSize) override { return fail("GetObjectSize2"); }
    HRESULT GetEventMask2(DWORD* pdwEventsLow, DWORD* pdwEventsHigh) override { return fail("GetEventMask2"); }
    HRESULT SetEventMask2(DWORD dwEventsLow, DWORD dwEventsHigh) override { return fail("SetEventMask2"); }
    HRESULT EnumNgenModuleMethodsInliningThisMethod(ModuleID inlinersModuleId, ModuleID inlineeModuleId, mdMethodDef inlineeMethodId, BOOL* incompleteData, ICorProfilerMethodEnum** ppEnum) override { return fail("EnumNgenModuleMethodsInliningThisMethod"); }
    HRESULT ApplyMetaData(ModuleID moduleId) override { return fail("ApplyMetaData"); }
    HRESULT GetInMemorySymbolsLength(ModuleID moduleId, DWORD* pCountSymbolBytes) override { return fail("GetInMemorySymbolsLength"); }
    HRESULT ReadInMemorySymbols(ModuleID moduleId, DWORD symbolsReadOffset, BYTE* pSymbolBytes, DWORD countSymbolBytes, DWORD* pCountSymbolBytesRead) override { return fail("ReadInMemorySymbols"); }
    HRESULT IsFunctionDynamic(FunctionID functionId, BOOL* isDynamic) override { return fail("IsFunctionDynamic"); }
    HRESULT GetFunctionFromIP3(LPCBYTE ip, FunctionID* functionId, ReJITID* pReJitId) override { return fail("GetFunctionFromIP3"); }
    HRESULT GetDynamicFunctionInfo(FunctionID functionId, ModuleID* moduleId, PCCOR_SIGNATURE* ppvSig, ULONG* pbSig, ULONG cchName, ULONG* pcchName, WCHAR wszName[]) override { return fail("GetDynamicFunctionInfo"); }
    HRESULT GetNativeCodeStartAddresses(FunctionID functionID, ReJITID reJitId, ULONG32 cCodeStartAddresses, ULONG32* pcCodeStartAddresses, UINT_PTR codeStartAddresses[]) override { return fail("GetNativeCodeStartAddresses"); }
    HRESULT GetILToNativeMapping3(UINT_PTR pNativeCodeStartAddress, ULONG32 cMap, ULONG32* pcMap, COR_DEBUG_IL_TO_NATIVE_MAP map[]) override { return fail("GetILToNativeMapping3"); }
    HRESULT GetCodeInfo4(UINT_PTR pNativeCodeStartAddress, ULONG32 cCodeInfos, ULONG32* pcCodeInfos, COR_PRF_CODE_INFO codeInfos[]) override { return fail("GetCodeInfo4"); }
    HRESULT EnumerateObjectReferences(ObjectID objectId, ObjectReferenceCallback callback, void* clientData) override { return fail("EnumerateObjectReferences"); }
    HRESULT IsFrozenObject(ObjectID objectId, BOOL* pbFrozen) override { return fail("IsFrozenObject"); }
    HRESULT GetLOHObjectSizeThreshold(DWORD* pThreshold) override { return fail("GetLOHObjectSizeThreshold"); }
    HRESULT RequestReJITWithInliners(DWORD dwRejitFlags, ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[]) override { return fail("RequestReJITWithInliners"); }
    HRESULT SuspendRuntime() override { return fail("SuspendRuntime"); }
    HRESULT ResumeRuntime() override { return fail("ResumeRuntime"); }

protected:
    [[nodiscard]] HRESULT fail(const char* name);
    void count(const char* name);

private:
    int highestVersion;
    ULONG referenceCount = 0;
    DWORD eventMask = 0;
    std::map<std::string, int> callCounts;
    std::vector<IID> queriedInterfaces;
};
