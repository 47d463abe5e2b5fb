// An ICorProfilerInfo10 for rewriting real assemblies: each module is a copy of
// an assembly file, opened for writing through the hosted runtime's dispenser,
// so that tokens defined by the rewrite are real ones in that scope. Method
// bodies come straight from the original file (PeImage); the bodies given to
// SetILFunctionBody are recorded. Names and metadata come from the offline
// base; every slot not served fails with E_NOTIMPL and is counted.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AssemblyBodies.h"
#include "offline/OfflineProfilerInfo.h"
#include "ScratchDirectory.h"
#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class RewriteInfoDouble : public OfflineProfilerInfo {
public:
    RewriteInfoDouble();
    ~RewriteInfoDouble() override;

    // Copies the assembly and opens the copy for writing; 0 if it cannot.
    ModuleID addModule(const std::string& path);
    FunctionID addFunction(ModuleID module, mdMethodDef token);
    // The write scope of a module (no new reference).
    IMetaDataImport* importOf(ModuleID module) const;
    const AssemblyBodies& bodiesOf(ModuleID module) const;

    // The last body installed for a method, or null.
    const unsigned char* installedBody(ModuleID module, mdMethodDef token) const;
    // Bytes that the allocator handed out for the last Alloc.
    unsigned int lastAllocation() const { return lastSize; }
    // Makes Alloc give back this address instead of memory, once.
    void failNextAlloc(void* address) { allocFailure = address; allocFails = true; }

    HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken) override;
    HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                            mdToken* pToken) override;
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override;
    HRESULT GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader,
                              ULONG* pcbMethodSize) override;
    HRESULT GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) override;
    HRESULT SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) override;

    // Called by the allocator object.
    void* allocate(ULONG size);

private:
    struct Module {
        std::unique_ptr<AssemblyBodies> bodies;
        std::map<mdMethodDef, std::pair<const unsigned char*, ULONG>> bodyByMethod;
    };

    ScratchDirectory scratch;
    std::map<ModuleID, Module> modules;
    std::map<FunctionID, std::pair<ModuleID, mdMethodDef>> functions;
    std::map<std::pair<ModuleID, mdMethodDef>, const unsigned char*> installed;
    std::vector<std::unique_ptr<unsigned char[]>> blocks;
    IMethodMalloc* allocator;
    unsigned int lastSize = 0;
    void* allocFailure = nullptr;
    bool allocFails = false;
    FunctionID nextFunction = 0x7f1000000040;
};
