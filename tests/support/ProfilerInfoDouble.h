// The offline runtime facts over real metadata, for tests: modules opened by
// the hosted runtime's dispenser (read-only, or a copy of the file opened for
// writing, so that tokens a test's subject defines are real ones in that
// scope), functions of its own mapped to a module and a token, and method
// bodies served from the original file and recorded as installed. Every call
// is counted by method name. To a start-up it is a runtime of a chosen kind
// and version that has loaded and compiled nothing yet, all in one domain.
// Made by newInstance it has one reference, the caller's, and the last
// release deletes it; made by new it only counts references, and stays.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AssemblyBodies.h"
#include "ScratchDirectory.h"
#include "offline/OfflineProfilerInfo.h"
#include "runtime/MethodMalloc.h"

class ProfilerInfoDouble : public OfflineProfilerInfo {
public:
    // Offers ICorProfilerInfo up to version highestVersion.
    explicit ProfilerInfoDouble(int highestVersion = 10) : OfflineProfilerInfo(highestVersion) {
        setRuntimeVersion(10, 0, 12);
    }
    static ProfilerInfoDouble* newInstance();

    // Opens the assembly at path as a new module, read-only. Returns 0 if the
    // runtime cannot open it.
    ModuleID addModule(const std::string& path);
    // Copies the assembly and opens the copy for writing; its bodies are
    // those of the file at path. Returns 0 if it cannot.
    ModuleID addWritableModule(const std::string& path);
    // A function of a registered module; the id is chosen unless given.
    FunctionID addFunction(ModuleID module, mdMethodDef token, FunctionID id = 0);
    // The method of a type (full metadata name) of the assembly at path, as
    // function id, the assembly opened once. A failure is kept in error().
    void addMethod(const std::string& path, const char16_t* type, const char16_t* method, FunctionID id);
    const std::string& error() const { return failures; }
    using OfflineProfilerInfo::importOf;
    // The bodies of a writable module's file.
    const AssemblyBodies& bodiesOf(ModuleID module) const { return *modules.at(module).bodies; }

    // The module's file as the runtime would hold it in memory: as it lies
    // (flat), or each section at its relative address. GetModuleInfo2 hands
    // it out; it refuses a module without one.
    void mapImage(ModuleID module, const std::string& path, bool flat);

    // The last body installed for a method, or null.
    const unsigned char* installedBody(ModuleID module, mdMethodDef token) const;
    // Bodies installed in a module, by method.
    std::map<mdMethodDef, const unsigned char*> installedBodies(ModuleID module) const;
    // Bytes that the allocator handed out for the last Alloc.
    unsigned int lastAllocation() const { return lastSize; }
    // Makes Alloc give back this address instead of memory, once.
    void failNextAlloc(void* address) { allocFailure = address; }
    // When set to a failure, GetModuleMetaData answers with it.
    HRESULT metaDataResult = S_OK;
    // When set to a failure, EnumModules answers with it.
    HRESULT modulesResult = S_OK;

    ULONG Release() override;

    HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken) override;
    HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                            mdToken* pToken) override;
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override;
    HRESULT GetModuleInfo2(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName,
                           WCHAR szName[], AssemblyID* pAssemblyId, DWORD* pdwModuleFlags) override;
    HRESULT GetILFunctionBody(ModuleID moduleId, mdMethodDef methodId, LPCBYTE* ppMethodHeader,
                              ULONG* pcbMethodSize) override;
    HRESULT GetILFunctionBodyAllocator(ModuleID moduleId, IMethodMalloc** ppMalloc) override;
    HRESULT SetILFunctionBody(ModuleID moduleId, mdMethodDef methodid, LPCBYTE pbNewILMethodHeader) override;
    HRESULT ApplyMetaData(ModuleID moduleId) override;
    HRESULT EnumModules(ICorProfilerModuleEnum** ppEnum) override;
    HRESULT EnumJITedFunctions(ICorProfilerFunctionEnum** ppEnum) override;
    HRESULT GetAppDomainInfo(AppDomainID appDomainId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                             ProcessID* pProcessId) override;

private:
    // The allocator that the runtime hands out: memory that stays until the
    // double goes, as the runtime keeps a body it was given.
    struct Allocator final : IMethodMalloc {
        explicit Allocator(ProfilerInfoDouble& owner) : owner(owner) {}
        HRESULT QueryInterface(REFIID riid, void** out) override;
        ULONG AddRef() override { return 2; }
        ULONG Release() override { return 1; }
        PVOID Alloc(ULONG cb) override;
        ProfilerInfoDouble& owner;
    };
    struct Function {
        ModuleID module = 0;
        mdMethodDef token = 0;
        ClassID classID = 0;
    };
    struct Module {
        std::unique_ptr<AssemblyBodies> bodies;
        std::map<mdMethodDef, std::pair<const unsigned char*, ULONG>> bodyByMethod;
    };

    bool deletesItself = false;
    FunctionID nextFunction = 0x7f0000800000;
    std::map<FunctionID, Function> functions;
    // Made at the first writable module: a start-up child never destroys its
    // double, and would leave an empty folder behind.
    std::unique_ptr<ScratchDirectory> scratch;
    std::map<ModuleID, Module> modules;
    struct Image {
        std::vector<unsigned char> bytes;
        bool flat = false;
    };
    std::map<ModuleID, Image> images;
    std::map<std::string, ModuleID> modulesByPath;
    std::string failures;
    std::map<std::pair<ModuleID, mdMethodDef>, const unsigned char*> installed;
    Allocator allocator {*this};
    std::vector<std::unique_ptr<unsigned char[]>> blocks;
    unsigned int lastSize = 0;
    std::optional<void*> allocFailure;
};
