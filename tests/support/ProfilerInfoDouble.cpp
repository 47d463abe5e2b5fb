#include "ProfilerInfoDouble.h"

#include <algorithm>

#include "RealAssemblies.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

namespace {

// The runtime's way with name buffers: the length counts the terminator, and
// a name longer than the buffer is cut.
void copyName(const std::u16string& name, ULONG size, ULONG* length, WCHAR* buffer) {
    if (length != nullptr) {
        *length = static_cast<ULONG>(name.size() + 1);
    }
    if (buffer != nullptr && size > 0) {
        size_t copied = std::min<size_t>(name.size(), size - 1);
        std::copy_n(name.begin(), copied, buffer);
        buffer[copied] = 0;
    }
}

}  // namespace

ProfilerInfoDouble* ProfilerInfoDouble::newInstance() {
    return new ProfilerInfoDouble();
}

ModuleID ProfilerInfoDouble::addModule(const std::string& path) {
    AutoCOMPointer<IMetaDataImport> real = RealAssemblies::open(path);
    if (real.get() == nullptr) {
        return 0;
    }
    ModuleID id = nextModule;
    nextModule += 0x10000;
    Module& module = modules[id];
    module.path = RealAssemblies::widen(path);
    module.import = CountingMetaDataImport::wrap(real);
    module.assembly = id + 0x100;
    return id;
}

ModuleID ProfilerInfoDouble::addUnreadableModule() {
    ModuleID id = nextModule;
    nextModule += 0x10000;
    modules[id].assembly = id + 0x100;
    return id;
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

CountingMetaDataImport* ProfilerInfoDouble::importOf(ModuleID module) const {
    auto found = modules.find(module);
    return found == modules.end() ? nullptr : found->second.import.get();
}

int ProfilerInfoDouble::calls(const std::string& method) const {
    auto found = perMethod.find(method);
    return found == perMethod.end() ? 0 : found->second;
}

void ProfilerInfoDouble::resetCalls() {
    perMethod.clear();
}

void ProfilerInfoDouble::count(const char* method) {
    ++perMethod[method];
}

HRESULT ProfilerInfoDouble::refuse(const char* method) {
    count(method);
    return E_NOTIMPL;
}

HRESULT ProfilerInfoDouble::QueryInterface(REFIID riid, void** ppvObject) {
    count("QueryInterface");
    const IID* served[] = {&IID_IUnknown,          &IID_ICorProfilerInfo,  &IID_ICorProfilerInfo2,
                           &IID_ICorProfilerInfo3, &IID_ICorProfilerInfo4, &IID_ICorProfilerInfo5,
                           &IID_ICorProfilerInfo6, &IID_ICorProfilerInfo7, &IID_ICorProfilerInfo8,
                           &IID_ICorProfilerInfo9, &IID_ICorProfilerInfo10};
    for (const IID* iid : served) {
        if (riid == *iid) {
            AddRef();
            *ppvObject = static_cast<ICorProfilerInfo10*>(this);
            return S_OK;
        }
    }
    *ppvObject = nullptr;
    return E_NOINTERFACE;
}

ULONG ProfilerInfoDouble::AddRef() {
    return ++references;
}

ULONG ProfilerInfoDouble::Release() {
    ULONG left = --references;
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
    if (pClassId != nullptr) {
        *pClassId = found->second.classID;
    }
    if (pModuleId != nullptr) {
        *pModuleId = found->second.module;
    }
    if (pToken != nullptr) {
        *pToken = found->second.token;
    }
    return S_OK;
}

HRESULT ProfilerInfoDouble::GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid,
                                                            IUnknown** ppImport, mdToken* pToken) {
    count("GetTokenAndMetaDataFromFunction");
    auto found = functions.find(functionId);
    if (found == functions.end()) {
        return E_INVALIDARG;
    }
    Module& module = modules[found->second.module];
    if (module.import.get() == nullptr) {
        return E_FAIL;
    }
    *pToken = found->second.token;
    return module.import->QueryInterface(riid, reinterpret_cast<void**>(ppImport));
}

HRESULT ProfilerInfoDouble::GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName,
                                          ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId) {
    count("GetModuleInfo");
    auto found = modules.find(moduleId);
    if (found == modules.end()) {
        return E_INVALIDARG;
    }
    if (ppBaseLoadAddress != nullptr) {
        *ppBaseLoadAddress = nullptr;
    }
    copyName(found->second.path, cchName, pcchName, szName);
    if (pAssemblyId != nullptr) {
        *pAssemblyId = found->second.assembly;
    }
    return S_OK;
}

HRESULT ProfilerInfoDouble::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    count("GetModuleMetaData");
    auto found = modules.find(moduleId);
    if (found == modules.end()) {
        return E_INVALIDARG;
    }
    if (found->second.import.get() == nullptr) {
        // What the runtime says of a module that has no metadata to read yet.
        return E_FAIL;
    }
    return found->second.import->QueryInterface(riid, reinterpret_cast<void**>(ppOut));
}

HRESULT ProfilerInfoDouble::GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                            AppDomainID* pAppDomainId, ModuleID* pModuleId) {
    count("GetAssemblyInfo");
    for (auto& [id, module] : modules) {
        if (module.assembly != assemblyId || module.import.get() == nullptr) {
            continue;
        }
        // The name is the manifest's, as the runtime reports it.
        AutoCOMPointer<IMetaDataAssemblyImport> assemblyImport;
        HRESULT hr = module.import->QueryInterface(IID_IMetaDataAssemblyImport,
                                                   reinterpret_cast<void**>(&assemblyImport));
        mdAssembly assembly = 0;
        if (SUCCEEDED(hr)) {
            hr = assemblyImport->GetAssemblyFromScope(&assembly);
        }
        char16_t name[1024];
        ULONG length = 0;
        if (SUCCEEDED(hr)) {
            hr = assemblyImport->GetAssemblyProps(assembly, nullptr, nullptr, nullptr, name, 1024, &length, nullptr,
                                                  nullptr);
        }
        if (SUCCEEDED(hr)) {
            copyName(name, cchName, pcchName, szName);
            if (pAppDomainId != nullptr) {
                *pAppDomainId = 1;
            }
            if (pModuleId != nullptr) {
                *pModuleId = id;
            }
        }
        return hr;
    }
    return E_INVALIDARG;
}

HRESULT ProfilerInfoDouble::GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType,
                                                  USHORT* pMajorVersion, USHORT* pMinorVersion,
                                                  USHORT* pBuildNumber, USHORT* pQFEVersion, ULONG cchVersionString,
                                                  ULONG* pcchVersionString, WCHAR szVersionString[]) {
    count("GetRuntimeInformation");
    if (pClrInstanceId != nullptr) {
        *pClrInstanceId = 0;
    }
    if (pRuntimeType != nullptr) {
        *pRuntimeType = runtimeType;
    }
    USHORT* parts[] = {pMajorVersion, pMinorVersion, pBuildNumber, pQFEVersion};
    for (USHORT* part : parts) {
        if (part != nullptr) {
            *part = 0;
        }
    }
    copyName(u"", cchVersionString, pcchVersionString, szVersionString);
    return S_OK;
}
