// A module's unload. While it is under way, its ids are still valid: what
// names the module goes then, so that no later call hands the runtime an id of
// freed memory (a request to compile again, a hot reload's walk, a lookup by
// name, the agent's question about a sampled function). Once it is done, the
// rewrite and the shims forget it, as its id may come back for another module.
#include <functional>

#include "hub/ProfilerCallback.h"
#include "metadata/ImageMetaData.h"
#include "platform/HeldLock.h"
#include "runtime/Guids.h"
#include "runtime/ProfilerEnums.h"

namespace {

// Generic arguments nest no deeper than this in what the check follows.
constexpr int kDeepestArgument = 8;
constexpr ULONG32 kArgumentBatch = 16;

// The checks below follow a function to the modules that its memory goes with:
// its own, its class's and those of its generic arguments at any depth. owned
// says whether a module counts; unreadable is the answer where the runtime
// cannot say.
struct Ownership {
    ICorProfilerInfo2* info;
    std::function<bool(ModuleID)> owned;
    bool unreadable;
};

bool classOwned(const Ownership& check, ClassID type, int depth);

bool anyOwned(const Ownership& check, const ClassID* arguments, ULONG32 count, int depth) {
    for (ULONG32 i = 0; i < count && i < kArgumentBatch; ++i) {
        if (classOwned(check, arguments[i], depth)) return true;
    }
    return false;
}

bool classOwned(const Ownership& check, ClassID type, int depth) {
    ModuleID owner = 0;
    ClassID arguments[kArgumentBatch];
    ULONG32 count = 0;
    if (type == 0) return false;
    if (FAILED(check.info->GetClassIDInfo2(type, &owner, nullptr, nullptr, kArgumentBatch, &count, arguments))) {
        return check.unreadable;
    }
    return check.owned(owner) || (depth > 0 && anyOwned(check, arguments, count, depth - 1));
}

bool functionOwned(const Ownership& check, FunctionID function) {
    ClassID type = 0;
    ModuleID owner = 0;
    ClassID arguments[kArgumentBatch];
    ULONG32 count = 0;
    if (FAILED(check.info->GetFunctionInfo2(function, 0, &type, &owner, nullptr, kArgumentBatch, &count, arguments))) {
        return check.unreadable;
    }
    return check.owned(owner) || classOwned(check, type, kDeepestArgument) ||
           anyOwned(check, arguments, count, kDeepestArgument);
}

// Drops the batches' entries of the module, keeping each batch's order.
void dropModule(std::vector<rejit_requests>& batches, ModuleID module) {
    for (rejit_requests& batch : batches) {
        unsigned int kept = 0;
        for (unsigned int i = 0; i < batch.count; ++i) {
            if (batch.modules[i] == module) continue;
            batch.modules[kept] = batch.modules[i];
            batch.methods[kept] = batch.methods[i];
            ++kept;
        }
        batch.count = kept;
    }
}

}  // namespace

HRESULT ProfilerCallback::ModuleUnloadStarted(ModuleID moduleId) {
    ProfilerAccount::Timed timed(account, ProfilerAccount::kModuleUnload);
    AutoCOMPointer<ICorProfilerInfo2> info2;
    if (profilerInfo != nullptr) {
        (void)profilerInfo->QueryInterface(IID_ICorProfilerInfo2, reinterpret_cast<void**>(&info2));
    }
    // The module's functions, and instantiations over its types: both go with its memory.
    const Ownership ofThisModule{info2.get(), [moduleId](ModuleID owner) { return owner == moduleId; }, false};
    const auto ofModule = [&](FunctionID function) {
        return info2 != nullptr && functionOwned(ofThisModule, function);
    };
    const auto typeOfModule = [&](ClassID type) {
        return info2 != nullptr && classOwned(ofThisModule, type, kDeepestArgument);
    };
    {
        HeldLock held(&profilerLock);
        {
            HeldLock names(&moduleLock);
            std::erase_if(moduleIds, [&](const auto& entry) { return entry.second == moduleId; });
        }
        dropModule(rejitRequests, moduleId);
        dropModule(revertRequests, moduleId);
        precompiledInliners.eraseModule(moduleId);
        if (controller != nullptr) {
            IProfilerController::CompiledMethods& compiled = controller->getCompiledMethods();
            std::erase_if(unloadableFunctions, [&](FunctionID function) {
                if (!ofModule(function)) return false;
                compiled.erase(function);
                return true;
            });
        }
    }
    // The agent may still hold the ids of the module's functions from its samples,
    // and the class cache their names.
    traceProfiler.ModuleUnloading(moduleId, ofModule, typeOfModule);
    return S_OK;
}

HRESULT ProfilerCallback::ModuleUnloadFinished(ModuleID moduleId, HRESULT hrStatus) {
    HeldLock held(&profilerLock);
    if (profiler != nullptr) {
        profiler->forgetModule(moduleId);
    }
    moduleShims.erase(moduleId);
    if (auto kind = moduleCanUnload.find(moduleId); kind != moduleCanUnload.end()) {
        if (kind->second) --modulesThatCanUnload;
        moduleCanUnload.erase(kind);
    }
    ImageMetaData::forget(moduleId);
    // The context must not take this one's metadata and names for another.
    if (metaDataContext != nullptr) metaDataContext->forgetModule(moduleId);
    return S_OK;
}

void ProfilerCallback::noteModuleKind(ModuleID moduleId, bool flagsKnown, DWORD flags) {
    HeldLock held(&profilerLock);
    const bool canUnload = !flagsKnown || (flags & COR_PRF_MODULE_COLLECTIBLE) != 0;
    if (moduleCanUnload.emplace(moduleId, canUnload).second && canUnload) ++modulesThatCanUnload;
}

// The memo grows by one exactly when the controller decides a function anew.
int ProfilerCallback::decide(IMetaDataContext* context) {
    // A generic method given a ReJIT body has no function to remember the
    // answer by.
    if (context->getFunctionID() == 0) {
        return controller->shouldMonitorMethodUncached(context) == 0 && !controller->isByRefLike(context) ? S_OK
                                                                                                          : S_FALSE;
    }
    const size_t known = controller->getCompiledMethods().size();
    const int status = controller->shouldMonitorMethod(context);
    if (controller->getCompiledMethods().size() != known) noteDecided(context->getFunctionID());
    return status;
}

// While no module that can unload is loaded, no function can go with one.
// After an attach, the modules loaded before it are noted only as the
// catch-up reaches them: a module not noted yet may unload too.
void ProfilerCallback::noteDecided(FunctionID functionId) {
    if (modulesThatCanUnload == 0 && !attached) return;
    AutoCOMPointer<ICorProfilerInfo2> info2;
    if (profilerInfo == nullptr ||
        FAILED(profilerInfo->QueryInterface(IID_ICorProfilerInfo2, reinterpret_cast<void**>(&info2)))) {
        unloadableFunctions.insert(functionId);
        return;
    }
    const Ownership mayUnload{info2.get(),
                              [this](ModuleID owner) {
                                  auto kind = moduleCanUnload.find(owner);
                                  return kind == moduleCanUnload.end() || kind->second;
                              },
                              true};
    if (functionOwned(mayUnload, functionId)) unloadableFunctions.insert(functionId);
}
