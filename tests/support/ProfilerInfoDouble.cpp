#include "ProfilerInfoDouble.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "RealAssemblies.h"
#include "offline/HostedRuntime.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"
#include "runtime/ProfilerEnumerators.h"

namespace {

// An enumerator with nothing in it.
template <typename Interface, typename Element>
class EmptyEnumerator final : public Interface {
public:
    HRESULT QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override {
        const ULONG left = --references;
        if (left == 0) delete this;
        return left;
    }
    HRESULT Skip(ULONG) override { return S_OK; }
    HRESULT Reset() override { return S_OK; }
    HRESULT Clone(Interface**) override { return E_NOTIMPL; }
    HRESULT GetCount(ULONG* count) override { return *count = 0, S_OK; }
    HRESULT Next(ULONG, Element[], ULONG* fetched) override { return *fetched = 0, S_FALSE; }

private:
    ULONG references = 1;
};

}  // namespace

ProfilerInfoDouble* ProfilerInfoDouble::newInstance() {
    auto* made = new ProfilerInfoDouble();
    made->deletesItself = true;
    made->AddRef();
    return made;
}

ModuleID ProfilerInfoDouble::addModule(const std::string& path) {
    return OfflineProfilerInfo::addModule(RealAssemblies::widen(path));
}

ModuleID ProfilerInfoDouble::addWritableModule(const std::string& path) {
    if (scratch == nullptr) scratch = std::make_unique<ScratchDirectory>();
    const std::string copy =
        scratch->path(std::to_string(modules.size()) + "-" + std::filesystem::path(path).filename().string());
    std::error_code error;
    AutoCOMPointer<IMetaDataDispenserEx> dispenser = HostedRuntime::instance().dispenser();
    AutoCOMPointer<IMetaDataImport> import;
    const std::u16string widePath = RealAssemblies::widen(copy);
    Module module{std::make_unique<AssemblyBodies>(), {}};
    if (!std::filesystem::copy_file(path, copy, error) || dispenser.get() == nullptr ||
        FAILED(dispenser->OpenScope(widePath.c_str(), ofWrite, IID_IMetaDataImport,
                                    reinterpret_cast<IUnknown**>(&import))) ||
        !module.bodies->load(path)) {
        return 0;
    }
    for (const AssemblyBodies::Body& body : module.bodies->bodies()) {
        module.bodyByMethod[TokenFromRid(body.methodRow, mdtMethodDef)] = {body.bytes, body.size};
    }
    const ModuleID id = OfflineProfilerInfo::addModule(RealAssemblies::widen(path), std::move(import));
    modules[id] = std::move(module);
    return id;
}

FunctionID ProfilerInfoDouble::addFunction(ModuleID module, mdMethodDef token, FunctionID id) {
    if (id == 0) id = std::exchange(nextFunction, nextFunction + 0x40);
    // One class id per module and owning type is enough for the tests; the
    // row of the method stands in for the type.
    functions[id] = Function{module, token, module + 0x8000 + RidFromToken(token)};
    return id;
}

void ProfilerInfoDouble::addMethod(const std::string& path, const char16_t* type, const char16_t* method,
                                   FunctionID id) {
    ModuleID& module = modulesByPath[path];
    if (module == 0) module = addModule(path);
    IMetaDataImport* import = module == 0 ? nullptr : importOf(module);
    const mdTypeDef typeDef = import == nullptr ? 0 : RealAssemblies::findType(import, type);
    const mdMethodDef token = typeDef == 0 ? 0 : RealAssemblies::findMethod(import, typeDef, method);
    if (token == 0) {
        failures += "no " + path + " " + RealAssemblies::narrow(type) + "::" + RealAssemblies::narrow(method) + "; ";
        return;
    }
    addFunction(module, token, id);
}

const unsigned char* ProfilerInfoDouble::installedBody(ModuleID module, mdMethodDef token) const {
    auto found = installed.find({module, token});
    return found == installed.end() ? nullptr : found->second;
}

std::map<mdMethodDef, const unsigned char*> ProfilerInfoDouble::installedBodies(ModuleID module) const {
    std::map<mdMethodDef, const unsigned char*> bodies;
    for (const auto& [key, body] : installed) {
        if (key.first == module) bodies[key.second] = body;
    }
    return bodies;
}

ULONG ProfilerInfoDouble::Release() {
    const ULONG left = OfflineProfilerInfo::Release();
    if (left == 0 && deletesItself) delete this;
    return left;
}

HRESULT ProfilerInfoDouble::GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId,
                                            mdToken* pToken) {
    count("GetFunctionInfo");
    auto found = functions.find(functionId);
    if (found == functions.end()) return E_INVALIDARG;
    if (pClassId != nullptr) *pClassId = found->second.classID;
    if (pModuleId != nullptr) *pModuleId = found->second.module;
    if (pToken != nullptr) *pToken = found->second.token;
    return S_OK;
}

HRESULT ProfilerInfoDouble::GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                                            mdToken* pToken) {
    count("GetTokenAndMetaDataFromFunction");
    auto found = functions.find(functionId);
    if (found == functions.end()) return E_INVALIDARG;
    IMetaDataImport* import = OfflineProfilerInfo::importOf(found->second.module);
    if (import == nullptr) return E_FAIL;
    *pToken = found->second.token;
    return import->QueryInterface(riid, reinterpret_cast<void**>(ppImport));
}

HRESULT ProfilerInfoDouble::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    if (SUCCEEDED(metaDataResult)) return OfflineProfilerInfo::GetModuleMetaData(moduleId, dwOpenFlags, riid, ppOut);
    count("GetModuleMetaData");
    *ppOut = nullptr;
    return metaDataResult;
}

void ProfilerInfoDouble::mapImage(ModuleID module, const std::string& path, bool flat) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), {});
    Image& image = images[module] = {bytes, flat};
    if (flat) return;
    // The headers, then each section's raw data at its address, as a loader lays them out.
    auto at = [&](size_t offset, size_t size) {
        uint32_t value = 0;
        std::memcpy(&value, &bytes[offset], size);
        return value;
    };
    const size_t header = at(0x3C, 4) + 4, optional = header + 20, sections = optional + at(header + 16, 2);
    image.bytes.assign(at(optional + 56, 4), 0);
    std::copy_n(bytes.begin(), at(optional + 60, 4), image.bytes.begin());
    for (size_t section = sections; section < sections + 40 * at(header + 2, 2); section += 40) {
        std::copy_n(bytes.begin() + at(section + 20, 4), at(section + 16, 4),
                    image.bytes.begin() + at(section + 12, 4));
    }
}

HRESULT ProfilerInfoDouble::GetModuleInfo2(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName,
                                           ULONG* pcchName, WCHAR szName[], AssemblyID* pAssemblyId,
                                           DWORD* pdwModuleFlags) {
    auto image = images.find(moduleId);
    if (image == images.end()) return E_FAIL;
    if (ppBaseLoadAddress != nullptr) *ppBaseLoadAddress = image->second.bytes.data();
    if (pdwModuleFlags != nullptr) *pdwModuleFlags = image->second.flat ? COR_PRF_MODULE_FLAT_LAYOUT : 0;
    return GetModuleInfo(moduleId, nullptr, cchName, pcchName, szName, pAssemblyId);
}

HRESULT ProfilerInfoDouble::GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader,
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

HRESULT ProfilerInfoDouble::GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) {
    count("GetILFunctionBodyAllocator");
    if (!modules.contains(moduleId)) return E_INVALIDARG;
    *ppMalloc = &allocator;
    return S_OK;
}

HRESULT ProfilerInfoDouble::SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) {
    count("SetILFunctionBody");
    if (!modules.contains(moduleId)) return E_INVALIDARG;
    installed[{moduleId, methodid}] = pbNewILMethodHeader;
    return S_OK;
}

HRESULT ProfilerInfoDouble::ApplyMetaData(ModuleID moduleId) {
    count("ApplyMetaData");
    return modules.contains(moduleId) ? S_OK : E_INVALIDARG;
}

HRESULT ProfilerInfoDouble::EnumModules(ICorProfilerModuleEnum** ppEnum) {
    count("EnumModules");
    if (FAILED(modulesResult)) return modulesResult;
    *ppEnum = new EmptyEnumerator<ICorProfilerModuleEnum, ModuleID>();
    return S_OK;
}

HRESULT ProfilerInfoDouble::EnumJITedFunctions(ICorProfilerFunctionEnum** ppEnum) {
    count("EnumJITedFunctions");
    *ppEnum = new EmptyEnumerator<ICorProfilerFunctionEnum, COR_PRF_FUNCTION>();
    return S_OK;
}

HRESULT ProfilerInfoDouble::GetAppDomainInfo(AppDomainID, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                                             ProcessID*) {
    count("GetAppDomainInfo");
    const std::u16string name = u"clrhost";
    if (pcchName != nullptr) *pcchName = static_cast<ULONG>(name.size() + 1);
    if (szName == nullptr || cchName <= name.size()) return E_INVALIDARG;
    std::copy(name.c_str(), name.c_str() + name.size() + 1, szName);
    return S_OK;
}

HRESULT ProfilerInfoDouble::Allocator::QueryInterface(REFIID riid, void** out) {
    const bool known = riid == IID_IUnknown || riid == IID_IMethodMalloc;
    *out = known ? this : nullptr;
    return known ? S_OK : E_NOINTERFACE;
}

PVOID ProfilerInfoDouble::Allocator::Alloc(ULONG cb) {
    owner.count("Alloc");
    owner.lastSize = cb;
    if (const std::optional<void*> failure = std::exchange(owner.allocFailure, std::nullopt)) return *failure;
    return owner.blocks.emplace_back(std::make_unique<unsigned char[]>(cb)).get();
}
