// Points the P/Invoke records of the managed agent's native classes at the file
// from which the runtime loaded this library, so that the agent's calls of the
// Native_ exports land here whatever library name the agent was built with.
//
// One stack object per call of PatchDllImports, on the runtime thread that
// reports the load of the agent's module. info and log are not owned.
#pragma once

#include <cstdio>

#include "platform/AutoPointer.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

class UnixDllImportPatcher {
public:
    UnixDllImportPatcher(ICorProfilerInfo* info, ModuleID module, FILE* log);

    // S_FALSE when neither profiler path variable is set; otherwise the result
    // of opening the metadata and defining the module reference. The classes'
    // own results are not part of it.
    [[nodiscard]] HRESULT PatchDllImports();
    // Rewrites the library of each P/Invoke among the first 128 methods of the
    // class. The last result of the walk.
    [[nodiscard]] HRESULT PatchDllImportsForClass(const char16_t* className);

private:
    // Same flags and entry point, this library's module reference.
    [[nodiscard]] HRESULT patchMethod(mdMethodDef method, const char16_t* className);

    ICorProfilerInfo* info;
    ModuleID module;
    FILE* log;
    AutoCOMPointer<IMetaDataEmit> emit;
    AutoCOMPointer<IMetaDataImport> import;
    // The environment's copy; not owned.
    const char16_t* profilerPath = nullptr;
    mdModuleRef moduleReference = 0;
};
