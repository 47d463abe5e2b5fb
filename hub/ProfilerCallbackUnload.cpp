// A module's unload. While it is under way, its ids are still valid: what
// names the module goes then, so that no later call hands the runtime an id of
// freed memory (a request to compile again, a hot reload's walk, a lookup by
// name, the agent's question about a sampled function). Once it is done, the
// rewrite and the shims forget it, as its id may come back for another module.
#include "hub/ProfilerCallback.h"
#include "metadata/ImageMetaData.h"
#include "platform/HeldLock.h"
#include "runtime/Guids.h"

namespace {

// Generic arguments nest no deeper than this in what the check follows.
constexpr int kDeepestArgument = 8;
constexpr ULONG32 kArgumentBatch = 16;

bool classOfModule(ICorProfilerInfo2* info, ClassID type, ModuleID module, int depth);

// One of the generic arguments is the module's, or has one that is.
bool anyOfModule(ICorProfilerInfo2* info, const ClassID* arguments, ULONG32 count, ModuleID module, int depth) {
    for (ULONG32 i = 0; i < count && i < kArgumentBatch; ++i) {
        if (classOfModule(info, arguments[i], module, depth)) return true;
    }
    return false;
}

// The class, or a generic argument of it at any depth, is the module's.
bool classOfModule(ICorProfilerInfo2* info, ClassID type, ModuleID module, int depth) {
    ModuleID owner = 0;
    ClassID arguments[kArgumentBatch];
    ULONG32 count = 0;
    if (type == 0 || FAILED(info->GetClassIDInfo2(type, &owner, nullptr, nullptr, kArgumentBatch, &count, arguments))) {
        return false;
    }
    return owner == module || (depth > 0 && anyOfModule(info, arguments, count, module, depth - 1));
}

// The function is the module's, or an instantiation over one of its types:
// both go with the module's memory.
bool functionOfModule(ICorProfilerInfo2* info, FunctionID function, ModuleID module) {
    ClassID type = 0;
    ModuleID owner = 0;
    ClassID arguments[kArgumentBatch];
    ULONG32 count = 0;
    if (FAILED(info->GetFunctionInfo2(function, 0, &type, &owner, nullptr, kArgumentBatch, &count, arguments))) {
        return false;
    }
    return owner == module || classOfModule(info, type, module, kDeepestArgument) ||
           anyOfModule(info, arguments, count, module, kDeepestArgument);
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
    const auto ofModule = [&](FunctionID function) {
        return info2 != nullptr && functionOfModule(info2.get(), function, moduleId);
    };
    const auto typeOfModule = [&](ClassID type) {
        return info2 != nullptr && classOfModule(info2.get(), type, moduleId, kDeepestArgument);
    };
    {
        HeldLock held(&profilerLock);
        {
            HeldLock names(&moduleLock);
            std::erase_if(moduleIds, [&](const auto& entry) { return entry.second == moduleId; });
        }
        dropModule(rejitRequests, moduleId);
        dropModule(revertRequests, moduleId);
        std::erase_if(precompiledInliners, [&](const auto& method) { return method.first == moduleId; });
        if (controller != nullptr) {
            std::erase_if(controller->getCompiledMethods(), [&](const auto& entry) { return ofModule(entry.first); });
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
    ImageMetaData::forget(moduleId);
    // The context must not take this one's metadata and names for another.
    if (metaDataContext != nullptr && metaDataContext->getModuleID() == moduleId) {
        metaDataContext->setModuleID(0);
    }
    return S_OK;
}
