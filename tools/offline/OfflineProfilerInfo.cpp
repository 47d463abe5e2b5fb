#include "offline/OfflineProfilerInfo.h"

#include <algorithm>

#include "offline/HostedRuntime.h"
#include "platform/TextConversion.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

namespace {

// The runtime's way of handing out a name: the length with the terminator,
// and as much as fits.
void copyName(const std::u16string& name, ULONG size, ULONG* length, WCHAR* buffer) {
    if (length != nullptr) {
        *length = static_cast<ULONG>(name.size() + 1);
    }
    if (buffer != nullptr && size > 0) {
        const size_t copied = std::min<size_t>(name.size(), size - 1);
        std::copy_n(name.begin(), copied, buffer);
        buffer[copied] = 0;
    }
}

std::u16string manifestName(IMetaDataImport* import) {
    AutoCOMPointer<IMetaDataAssemblyImport> assemblies;
    mdAssembly assembly = 0;
    char16_t name[1024] = {};
    ULONG length = 0;
    if (FAILED(import->QueryInterface(IID_IMetaDataAssemblyImport, reinterpret_cast<void**>(&assemblies))) ||
        FAILED(assemblies->GetAssemblyFromScope(&assembly)) ||
        FAILED(assemblies->GetAssemblyProps(assembly, nullptr, nullptr, nullptr, name, 1024, &length, nullptr,
                                            nullptr))) {
        return u"";
    }
    return name;
}

}  // namespace

ModuleID OfflineProfilerInfo::addModule(const std::u16string& path) {
    AutoCOMPointer<IMetaDataDispenserEx> dispenser = HostedRuntime::instance().dispenser();
    AutoCOMPointer<IMetaDataImport> import;
    // The runtime opens the file: the bytes of its name are UTF-8.
    if (dispenser == nullptr ||
        FAILED(dispenser->OpenScope(Utf16FromUtf8(path.c_str()).c_str(), ofRead, IID_IMetaDataImport,
                                    reinterpret_cast<IUnknown**>(&import)))) {
        return 0;
    }
    return addModule(path, std::move(import));
}

ModuleID OfflineProfilerInfo::addModule(const std::u16string& path, AutoCOMPointer<IMetaDataImport> import) {
    const ModuleID id = nextModule;
    nextModule += 0x10000;
    Module& module = modules[id];
    module.path = path;
    module.assemblyName = import != nullptr ? manifestName(import) : u"";
    module.import = std::move(import);
    return id;
}

IMetaDataImport* OfflineProfilerInfo::importOf(ModuleID module) const {
    auto found = modules.find(module);
    return found != modules.end() ? found->second.import.get() : nullptr;
}

HRESULT OfflineProfilerInfo::GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName,
                                           ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId) {
    count("GetModuleInfo");
    auto found = modules.find(moduleId);
    if (found == modules.end()) {
        return E_INVALIDARG;
    }
    if (ppBaseLoadAddress != nullptr) *ppBaseLoadAddress = nullptr;
    copyName(found->second.path, cchName, pcchName, szName);
    if (pAssemblyId != nullptr) *pAssemblyId = moduleId + kAssemblyOffset;
    return S_OK;
}

HRESULT OfflineProfilerInfo::GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                             AppDomainID* pAppDomainId, ModuleID* pModuleId) {
    count("GetAssemblyInfo");
    auto found = modules.find(assemblyId - kAssemblyOffset);
    if (found == modules.end() || found->second.import == nullptr) {
        return E_INVALIDARG;
    }
    copyName(found->second.assemblyName, cchName, pcchName, szName);
    if (pAppDomainId != nullptr) *pAppDomainId = 1;
    if (pModuleId != nullptr) *pModuleId = found->first;
    return S_OK;
}

HRESULT OfflineProfilerInfo::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    count("GetModuleMetaData");
    auto found = modules.find(moduleId);
    if (found == modules.end()) {
        return E_INVALIDARG;
    }
    // What the runtime says of a module that has no metadata to read yet.
    if (found->second.import == nullptr) {
        return E_FAIL;
    }
    return found->second.import->QueryInterface(riid, reinterpret_cast<void**>(ppOut));
}

HRESULT OfflineProfilerInfo::GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType,
                                                   USHORT* pMajorVersion, USHORT* pMinorVersion, USHORT* pBuildNumber,
                                                   USHORT* pQFEVersion, ULONG cchVersionString,
                                                   ULONG* pcchVersionString, WCHAR szVersionString[]) {
    count("GetRuntimeInformation");
    if (pClrInstanceId != nullptr) *pClrInstanceId = 0;
    if (pRuntimeType != nullptr) *pRuntimeType = COR_PRF_CORE_CLR;
    if (pMajorVersion != nullptr) *pMajorVersion = version[0];
    if (pMinorVersion != nullptr) *pMinorVersion = version[1];
    if (pBuildNumber != nullptr) *pBuildNumber = version[2];
    if (pQFEVersion != nullptr) *pQFEVersion = 0;
    copyName(u"", cchVersionString, pcchVersionString, szVersionString);
    return S_OK;
}
