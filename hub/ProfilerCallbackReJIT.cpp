// The ReJIT service: the queues of methods to compile again or to revert, the
// ring of the runtime's answers, one round of the service thread with the hot
// reload of directives, and the ReJIT compile event.
#include <map>

#include "platform/HeldLock.h"
#include "hub/ProfilerCallback.h"
#include "platform/FormattedOutput.h"
#include "platform/Performance.h"
#include "platform/Text16.h"
#include "platform/Threads.h"
#include "runtime/Guids.h"

namespace {

constexpr unsigned int kBatchSize = 128;
constexpr int kRingSlots = 128;
// The oldest pair is the next to be overwritten and is not searched.
constexpr int kSearchedPairs = kRingSlots / 2 - 1;
constexpr DWORD kReloadPollMs = 5;
// The monitoring states of compiledMethods.
constexpr int kMonitored = 0;
constexpr int kNotMonitored = 1;
constexpr int kReverted = 2;

int nextRequestId(int last) { return (last + 1) % 0x7FFFFFFF; }

}  // namespace

int ProfilerCallback::RequestReJIT(ModuleID module, mdMethodDef method, bool revert) {
    HeldLock held(&profilerLock);
    std::vector<rejit_requests>& list = revert ? revertRequests : rejitRequests;
    // A list whose last batch is full gets a successor too: a revert batch
    // filled within one round never takes a 129th entry.
    if (list.empty() || list.back().count == kBatchSize) {
        lastReJITRequestId = nextRequestId(lastReJITRequestId);
        list.push_back(rejit_requests {lastReJITRequestId, {}, {}, 0});
    }
    rejit_requests& batch = list.back();
    batch.modules[batch.count] = module;
    batch.methods[batch.count] = method;
    ++batch.count;
    const int identifier = batch.identifier;
    // A full batch opens a new one, on the ReJIT list whichever list was full.
    if (batch.count == kBatchSize) {
        lastReJITRequestId = nextRequestId(lastReJITRequestId);
        rejitRequests.push_back(rejit_requests {lastReJITRequestId, {}, {}, 0});
    }
    return identifier;
}

int ProfilerCallback::RequestReJIT(const char16_t* moduleName, const char16_t* assemblyName, int method) {
    ModuleID module = GetModuleID(moduleName);
    if (module == 0) {
        module = GetModuleID(assemblyName);
    }
    if (module == 0) {
        if (nativeLog != nullptr) {
            fprintf_8(nativeLog, "Failed to find module [%S] %S \n", assemblyName, moduleName);
            fflush(nativeLog);
        }
        return -1;
    }
    return RequestReJIT(module, static_cast<mdMethodDef>(method), false);
}

void ProfilerCallback::putReJITStatus(int identifier, HRESULT result) {
    rejitStatusIndex = (rejitStatusIndex + 2) % kRingSlots;
    rejitStatus[rejitStatusIndex] = identifier;
    rejitStatus[rejitStatusIndex + 1] = result;
}

// From the newest pair towards older ones, 63 pairs at most: the walk ends
// whatever the index, also where the oldest slot is reached only through the
// wrap.
int ProfilerCallback::GetReJITStatus(int identifier) {
    HeldLock held(&profilerLock);
    if (rejitStatusIndex < 0) {
        return -1;
    }
    int position = rejitStatusIndex;
    for (int pair = 0; pair < kSearchedPairs; ++pair) {
        if (rejitStatus[position] == identifier) {
            return rejitStatus[position + 1];
        }
        position = position == 0 ? kRingSlots - 2 : position - 2;
    }
    return -1;
}

// The service thread is woken to do it now; a wake-up it misses while busy
// with a round is sent again while the caller waits. Waits only while a
// service thread is there to do the reload.
void ProfilerCallback::ReloadDirectives(bool wait) {
    {
        HeldLock held(&profilerLock);
        reloadPending = true;
    }
    SetEvent(serviceWakeEvent);
    while (wait && serviceThread != nullptr && !serviceThreadDone) {
        {
            HeldLock held(&profilerLock);
            if (!reloadPending) {
                return;
            }
        }
        Sleep(kReloadPollMs);
        SetEvent(serviceWakeEvent);
    }
}

void ProfilerCallback::AddDynamicDirective(const char16_t* directive) {
    HeldLock held(&profilerLock);
    if (controller == nullptr) {
        return;
    }
    std::u16string copy(directive);
    controller->addDynamicDirective(copy.data());
}

// One round of the service thread, under profilerLock throughout: the queued
// batches go to the runtime, then a pending hot reload compares what the new
// directives want with what was done, and queues the differences for the next
// round.
void ProfilerCallback::ServiceReJITRequests() {
    HeldLock held(&profilerLock);
    // After Shutdown there is nobody to hand the batches to.
    if (profilerInfo == nullptr || controller == nullptr || metaDataContext == nullptr || nativeLog == nullptr) {
        return;
    }
    AutoCOMPointer<ICorProfilerInfo4> info4;
    AutoCOMPointer<ICorProfilerInfo10> info10;
    if ((!rejitRequests.empty() || !revertRequests.empty()) &&
        SUCCEEDED(profilerInfo->QueryInterface(IID_ICorProfilerInfo4, reinterpret_cast<void**>(&info4)))) {
        if (FAILED(profilerInfo->QueryInterface(IID_ICorProfilerInfo10, reinterpret_cast<void**>(&info10)))) {
            info10 = nullptr;
        }
        // A batch with nothing to ask for, one that an unload emptied or that
        // a full one opened, is not sent: its status reads S_FALSE.
        const auto settledEmpty = [this](const rejit_requests& batch) {
            if (batch.count != 0) return false;
            putReJITStatus(batch.identifier, S_FALSE);
            return true;
        };
        for (rejit_requests& batch : rejitRequests) {
            if (settledEmpty(batch)) continue;
            // The methods that inlined one of these when they were compiled
            // are compiled again too: a newly selected method reaches the agent
            // also from its callers.
            HRESULT hr = info10 != nullptr ? info10->RequestReJITWithInliners(COR_PRF_REJIT_BLOCK_INLINING, batch.count,
                                                                               batch.modules, batch.methods)
                                           : info4->RequestReJIT(batch.count, batch.modules, batch.methods);
            account.rejitRequested(batch.count, hr);
            if (hr != S_OK) {
                fprintf_8(nativeLog, "RequestReJIT error: 0x%x\n", static_cast<unsigned int>(hr));
            }
            putReJITStatus(batch.identifier, hr);
        }
        rejitRequests.clear();
        // A revert is a ReJIT too: the runtime's own revert goes back to the
        // first compile, which carried the instrumentation, so the method is
        // compiled again and GetReJITParameters hands it its own body.
        for (rejit_requests& batch : revertRequests) {
            if (settledEmpty(batch)) continue;
            HRESULT hr = info4->RequestReJIT(batch.count, batch.modules, batch.methods);
            account.rejitRequested(batch.count, hr);
            // The program's own output is never written to: the log takes it.
            if (FAILED(hr)) {
                fprintf_8(nativeLog, "Revert status: 0x%x\n", static_cast<unsigned int>(hr));
            }
            putReJITStatus(batch.identifier, hr);
        }
        revertRequests.clear();
    }
    if (!reloadPending) {
        return;
    }
    reloadPending = false;
    hotReload();
}

void ProfilerCallback::hotReload() {
    // An operator who reloads the directives sees what the old ones did.
    account.write(nativeLog);
    const int64_t started = Performance::GetTimeInMillis();
    controller->reloadDirectives();
    fprintf_8(nativeLog, "PDB reload complete (%dms)\n", static_cast<int>(Performance::GetTimeInMillis() - started));
    IProfilerController::CompiledMethods& compiled = controller->getCompiledMethods();
    fprintf_8(nativeLog, "Hot Reload processing %d methods\n", static_cast<int>(compiled.size()));
    const int64_t walked = Performance::GetTimeInMillis();
    // Each request is noted at once: a generic method's version has no
    // function to note it by.
    for (auto& [function, state] : compiled) {
        HRESULT hr = metaDataContext->setFunction(function);
        if (FAILED(hr)) {
            fprintf_8(nativeLog, "Failed to set functionID %d\n", static_cast<int>(hr));
            continue;
        }
        const bool monitored = controller->shouldMonitorMethodUncached(metaDataContext) == 0;
        const char16_t* verb = nullptr;
        if (!monitored && state == kMonitored) {
            RequestReJIT(metaDataContext->getModuleID(), metaDataContext->getMethodDef(), true);
            state = kReverted;
            verb = u"disable";
        } else if (monitored && state != kMonitored) {
            RequestReJIT(metaDataContext->getModuleID(), metaDataContext->getMethodDef(), false);
            state = kMonitored;
            verb = u"enable";
        }
        if (verb != nullptr) {
            logReJITRequest(verb);
        }
    }
    const int inliners = recompilePrecompiledInliners();
    if (inliners != 0) {
        fprintf_8(nativeLog, "Hot Reload recompiling %d precompiled methods that inlined newly selected ones\n",
                  inliners);
    }
    fprintf_8(nativeLog, "Hot Reload complete (%dms)\n", static_cast<int>(Performance::GetTimeInMillis() - walked));
    fflush(nativeLog);
}

void ProfilerCallback::logReJITRequest(const char16_t* verb) {
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    char16_t* method = nullptr;
    if (methodNames(&assembly, &className, &method)) {
        fprintf_8(nativeLog, "Request ReJIT to %S [%S]%S::%S\n", verb, assembly, className, method);
    }
}

HRESULT ProfilerCallback::ReJITCompilationStarted(FunctionID functionId, ReJITID rejitId, BOOL fIsSafeToBlock) {
    // The version's body came with GetReJITParameters: only the runtime's
    // compile is timed, and nothing waits for the profiler's lock.
    if (fIsSafeToBlock && !disabled && jitEnabled) timeRuntimeCompile(functionId);
    return S_OK;
}

// A ReJIT version gets its body here, before its first compile: the rewritten
// one, or for a method not selected (after a revert) its own as first seen.
// The method's own body is never changed once code of it may run: the runtime
// may continue a running loop of it in new code made from that body, at an
// offset of it.
HRESULT ProfilerCallback::GetReJITParameters(ModuleID moduleId, mdMethodDef methodId,
                                             ICorProfilerFunctionControl* version) {
    if (disabled || !jitEnabled || version == nullptr) {
        return S_OK;
    }
    try {
        HeldLock held(&profilerLock);
        if (inJITCallback || metaDataContext == nullptr || controller == nullptr || profiler == nullptr) {
            return S_OK;
        }
        ReentranceMark reentrance(inJITCallback);
        // A generic method has no function of its own: its instantiations
        // share its body.
        FunctionID function = 0;
        if (FAILED(profilerInfo->GetFunctionFromToken(moduleId, methodId, &function)) ||
            FAILED(metaDataContext->setFunction(function))) {
            function = 0;
            if (FAILED(metaDataContext->setModuleMethod(moduleId, methodId))) {
                return S_OK;
            }
        }
        // A method not selected until now, or reverted and wanted again, is
        // decided anew.
        const IProfilerController::CompiledMethods& compiled = controller->getCompiledMethods();
        auto found = function != 0 ? compiled.find(function) : compiled.end();
        const int state = found != compiled.end() ? found->second : kMonitored;
        if (state == kNotMonitored ||
            (state == kReverted && controller->shouldMonitorMethodUncached(metaDataContext) == 0)) {
            if (function != 0) controller->clearCacheForFunction(function);
            profiler->clearHistoryForFunction(metaDataContext);
        }
        struct Installing {
            IProfiler* engine;
            ~Installing() { engine->installInto(nullptr); }
        } installing{profiler};
        profiler->installInto(version);
        compileMethod(function, CompileKind::kReJIT);
    } catch (...) {
        // The version takes the method's own body.
    }
    return S_OK;
}
