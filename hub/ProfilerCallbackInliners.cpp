// Precompiled code is kept (see setEventMask): a selected method is refused
// its precompiled code when the runtime looks for it, and so is every
// precompiled method of the same module that inlined it ahead of time, which
// the runtime never asks JITInlining about.
#include "hub/ProfilerCallback.h"
#include "platform/FormattedOutput.h"
#include "platform/HeldLock.h"
#include "runtime/Guids.h"

namespace {
constexpr ULONG kInlinerBatch = 64;
}  // namespace

void ProfilerCallback::refusePrecompiledInliners(ModuleID moduleId, const char16_t* assemblyName) {
    HeldLock held(&profilerLock);
    AutoCOMPointer<ICorProfilerInfo6> info6;
    if (controller->initializeDirectives() != 0 ||
        FAILED(profilerInfo->QueryInterface(IID_ICorProfilerInfo6, reinterpret_cast<void**>(&info6)))) {
        return;
    }
    std::set<mdMethodDef> selected;
    controller->getMonitoredMethodsForModule(profilerInfo, moduleId, selected, false);
    size_t before = precompiledInliners.size();
    for (mdMethodDef method : selected) {
        BOOL incomplete = FALSE;
        AutoCOMPointer<ICorProfilerMethodEnum> inliners;
        if (FAILED(info6->EnumNgenModuleMethodsInliningThisMethod(moduleId, moduleId, method, &incomplete,
                                                                  &inliners)) ||
            inliners == nullptr) {
            continue;
        }
        COR_PRF_METHOD batch[kInlinerBatch];
        ULONG fetched = 0;
        while (SUCCEEDED(inliners->Next(kInlinerBatch, batch, &fetched)) && fetched != 0) {
            for (ULONG i = 0; i < fetched; ++i) precompiledInliners.emplace(batch[i].moduleId, batch[i].methodId);
        }
    }
    if (precompiledInliners.size() != before) {
        fprintf_8(nativeLog, "Refusing the precompiled code of %d methods of %S that inline selected methods\n",
                  static_cast<int>(precompiledInliners.size() - before), assemblyName);
        fflush(nativeLog);
    }
}
