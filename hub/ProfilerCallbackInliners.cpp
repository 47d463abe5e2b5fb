// Precompiled code is kept (see setEventMask): a selected method is refused
// its precompiled code when the runtime looks for it, and so is every
// precompiled method of the same module that inlined it ahead of time, which
// the runtime never asks JITInlining about. A method selected by a hot reload
// gets those inliners compiled again.
#include "hub/ProfilerCallback.h"
#include "platform/FormattedOutput.h"
#include "platform/HeldLock.h"
#include "runtime/Guids.h"

namespace {

constexpr ULONG kInlinerBatch = 64;

// The precompiled methods of the module that inlined the method, as the
// runtime recorded them when the module was compiled ahead of time.
template <typename Visit>
void forEachPrecompiledInliner(ICorProfilerInfo6* info6, ModuleID module, mdMethodDef method, Visit visit) {
    BOOL incomplete = FALSE;
    AutoCOMPointer<ICorProfilerMethodEnum> inliners;
    if (FAILED(info6->EnumNgenModuleMethodsInliningThisMethod(module, module, method, &incomplete, &inliners)) ||
        inliners == nullptr) {
        return;
    }
    COR_PRF_METHOD batch[kInlinerBatch];
    ULONG fetched = 0;
    while (SUCCEEDED(inliners->Next(kInlinerBatch, batch, &fetched)) && fetched != 0) {
        for (ULONG i = 0; i < fetched; ++i) visit(batch[i].moduleId, batch[i].methodId);
    }
}

}  // namespace

bool ProfilerCallback::keepsPrecompiledCode() const {
    return (eventMask & COR_PRF_MONITOR_CACHE_SEARCHES) != 0 &&
           (eventMask & (COR_PRF_DISABLE_ALL_NGEN_IMAGES | COR_PRF_USE_PROFILE_IMAGES)) == 0;
}

std::set<mdMethodDef> ProfilerCallback::selectedMethods(ModuleID moduleId) {
    HeldLock held(&profilerLock);
    std::set<mdMethodDef> selected;
    if (controller->initializeDirectives() == 0) {
        controller->getMonitoredMethodsForModule(profilerInfo, moduleId, selected, false);
    }
    return selected;
}

void ProfilerCallback::refusePrecompiledInliners(ModuleID moduleId, const char16_t* assemblyName,
                                                 const std::set<mdMethodDef>& selected) {
    HeldLock held(&profilerLock);
    AutoCOMPointer<ICorProfilerInfo6> info6;
    if (FAILED(profilerInfo->QueryInterface(IID_ICorProfilerInfo6, reinterpret_cast<void**>(&info6)))) {
        return;
    }
    size_t before = precompiledInliners.size();
    for (mdMethodDef method : selected) {
        forEachPrecompiledInliner(info6, moduleId, method, [&](ModuleID module, mdMethodDef inliner) {
            precompiledInliners.insert(module, inliner);
        });
    }
    if (precompiledInliners.size() != before) {
        fprintf_8(nativeLog, "Refusing the precompiled code of %d methods of %S that inline selected methods\n",
                  static_cast<int>(precompiledInliners.size() - before), assemblyName);
        fflush(nativeLog);
    }
}

int ProfilerCallback::recompilePrecompiledInliners() {
    AutoCOMPointer<ICorProfilerInfo6> info6;
    if (!keepsPrecompiledCode() ||
        FAILED(profilerInfo->QueryInterface(IID_ICorProfilerInfo6, reinterpret_cast<void**>(&info6)))) {
        return 0;
    }
    std::set<ModuleID> modules;
    {
        HeldLock held(&moduleLock);
        for (const auto& [name, module] : moduleIds) modules.insert(module);
    }
    int requested = 0;
    for (ModuleID module : modules) {
        std::set<mdMethodDef> selected;
        controller->getMonitoredMethodsForModule(profilerInfo, module, selected, false);
        for (mdMethodDef method : selected) {
            forEachPrecompiledInliner(info6, module, method, [&](ModuleID inlinerModule, mdMethodDef inliner) {
                // Asked once; later searches for its precompiled code are refused too.
                if (precompiledInliners.insert(inlinerModule, inliner)) {
                    RequestReJIT(inlinerModule, inliner, false);
                    ++requested;
                }
            });
        }
    }
    return requested;
}
