// A profiler info over one writable metadata scope, for code that defines
// metadata and method bodies in a module: GetModuleMetaData hands out that
// scope (its emit or its import, as asked), GetILFunctionBodyAllocator a
// malloc-backed allocator, SetILFunctionBody and ApplyMetaData are recorded.
// Everything else fails as in RefusingProfilerInfo, which also counts the calls.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"
#include "runtime/MethodMalloc.h"
#include "offline/RefusingProfilerInfo.h"

class EmittingProfilerInfo : public RefusingProfilerInfo {
public:
    // Serves module only. Takes a reference of emit; import, if given, is
    // handed out for IMetaDataImport instead of the scope's own.
    EmittingProfilerInfo(ModuleID module, IMetaDataEmit* emit, IMetaDataImport* import = nullptr,
                         int highestVersion = 10);
    ~EmittingProfilerInfo() override;

    // Opens a file for writing through the hosted runtime's dispenser; null if
    // it cannot be opened.
    static AutoCOMPointer<IMetaDataEmit> openForWriting(const std::string& path);

    // When set to a failure, GetModuleMetaData answers with it.
    HRESULT metaDataResult = S_OK;

    struct MetaDataRequest {
        DWORD flags;
        IID iid;
    };
    const std::vector<MetaDataRequest>& metaDataRequests() const { return requests; }
    // Body given for each method, as the runtime would keep it.
    const std::map<mdMethodDef, const BYTE*>& bodies() const { return installed; }
    // Modules given to ApplyMetaData, in order.
    const std::vector<ModuleID>& applied() const { return appliedModules; }

    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override;
    HRESULT GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) override;
    HRESULT SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) override;
    HRESULT ApplyMetaData(ModuleID moduleId) override;

private:
    // Blocks live as long as the info, as the runtime's do as long as the module.
    class BodyAllocator : public IMethodMalloc {
    public:
        ~BodyAllocator();
        HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
        ULONG AddRef() override { return ++references; }
        ULONG Release() override { return --references; }
        PVOID Alloc(ULONG cb) override;

        ULONG references = 0;
        std::vector<void*> blocks;
    };

    ModuleID served;
    AutoCOMPointer<IMetaDataEmit> emit;
    AutoCOMPointer<IMetaDataImport> import;
    BodyAllocator allocator;
    std::vector<MetaDataRequest> requests;
    std::map<mdMethodDef, const BYTE*> installed;
    std::vector<ModuleID> appliedModules;
};
