#include "RewriteInfoDouble.h"

#include <algorithm>
#include <filesystem>

#include "offline/HostedRuntime.h"
#include "RealAssemblies.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"
#include "runtime/MethodMalloc.h"

namespace {

// The allocator that the runtime hands out: memory that stays until the
// double goes, as the runtime keeps a body it was given.
class DoubleAllocator final : public IMethodMalloc {
public:
    explicit DoubleAllocator(RewriteInfoDouble* owner) : owner(owner) {}
    HRESULT QueryInterface(REFIID riid, void** out) override {
        if (riid == IID_IUnknown || riid == IID_IMethodMalloc) {
            *out = this;
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }
    PVOID Alloc(ULONG cb) override { return owner->allocate(cb); }

private:
    RewriteInfoDouble* owner;
};

void copyName(const std::u16string& name, ULONG size, ULONG* length, WCHAR* buffer) {
    if (length != nullptr) *length = static_cast<ULONG>(name.size() + 1);
    if (buffer != nullptr && size > 0) {
        size_t copied = std::min<size_t>(name.size(), size - 1);
        std::copy_n(name.begin(), copied, buffer);
        buffer[copied] = 0;
    }
}

}  // namespace

RewriteInfoDouble::RewriteInfoDouble() : allocator(new DoubleAllocator(this)) {}

RewriteInfoDouble::~RewriteInfoDouble() {
    modules.clear();
    delete static_cast<DoubleAllocator*>(allocator);
}

ModuleID RewriteInfoDouble::addModule(const std::string& path) {
    std::string copy = scratch.path(std::to_string(modules.size()) + "-" +
                                    std::filesystem::path(path).filename().string());
    std::error_code error;
    if (!std::filesystem::copy_file(path, copy, error)) return 0;
    AutoCOMPointer<IMetaDataDispenserEx> dispenser = HostedRuntime::instance().dispenser();
    if (dispenser.get() == nullptr) return 0;
    Module module;
    std::u16string widePath = RealAssemblies::widen(copy);
    if (FAILED(dispenser->OpenScope(widePath.c_str(), ofWrite, IID_IMetaDataImport,
                                    reinterpret_cast<IUnknown**>(&module.import)))) {
        return 0;
    }
    module.bodies = std::make_unique<AssemblyBodies>();
    if (!module.bodies->load(path)) return 0;
    for (const AssemblyBodies::Body& body : module.bodies->bodies()) {
        module.bodyByMethod[TokenFromRid(body.methodRow, mdtMethodDef)] = {body.bytes, body.size};
    }
    module.path = RealAssemblies::widen(path);
    ModuleID id = nextModule;
    nextModule += 0x10000;
    modules[id] = std::move(module);
    return id;
}

FunctionID RewriteInfoDouble::addFunction(ModuleID module, mdMethodDef token) {
    FunctionID id = nextFunction;
    nextFunction += 0x40;
    functions[id] = {module, token};
    return id;
}

IMetaDataImport* RewriteInfoDouble::importOf(ModuleID module) const {
    auto found = modules.find(module);
    return found == modules.end() ? nullptr : found->second.import.get();
}

const AssemblyBodies& RewriteInfoDouble::bodiesOf(ModuleID module) const { return *modules.at(module).bodies; }

const unsigned char* RewriteInfoDouble::installedBody(ModuleID module, mdMethodDef token) const {
    auto found = installed.find({module, token});
    return found == installed.end() ? nullptr : found->second;
}

void* RewriteInfoDouble::allocate(ULONG size) {
    count("Alloc");
    lastSize = size;
    if (allocFails) {
        allocFails = false;
        return allocFailure;
    }
    blocks.push_back(std::make_unique<unsigned char[]>(size));
    return blocks.back().get();
}

HRESULT RewriteInfoDouble::GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId,
                                           mdToken* pToken) {
    count("GetFunctionInfo");
    auto found = functions.find(functionId);
    if (found == functions.end()) return E_INVALIDARG;
    if (pClassId != nullptr) *pClassId = found->second.first + 0x8000;
    if (pModuleId != nullptr) *pModuleId = found->second.first;
    if (pToken != nullptr) *pToken = found->second.second;
    return S_OK;
}

HRESULT RewriteInfoDouble::GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                                           mdToken* pToken) {
    count("GetTokenAndMetaDataFromFunction");
    auto found = functions.find(functionId);
    if (found == functions.end()) return E_INVALIDARG;
    *pToken = found->second.second;
    return modules.at(found->second.first).import->QueryInterface(riid, reinterpret_cast<void**>(ppImport));
}

HRESULT RewriteInfoDouble::GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName,
                                         ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId) {
    count("GetModuleInfo");
    auto found = modules.find(moduleId);
    if (found == modules.end()) return E_INVALIDARG;
    if (ppBaseLoadAddress != nullptr) *ppBaseLoadAddress = nullptr;
    copyName(found->second.path, cchName, pcchName, szName);
    // The assembly id is the module id: one module per assembly.
    if (pAssemblyId != nullptr) *pAssemblyId = moduleId;
    return S_OK;
}

HRESULT RewriteInfoDouble::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    count("GetModuleMetaData");
    auto found = modules.find(moduleId);
    if (found == modules.end()) return E_INVALIDARG;
    return found->second.import->QueryInterface(riid, reinterpret_cast<void**>(ppOut));
}

HRESULT RewriteInfoDouble::GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                           AppDomainID* pAppDomainId, ModuleID* pModuleId) {
    count("GetAssemblyInfo");
    auto found = modules.find(assemblyId);
    if (found == modules.end()) return E_INVALIDARG;
    AutoCOMPointer<IMetaDataAssemblyImport> assemblyImport;
    HRESULT hr = found->second.import->QueryInterface(IID_IMetaDataAssemblyImport,
                                                      reinterpret_cast<void**>(&assemblyImport));
    mdAssembly assembly = 0;
    if (SUCCEEDED(hr)) hr = assemblyImport->GetAssemblyFromScope(&assembly);
    char16_t name[1024] = {};
    ULONG length = 0;
    if (SUCCEEDED(hr)) {
        hr = assemblyImport->GetAssemblyProps(assembly, nullptr, nullptr, nullptr, name, 1024, &length, nullptr,
                                              nullptr);
    }
    if (FAILED(hr)) return hr;
    copyName(name, cchName, pcchName, szName);
    if (pAppDomainId != nullptr) *pAppDomainId = 1;
    if (pModuleId != nullptr) *pModuleId = assemblyId;
    return S_OK;
}

HRESULT RewriteInfoDouble::GetRuntimeInformation(USHORT* pClrInstanceId, COR_PRF_RUNTIME_TYPE* pRuntimeType,
                                                 USHORT* pMajorVersion, USHORT* pMinorVersion, USHORT* pBuildNumber,
                                                 USHORT* pQFEVersion, ULONG cchVersionString,
                                                 ULONG* pcchVersionString, WCHAR szVersionString[]) {
    count("GetRuntimeInformation");
    if (pClrInstanceId != nullptr) *pClrInstanceId = 0;
    if (pRuntimeType != nullptr) *pRuntimeType = runtimeType;
    if (pMajorVersion != nullptr) *pMajorVersion = 10;
    if (pMinorVersion != nullptr) *pMinorVersion = 0;
    if (pBuildNumber != nullptr) *pBuildNumber = 12;
    if (pQFEVersion != nullptr) *pQFEVersion = 0;
    copyName(u"10.0.12", cchVersionString, pcchVersionString, szVersionString);
    return S_OK;
}

HRESULT RewriteInfoDouble::GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader,
                                             ULONG* pcbMethodSize) {
    count("GetILFunctionBody");
    auto module = modules.find(moduleId);
    if (module == modules.end()) return E_INVALIDARG;
    auto body = module->second.bodyByMethod.find(methodId);
    // What the runtime says of a method without IL.
    if (body == module->second.bodyByMethod.end()) return static_cast<HRESULT>(0x80131130);
    *ppMethodHeader = body->second.first;
    if (pcbMethodSize != nullptr) *pcbMethodSize = body->second.second;
    return S_OK;
}

HRESULT RewriteInfoDouble::GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) {
    count("GetILFunctionBodyAllocator");
    if (modules.find(moduleId) == modules.end()) return E_INVALIDARG;
    *ppMalloc = allocator;
    return S_OK;
}

HRESULT RewriteInfoDouble::SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) {
    count("SetILFunctionBody");
    if (modules.find(moduleId) == modules.end()) return E_INVALIDARG;
    installed[{moduleId, methodid}] = pbNewILMethodHeader;
    return S_OK;
}
