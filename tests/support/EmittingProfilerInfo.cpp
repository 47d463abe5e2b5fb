#include "support/EmittingProfilerInfo.h"

#include <cstdlib>

#include "runtime/Guids.h"
#include "offline/HostedRuntime.h"
#include "support/RealAssemblies.h"

EmittingProfilerInfo::EmittingProfilerInfo(ModuleID module, IMetaDataEmit* emit, IMetaDataImport* import,
                                           int highestVersion)
    : RefusingProfilerInfo(highestVersion), served(module) {
    emit->AddRef();
    this->emit = emit;
    if (import != nullptr) {
        import->AddRef();
        this->import = import;
    }
}

EmittingProfilerInfo::~EmittingProfilerInfo() = default;

AutoCOMPointer<IMetaDataEmit> EmittingProfilerInfo::openForWriting(const std::string& path) {
    AutoCOMPointer<IMetaDataEmit> scope;
    AutoCOMPointer<IMetaDataDispenserEx> dispenser = HostedRuntime::instance().dispenser();
    if (dispenser.get() != nullptr) {
        std::u16string widePath = RealAssemblies::widen(path);
        dispenser->OpenScope(widePath.c_str(), ofWrite, IID_IMetaDataEmit, reinterpret_cast<IUnknown**>(&scope));
    }
    return scope;
}

HRESULT EmittingProfilerInfo::GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) {
    count("GetModuleMetaData");
    requests.push_back({dwOpenFlags, riid});
    *ppOut = nullptr;
    if (FAILED(metaDataResult)) {
        return metaDataResult;
    }
    if (moduleId != served) {
        return E_INVALIDARG;
    }
    if (riid == IID_IMetaDataImport && import.get() != nullptr) {
        return import->QueryInterface(riid, reinterpret_cast<void**>(ppOut));
    }
    return emit->QueryInterface(riid, reinterpret_cast<void**>(ppOut));
}

HRESULT EmittingProfilerInfo::GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) {
    count("GetILFunctionBodyAllocator");
    if (moduleId != served) {
        *ppMalloc = nullptr;
        return E_INVALIDARG;
    }
    allocator.AddRef();
    *ppMalloc = &allocator;
    return S_OK;
}

HRESULT EmittingProfilerInfo::SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) {
    count("SetILFunctionBody");
    if (moduleId != served) {
        return E_INVALIDARG;
    }
    installed[methodid] = pbNewILMethodHeader;
    return S_OK;
}

HRESULT EmittingProfilerInfo::ApplyMetaData(ModuleID moduleId) {
    count("ApplyMetaData");
    appliedModules.push_back(moduleId);
    return moduleId == served ? S_OK : E_INVALIDARG;
}

EmittingProfilerInfo::BodyAllocator::~BodyAllocator() {
    for (void* block : blocks) {
        std::free(block);
    }
}

HRESULT EmittingProfilerInfo::BodyAllocator::QueryInterface(REFIID riid, void** ppvObject) {
    if (riid == IID_IUnknown || riid == IID_IMethodMalloc) {
        AddRef();
        *ppvObject = static_cast<IMethodMalloc*>(this);
        return S_OK;
    }
    *ppvObject = nullptr;
    return E_NOINTERFACE;
}

PVOID EmittingProfilerInfo::BodyAllocator::Alloc(ULONG cb) {
    void* block = std::malloc(cb);
    if (block != nullptr) {
        blocks.push_back(block);
    }
    return block;
}
