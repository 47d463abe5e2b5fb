// What the runtime would say of assemblies that no process has loaded: each
// assembly opened read-only through the hosted runtime's dispenser becomes a
// module of its own, with its path, its manifest name as the assembly's name,
// and its metadata. Every other query is refused.
#pragma once

#include <array>
#include <map>
#include <string>

#include "offline/RefusingProfilerInfo.h"
#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class OfflineProfilerInfo : public RefusingProfilerInfo {
public:
    using RefusingProfilerInfo::RefusingProfilerInfo;
    // 0 if the runtime cannot open the file as an assembly.
    ModuleID addModule(const std::u16string& path);
    // A module of this scope; with none, one whose metadata cannot be read yet.
    ModuleID addModule(const std::u16string& path, AutoCOMPointer<IMetaDataImport> import);
    IMetaDataImport* importOf(ModuleID module) const;
    // What GetRuntimeInformation reports: a Core runtime, of version 0.0.0
    // unless set.
    void setRuntimeVersion(USHORT major, USHORT minor, USHORT build) { version = {major, minor, build}; }

    HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName,
                          WCHAR szName[], AssemblyID* pAssemblyId) override;
    HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                            AppDomainID* pAppDomainId, ModuleID* pModuleId) override;
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override;
    HRESULT GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType, USHORT* pMajorVersion,
                                  USHORT* pMinorVersion, USHORT* pBuildNumber, USHORT* pQFEVersion,
                                  ULONG cchVersionString, ULONG* pcchVersionString,
                                  WCHAR szVersionString[]) override;

private:
    struct Module {
        std::u16string path;
        std::u16string assemblyName;
        AutoCOMPointer<IMetaDataImport> import;
    };
    // An assembly's identifier is its module's plus this.
    static constexpr AssemblyID kAssemblyOffset = 0x100;

    std::map<ModuleID, Module> modules;
    ModuleID nextModule = 0x7e0000010000;
    std::array<USHORT, 3> version {};
};
