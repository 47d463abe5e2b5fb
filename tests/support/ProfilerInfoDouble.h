// The offline runtime facts over real metadata, for tests: functions of its
// own mapped to a module and a token, and every call counted by method name. One reference at creation,
// the caller's; the last release deletes it.
#pragma once

#include <map>
#include <string>

#include "offline/OfflineProfilerInfo.h"

class ProfilerInfoDouble final : public OfflineProfilerInfo {
public:
    static ProfilerInfoDouble* newInstance() { return new ProfilerInfoDouble(); }

    // Opens the assembly at path as a new module. Returns 0 if the runtime
    // cannot open it.
    ModuleID addModule(const std::string& path);
    // A function of a registered module; the id is chosen unless given.
    FunctionID addFunction(ModuleID module, mdMethodDef token, FunctionID id = 0);
    using OfflineProfilerInfo::importOf;

    HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG AddRef() override { return ++references; }
    ULONG Release() override;

    HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken) override;
    HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                            mdToken* pToken) override;
    HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName,
                          WCHAR szName[], AssemblyID* pAssemblyId) override;
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override;
    HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                            AppDomainID* pAppDomainId, ModuleID* pModuleId) override;
    HRESULT GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType, USHORT* pMajorVersion,
                                  USHORT* pMinorVersion, USHORT* pBuildNumber, USHORT* pQFEVersion,
                                  ULONG cchVersionString, ULONG* pcchVersionString,
                                  WCHAR szVersionString[]) override;

private:
    struct Function {
        ModuleID module = 0;
        mdMethodDef token = 0;
        ClassID classID = 0;
    };

    ProfilerInfoDouble() = default;

    ULONG references = 1;
    FunctionID nextFunction = 0x7f0000800000;
    std::map<FunctionID, Function> functions;
};
