#include "ProfilerInfoDouble.h"

#include "RealAssemblies.h"
#include "runtime/CorErrors.h"

ModuleID ProfilerInfoDouble::addModule(const std::string& path) {
    AutoCOMPointer<IMetaDataImport> real = RealAssemblies::open(path);
    if (real.get() == nullptr) {
        return 0;
    }
    return OfflineProfilerInfo::addModule(RealAssemblies::widen(path), std::move(real));
}

FunctionID ProfilerInfoDouble::addFunction(ModuleID module, mdMethodDef token, FunctionID id) {
    if (id == 0) {
        id = nextFunction;
        nextFunction += 0x40;
    }
    // One class id per module and owning type is enough for the tests; the
    // row of the method stands in for the type.
    functions[id] = Function{module, token, module + 0x8000 + RidFromToken(token)};
    return id;
}

HRESULT ProfilerInfoDouble::QueryInterface(REFIID riid, void** ppvObject) {
    count("QueryInterface");
    return OfflineProfilerInfo::QueryInterface(riid, ppvObject);
}

ULONG ProfilerInfoDouble::Release() {
    const ULONG left = --references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT ProfilerInfoDouble::GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId,
                                            mdToken* pToken) {
    count("GetFunctionInfo");
    auto found = functions.find(functionId);
    if (found == functions.end()) {
        return E_INVALIDARG;
    }
    if (pClassId != nullptr) *pClassId = found->second.classID;
    if (pModuleId != nullptr) *pModuleId = found->second.module;
    if (pToken != nullptr) *pToken = found->second.token;
    return S_OK;
}

HRESULT ProfilerInfoDouble::GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                                            mdToken* pToken) {
    count("GetTokenAndMetaDataFromFunction");
    auto found = functions.find(functionId);
    if (found == functions.end()) {
        return E_INVALIDARG;
    }
    IMetaDataImport* import = OfflineProfilerInfo::importOf(found->second.module);
    if (import == nullptr) {
        return E_FAIL;
    }
    *pToken = found->second.token;
    return import->QueryInterface(riid, reinterpret_cast<void**>(ppImport));
}

HRESULT ProfilerInfoDouble::GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName,
                                          ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId) {
    count("GetModuleInfo");
    return OfflineProfilerInfo::GetModuleInfo(moduleId, ppBaseLoadAddress, cchName, pcchName, szName, pAssemblyId);
}

HRESULT ProfilerInfoDouble::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    count("GetModuleMetaData");
    return OfflineProfilerInfo::GetModuleMetaData(moduleId, dwOpenFlags, riid, ppOut);
}

HRESULT ProfilerInfoDouble::GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                            AppDomainID* pAppDomainId, ModuleID* pModuleId) {
    count("GetAssemblyInfo");
    return OfflineProfilerInfo::GetAssemblyInfo(assemblyId, cchName, pcchName, szName, pAppDomainId, pModuleId);
}

HRESULT ProfilerInfoDouble::GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType,
                                                  USHORT* pMajorVersion, USHORT* pMinorVersion,
                                                  USHORT* pBuildNumber, USHORT* pQFEVersion, ULONG cchVersionString,
                                                  ULONG* pcchVersionString, WCHAR szVersionString[]) {
    count("GetRuntimeInformation");
    return OfflineProfilerInfo::GetRuntimeInformation(pClrInstanceId, pRuntimeType, pMajorVersion, pMinorVersion,
                                                      pBuildNumber, pQFEVersion, cchVersionString, pcchVersionString,
                                                      szVersionString);
}
