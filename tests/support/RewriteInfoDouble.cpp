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
    AutoCOMPointer<IMetaDataImport> import;
    std::u16string widePath = RealAssemblies::widen(copy);
    if (FAILED(dispenser->OpenScope(widePath.c_str(), ofWrite, IID_IMetaDataImport,
                                    reinterpret_cast<IUnknown**>(&import)))) {
        return 0;
    }
    Module module;
    module.bodies = std::make_unique<AssemblyBodies>();
    if (!module.bodies->load(path)) return 0;
    for (const AssemblyBodies::Body& body : module.bodies->bodies()) {
        module.bodyByMethod[TokenFromRid(body.methodRow, mdtMethodDef)] = {body.bytes, body.size};
    }
    const ModuleID id = OfflineProfilerInfo::addModule(RealAssemblies::widen(path), std::move(import));
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
    return OfflineProfilerInfo::importOf(module);
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
    return OfflineProfilerInfo::importOf(found->second.first)->QueryInterface(riid, reinterpret_cast<void**>(ppImport));
}

HRESULT RewriteInfoDouble::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    count("GetModuleMetaData");
    return OfflineProfilerInfo::GetModuleMetaData(moduleId, dwOpenFlags, riid, ppOut);
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
