// A thin ICorProfilerInfo10 over real metadata: module and function
// identifiers of its own, each mapped to a scope opened by the hosted runtime
// and a token in it. It serves only what the metadata layer asks of the
// runtime (function, module and assembly queries, runtime information); the
// metadata answers are the runtime's own. Every other call fails with
// E_NOTIMPL. All calls are counted by method name.
#pragma once

#include <map>
#include <string>

#include "CountingMetaDataImport.h"
#include "platform/AutoPointer.h"
#include "runtime/CorProfilerInfo.h"

class ProfilerInfoDouble final : public ICorProfilerInfo10 {
public:
    // One reference, the caller's.
    static ProfilerInfoDouble* newInstance();

    // Opens the assembly at path as a new module, its import wrapped in a
    // counter. Returns 0 if the runtime cannot open it.
    ModuleID addModule(const std::string& path);
    // A module whose metadata cannot be read, as for a dynamic module.
    ModuleID addUnreadableModule();
    // A function of a registered module; the id is chosen unless given.
    FunctionID addFunction(ModuleID module, mdMethodDef token, FunctionID id = 0);
    // The counting import of a module (no new reference); null if unknown.
    CountingMetaDataImport* importOf(ModuleID module) const;

    // What GetRuntimeInformation reports; Core by default.
    void setRuntimeType(COR_PRF_RUNTIME_TYPE type) { runtimeType = type; }

    int calls(const std::string& method) const;
    void resetCalls();

    HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG AddRef() override;
    ULONG Release() override;

    HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken) override;
    HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport, mdToken* pToken) override;
    HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId) override;
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override;
    HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[], AppDomainID* pAppDomainId, ModuleID* pModuleId) override;
    HRESULT GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType, USHORT* pMajorVersion, USHORT* pMinorVersion, USHORT* pBuildNumber, USHORT* pQFEVersion, ULONG cchVersionString, ULONG* pcchVersionString, WCHAR szVersionString[]) override;

    HRESULT GetClassFromObject(ObjectID objectId, ClassID* pClassId) override {
        return refuse("GetClassFromObject");
    }
    HRESULT GetClassFromToken(ModuleID moduleId, mdTypeDef typeDef, ClassID* pClassId) override {
        return refuse("GetClassFromToken");
    }
    HRESULT GetCodeInfo(FunctionID functionId, LPCBYTE* pStart, ULONG* pcSize) override {
        return refuse("GetCodeInfo");
    }
    HRESULT GetEventMask(DWORD* pdwEvents) override {
        return refuse("GetEventMask");
    }
    HRESULT GetFunctionFromIP(LPCBYTE ip, FunctionID* pFunctionId) override {
        return refuse("GetFunctionFromIP");
    }
    HRESULT GetFunctionFromToken(ModuleID moduleId, mdToken token, FunctionID* pFunctionId) override {
        return refuse("GetFunctionFromToken");
    }
    HRESULT GetHandleFromThread(ThreadID threadId, HANDLE* phThread) override {
        return refuse("GetHandleFromThread");
    }
    HRESULT GetObjectSize(ObjectID objectId, ULONG* pcSize) override {
        return refuse("GetObjectSize");
    }
    HRESULT IsArrayClass(ClassID classId, CorElementType* pBaseElemType, ClassID* pBaseClassId, ULONG* pcRank) override {
        return refuse("IsArrayClass");
    }
    HRESULT GetThreadInfo(ThreadID threadId, DWORD* pdwWin32ThreadId) override {
        return refuse("GetThreadInfo");
    }
    HRESULT GetCurrentThreadID(ThreadID* pThreadId) override {
        return refuse("GetCurrentThreadID");
    }
    HRESULT GetClassIDInfo(ClassID classId, ModuleID* pModuleId, mdTypeDef* pTypeDefToken) override {
        return refuse("GetClassIDInfo");
    }
    HRESULT SetEventMask(DWORD dwEvents) override {
        return refuse("SetEventMask");
    }
    HRESULT SetEnterLeaveFunctionHooks(FunctionEnter* pFuncEnter, FunctionLeave* pFuncLeave, FunctionTailcall* pFuncTailcall) override {
        return refuse("SetEnterLeaveFunctionHooks");
    }
    HRESULT SetFunctionIDMapper(FunctionIDMapper* pFunc) override {
        return refuse("SetFunctionIDMapper");
    }
    HRESULT GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader, ULONG* pcbMethodSize) override {
        return refuse("GetILFunctionBody");
    }
    HRESULT GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) override {
        return refuse("GetILFunctionBodyAllocator");
    }
    HRESULT SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) override {
        return refuse("SetILFunctionBody");
    }
    HRESULT GetAppDomainInfo(AppDomainID appDomainId, ULONG cchName, ULONG* pcchName, WCHAR szName[], ProcessID* pProcessId) override {
        return refuse("GetAppDomainInfo");
    }
    HRESULT SetFunctionReJIT(FunctionID functionId) override {
        return refuse("SetFunctionReJIT");
    }
    HRESULT ForceGC() override {
        return refuse("ForceGC");
    }
    HRESULT SetILInstrumentedCodeMap(FunctionID functionId, BOOL fStartJit, ULONG cILMapEntries, COR_IL_MAP rgILMapEntries[]) override {
        return refuse("SetILInstrumentedCodeMap");
    }
    HRESULT GetInprocInspectionInterface(IUnknown** ppicd) override {
        return refuse("GetInprocInspectionInterface");
    }
    HRESULT GetInprocInspectionIThisThread(IUnknown** ppicd) override {
        return refuse("GetInprocInspectionIThisThread");
    }
    HRESULT GetThreadContext(ThreadID threadId, ContextID* pContextId) override {
        return refuse("GetThreadContext");
    }
    HRESULT BeginInprocDebugging(BOOL fThisThreadOnly, DWORD* pdwProfilerContext) override {
        return refuse("BeginInprocDebugging");
    }
    HRESULT EndInprocDebugging(DWORD dwProfilerContext) override {
        return refuse("EndInprocDebugging");
    }
    HRESULT GetILToNativeMapping(FunctionID functionId, ULONG32 cMap, ULONG32* pcMap, COR_DEBUG_IL_TO_NATIVE_MAP map[]) override {
        return refuse("GetILToNativeMapping");
    }
    HRESULT DoStackSnapshot(ThreadID thread, StackSnapshotCallback* callback, ULONG32 infoFlags, void* clientData, BYTE context[], ULONG32 contextSize) override {
        return refuse("DoStackSnapshot");
    }
    HRESULT SetEnterLeaveFunctionHooks2(FunctionEnter2* pFuncEnter, FunctionLeave2* pFuncLeave, FunctionTailcall2* pFuncTailcall) override {
        return refuse("SetEnterLeaveFunctionHooks2");
    }
    HRESULT GetFunctionInfo2(FunctionID funcId, COR_PRF_FRAME_INFO frameInfo, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken, ULONG32 cTypeArgs, ULONG32* pcTypeArgs, ClassID typeArgs[]) override {
        return refuse("GetFunctionInfo2");
    }
    HRESULT GetStringLayout(ULONG* pBufferLengthOffset, ULONG* pStringLengthOffset, ULONG* pBufferOffset) override {
        return refuse("GetStringLayout");
    }
    HRESULT GetClassLayout(ClassID classID, COR_FIELD_OFFSET rFieldOffset[], ULONG cFieldOffset, ULONG* pcFieldOffset, ULONG* pulClassSize) override {
        return refuse("GetClassLayout");
    }
    HRESULT GetClassIDInfo2(ClassID classId, ModuleID* pModuleId, mdTypeDef* pTypeDefToken, ClassID* pParentClassId, ULONG32 cNumTypeArgs, ULONG32* pcNumTypeArgs, ClassID typeArgs[]) override {
        return refuse("GetClassIDInfo2");
    }
    HRESULT GetCodeInfo2(FunctionID functionID, ULONG32 cCodeInfos, ULONG32* pcCodeInfos, COR_PRF_CODE_INFO codeInfos[]) override {
        return refuse("GetCodeInfo2");
    }
    HRESULT GetClassFromTokenAndTypeArgs(ModuleID moduleID, mdTypeDef typeDef, ULONG32 cTypeArgs, ClassID typeArgs[], ClassID* pClassID) override {
        return refuse("GetClassFromTokenAndTypeArgs");
    }
    HRESULT GetFunctionFromTokenAndTypeArgs(ModuleID moduleID, mdMethodDef funcDef, ClassID classId, ULONG32 cTypeArgs, ClassID typeArgs[], FunctionID* pFunctionID) override {
        return refuse("GetFunctionFromTokenAndTypeArgs");
    }
    HRESULT EnumModuleFrozenObjects(ModuleID moduleID, ICorProfilerObjectEnum** ppEnum) override {
        return refuse("EnumModuleFrozenObjects");
    }
    HRESULT GetArrayObjectInfo(ObjectID objectId, ULONG32 cDimensions, ULONG32 pDimensionSizes[], int pDimensionLowerBounds[], BYTE** ppData) override {
        return refuse("GetArrayObjectInfo");
    }
    HRESULT GetBoxClassLayout(ClassID classId, ULONG32* pBufferOffset) override {
        return refuse("GetBoxClassLayout");
    }
    HRESULT GetThreadAppDomain(ThreadID threadId, AppDomainID* pAppDomainId) override {
        return refuse("GetThreadAppDomain");
    }
    HRESULT GetRVAStaticAddress(ClassID classId, mdFieldDef fieldToken, void** ppAddress) override {
        return refuse("GetRVAStaticAddress");
    }
    HRESULT GetAppDomainStaticAddress(ClassID classId, mdFieldDef fieldToken, AppDomainID appDomainId, void** ppAddress) override {
        return refuse("GetAppDomainStaticAddress");
    }
    HRESULT GetThreadStaticAddress(ClassID classId, mdFieldDef fieldToken, ThreadID threadId, void** ppAddress) override {
        return refuse("GetThreadStaticAddress");
    }
    HRESULT GetContextStaticAddress(ClassID classId, mdFieldDef fieldToken, ContextID contextId, void** ppAddress) override {
        return refuse("GetContextStaticAddress");
    }
    HRESULT GetStaticFieldInfo(ClassID classId, mdFieldDef fieldToken, COR_PRF_STATIC_TYPE* pFieldInfo) override {
        return refuse("GetStaticFieldInfo");
    }
    HRESULT GetGenerationBounds(ULONG cObjectRanges, ULONG* pcObjectRanges, COR_PRF_GC_GENERATION_RANGE ranges[]) override {
        return refuse("GetGenerationBounds");
    }
    HRESULT GetObjectGeneration(ObjectID objectId, COR_PRF_GC_GENERATION_RANGE* range) override {
        return refuse("GetObjectGeneration");
    }
    HRESULT GetNotifiedExceptionClauseInfo(COR_PRF_EX_CLAUSE_INFO* pinfo) override {
        return refuse("GetNotifiedExceptionClauseInfo");
    }
    HRESULT EnumJITedFunctions(ICorProfilerFunctionEnum** ppEnum) override {
        return refuse("EnumJITedFunctions");
    }
    HRESULT RequestProfilerDetach(DWORD dwExpectedCompletionMilliseconds) override {
        return refuse("RequestProfilerDetach");
    }
    HRESULT SetFunctionIDMapper2(FunctionIDMapper2* pFunc, void* clientData) override {
        return refuse("SetFunctionIDMapper2");
    }
    HRESULT GetStringLayout2(ULONG* pStringLengthOffset, ULONG* pBufferOffset) override {
        return refuse("GetStringLayout2");
    }
    HRESULT SetEnterLeaveFunctionHooks3(FunctionEnter3* pFuncEnter3, FunctionLeave3* pFuncLeave3, FunctionTailcall3* pFuncTailcall3) override {
        return refuse("SetEnterLeaveFunctionHooks3");
    }
    HRESULT SetEnterLeaveFunctionHooks3WithInfo(FunctionEnter3WithInfo* pFuncEnter3WithInfo, FunctionLeave3WithInfo* pFuncLeave3WithInfo, FunctionTailcall3WithInfo* pFuncTailcall3WithInfo) override {
        return refuse("SetEnterLeaveFunctionHooks3WithInfo");
    }
    HRESULT GetFunctionEnter3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo, COR_PRF_FRAME_INFO* pFrameInfo, ULONG* pcbArgumentInfo, COR_PRF_FUNCTION_ARGUMENT_INFO* pArgumentInfo) override {
        return refuse("GetFunctionEnter3Info");
    }
    HRESULT GetFunctionLeave3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo, COR_PRF_FRAME_INFO* pFrameInfo, COR_PRF_FUNCTION_ARGUMENT_RANGE* pRetvalRange) override {
        return refuse("GetFunctionLeave3Info");
    }
    HRESULT GetFunctionTailcall3Info(FunctionID functionId, COR_PRF_ELT_INFO eltInfo, COR_PRF_FRAME_INFO* pFrameInfo) override {
        return refuse("GetFunctionTailcall3Info");
    }
    HRESULT EnumModules(ICorProfilerModuleEnum** ppEnum) override {
        return refuse("EnumModules");
    }
    HRESULT GetThreadStaticAddress2(ClassID classId, mdFieldDef fieldToken, AppDomainID appDomainId, ThreadID threadId, void** ppAddress) override {
        return refuse("GetThreadStaticAddress2");
    }
    HRESULT GetAppDomainsContainingModule(ModuleID moduleId, ULONG32 cAppDomainIds, ULONG32* pcAppDomainIds, AppDomainID appDomainIds[]) override {
        return refuse("GetAppDomainsContainingModule");
    }
    HRESULT GetModuleInfo2(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId, DWORD* pdwModuleFlags) override {
        return refuse("GetModuleInfo2");
    }
    HRESULT EnumThreads(ICorProfilerThreadEnum** ppEnum) override {
        return refuse("EnumThreads");
    }
    HRESULT InitializeCurrentThread() override {
        return refuse("InitializeCurrentThread");
    }
    HRESULT RequestReJIT(ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[]) override {
        return refuse("RequestReJIT");
    }
    HRESULT RequestRevert(ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[], HRESULT status[]) override {
        return refuse("RequestRevert");
    }
    HRESULT GetCodeInfo3(FunctionID functionID, ReJITID reJitId, ULONG32 cCodeInfos, ULONG32* pcCodeInfos, COR_PRF_CODE_INFO codeInfos[]) override {
        return refuse("GetCodeInfo3");
    }
    HRESULT GetFunctionFromIP2(LPCBYTE ip, FunctionID* pFunctionId, ReJITID* pReJitId) override {
        return refuse("GetFunctionFromIP2");
    }
    HRESULT GetReJITIDs(FunctionID functionId, ULONG cReJitIds, ULONG* pcReJitIds, ReJITID reJitIds[]) override {
        return refuse("GetReJITIDs");
    }
    HRESULT GetILToNativeMapping2(FunctionID functionId, ReJITID reJitId, ULONG32 cMap, ULONG32* pcMap, COR_DEBUG_IL_TO_NATIVE_MAP map[]) override {
        return refuse("GetILToNativeMapping2");
    }
    HRESULT EnumJITedFunctions2(ICorProfilerFunctionEnum** ppEnum) override {
        return refuse("EnumJITedFunctions2");
    }
    HRESULT GetObjectSize2(ObjectID objectId, SIZE_T* pcSize) override {
        return refuse("GetObjectSize2");
    }
    HRESULT GetEventMask2(DWORD* pdwEventsLow, DWORD* pdwEventsHigh) override {
        return refuse("GetEventMask2");
    }
    HRESULT SetEventMask2(DWORD dwEventsLow, DWORD dwEventsHigh) override {
        return refuse("SetEventMask2");
    }
    HRESULT EnumNgenModuleMethodsInliningThisMethod(ModuleID inlinersModuleId, ModuleID inlineeModuleId, mdMethodDef inlineeMethodId, BOOL* incompleteData, ICorProfilerMethodEnum** ppEnum) override {
        return refuse("EnumNgenModuleMethodsInliningThisMethod");
    }
    HRESULT ApplyMetaData(ModuleID moduleId) override {
        return refuse("ApplyMetaData");
    }
    HRESULT GetInMemorySymbolsLength(ModuleID moduleId, DWORD* pCountSymbolBytes) override {
        return refuse("GetInMemorySymbolsLength");
    }
    HRESULT ReadInMemorySymbols(ModuleID moduleId, DWORD symbolsReadOffset, BYTE* pSymbolBytes, DWORD countSymbolBytes, DWORD* pCountSymbolBytesRead) override {
        return refuse("ReadInMemorySymbols");
    }
    HRESULT IsFunctionDynamic(FunctionID functionId, BOOL* isDynamic) override {
        return refuse("IsFunctionDynamic");
    }
    HRESULT GetFunctionFromIP3(LPCBYTE ip, FunctionID* functionId, ReJITID* pReJitId) override {
        return refuse("GetFunctionFromIP3");
    }
    HRESULT GetDynamicFunctionInfo(FunctionID functionId, ModuleID* moduleId, PCCOR_SIGNATURE* ppvSig, ULONG* pbSig, ULONG cchName, ULONG* pcchName, WCHAR wszName[]) override {
        return refuse("GetDynamicFunctionInfo");
    }
    HRESULT GetNativeCodeStartAddresses(FunctionID functionID, ReJITID reJitId, ULONG32 cCodeStartAddresses, ULONG32* pcCodeStartAddresses, UINT_PTR codeStartAddresses[]) override {
        return refuse("GetNativeCodeStartAddresses");
    }
    HRESULT GetILToNativeMapping3(UINT_PTR pNativeCodeStartAddress, ULONG32 cMap, ULONG32* pcMap, COR_DEBUG_IL_TO_NATIVE_MAP map[]) override {
        return refuse("GetILToNativeMapping3");
    }
    HRESULT GetCodeInfo4(UINT_PTR pNativeCodeStartAddress, ULONG32 cCodeInfos, ULONG32* pcCodeInfos, COR_PRF_CODE_INFO codeInfos[]) override {
        return refuse("GetCodeInfo4");
    }
    HRESULT EnumerateObjectReferences(ObjectID objectId, ObjectReferenceCallback callback, void* clientData) override {
        return refuse("EnumerateObjectReferences");
    }
    HRESULT IsFrozenObject(ObjectID objectId, BOOL* pbFrozen) override {
        return refuse("IsFrozenObject");
    }
    HRESULT GetLOHObjectSizeThreshold(DWORD* pThreshold) override {
        return refuse("GetLOHObjectSizeThreshold");
    }
    HRESULT RequestReJITWithInliners(DWORD dwRejitFlags, ULONG cFunctions, ModuleID moduleIds[], mdMethodDef methodIds[]) override {
        return refuse("RequestReJITWithInliners");
    }
    HRESULT SuspendRuntime() override {
        return refuse("SuspendRuntime");
    }
    HRESULT ResumeRuntime() override {
        return refuse("ResumeRuntime");
    }

private:
    struct Module {
        std::u16string path;
        AutoCOMPointer<CountingMetaDataImport> import;
        AssemblyID assembly = 0;
    };
    struct Function {
        ModuleID module = 0;
        mdMethodDef token = 0;
        ClassID classID = 0;
    };

    ProfilerInfoDouble() = default;
    HRESULT refuse(const char* method);
    void count(const char* method);

    ULONG references = 1;
    COR_PRF_RUNTIME_TYPE runtimeType = COR_PRF_CORE_CLR;
    ModuleID nextModule = 0x7f0000100000;
    FunctionID nextFunction = 0x7f0000800000;
    std::map<ModuleID, Module> modules;
    std::map<FunctionID, Function> functions;
    std::map<std::string, int> perMethod;
};
