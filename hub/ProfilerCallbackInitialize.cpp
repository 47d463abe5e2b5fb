// Start-up of a runtime: the info interfaces, the process gate, the controller,
// the event mask, the engine, the shared context and the service thread.
#include <string>

#include "gate/ProfilingManager.h"
#include "hub/ProfilerCallback.h"
#include "metadata/CLRUtils.h"
#include "platform/Environment.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/TextConversion.h"
#include "platform/Threads.h"
#include "runtime/Guids.h"

namespace {

using SharedNames::kAgentProfileVariable;
// Core runtimes of major version 4 below this build cannot be profiled.
constexpr USHORT kFirstSupportedCoreBuild = 22221;

// One KEY=VALUE line for the managed agent, each unit copied into a byte.
void appendEnvironmentLine(std::string& lines, const char* key, const char16_t* value) {
    std::string narrow;
    FromChar16(value, narrow);
    lines.append(key).append("=").append(narrow).append("\n");
}

const char* runtimeTypeWord(COR_PRF_RUNTIME_TYPE type) {
    switch (type) {
    case COR_PRF_DESKTOP_CLR:
        return "Desktop";
    case COR_PRF_CORE_CLR:
        return "Core";
    default:
        return "Unknown";
    }
}

bool readBoolProperty(const char16_t* key) {
    IProperties* properties = ProfilingManager::getInstance()->getProperties();
    return properties == nullptr || properties->getBoolProperty(key, true);
}

}  // namespace

bool ProfilerCallback::IsReJITEnabled() {
    return supportsReJIT && readBoolProperty(u"harrowlite.agent.rejit.enabled");
}

bool ProfilerCallback::IsTraceProfilerEnabled() {
    return readBoolProperty(SharedNames::kDeepInstrumentationKey);
}

// The steps of start-up in their order; a phase that ends start-up sets stop
// and hands back the answer for the runtime.
HRESULT ProfilerCallback::Initialize(IUnknown* pICorProfilerInfoUnk) {
    try {
        if (pICorProfilerInfoUnk == nullptr) {
            return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
        }
        HRESULT hr = queryInfoInterfaces(pICorProfilerInfoUnk);
        // Without any info interface nothing below could reach the runtime.
        if (profilerInfo == nullptr) {
            return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
        }
        bool stop = false;
        hr = decideActivation(hr, stop);
        if (stop) {
            return hr;
        }
        FILE* log = controller->getNativeLog();
        hr = setEventMask(log, hr, stop);
        if (stop) {
            return hr;
        }
        settleLogging(log, hr);
        hr = createEngineAndContext(hr);
        if (SUCCEEDED(hr) && IsReJITEnabled() && !attached) {
            hooksEnabled = false;
            serviceThread = CreateThread(nullptr, 0, ServiceReJITThreadFunction, this, 0, nullptr);
            if (serviceThread == nullptr) logNoServiceThread();
        }
        traceProfiler.Init(ProfilingManager::getInstance()->getProperties());
        return FAILED(hr) ? CORPROF_E_PROFILER_CANCEL_ACTIVATION : hr;
    } catch (...) {
        // Anything thrown on the way (allocation failure) refuses the profiler.
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }
}

// The newest info interface the runtime offers, and what it says of the
// runtime's generation.
HRESULT ProfilerCallback::queryInfoInterfaces(IUnknown* unknown) {
    // Newest first; each derives from the one below, so one pointer serves.
    static const struct {
        const IID* iid;
        long version;
    } kInterfaces[] = {{&IID_ICorProfilerInfo3, 4}, {&IID_ICorProfilerInfo2, 2}, {&IID_ICorProfilerInfo, 1}};
    HRESULT hr = E_NOINTERFACE;
    for (const auto& candidate : kInterfaces) {
        ICorProfilerInfo* info = nullptr;
        hr = unknown->QueryInterface(*candidate.iid, reinterpret_cast<void**>(&info));
        if (FAILED(hr)) {
            continue;
        }
        profilerInfo = info;
        clrVersion = candidate.version;
        AutoCOMPointer<ICorProfilerInfo4> info4;
        if (clrVersion == 4 &&
            SUCCEEDED(unknown->QueryInterface(IID_ICorProfilerInfo4, reinterpret_cast<void**>(&info4)))) {
            supportsReJIT = true;
        }
        return hr;
    }
    return hr;
}

// The process gate and the controller: whether this runtime is profiled at all.
HRESULT ProfilerCallback::decideActivation(HRESULT hr, bool& stop) {
    stop = true;
    ProfilingManager* manager = ProfilingManager::getInstance();
    if (const char16_t* profile = _wgetenv(kAgentProfileVariable)) {
        appendEnvironmentLine(attachEnvironment, "com.tarn.harrowlite.agentProfile", profile);
    }

    // A build tool of the dotnet command: loaded, idle, no events.
    if (manager->isDotnetInternalCommand()) {
        eventMask = 0;
        disabled = true;
        return hr;
    }

    hr = manager->shouldMonitorCLR(clrVersion);
    if (FAILED(hr)) {
        return hr;
    }

    controller = manager->getController(profilerInfo);
    if (controller == nullptr) {
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }
    controller->setIsAttach(attached);
    // Opened here, before any decision of the controller can write to it.
    FILE* log = controller->getNativeLog();

    if (controller->shouldFieldMarkEnabled() != 0) {
        fprintf_8(log, "Monitoring disabled due to harrowlite.fieldmark.enable=false\n");
        fflush(log);
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }
    appendEnvironmentLine(attachEnvironment, "com.tarn.harrowlite.agentName", controller->getAppName().c_str());
    stop = false;
    return hr;
}

// The events asked of the runtime, composed in two halves around the runtime
// and application checks, and set.
HRESULT ProfilerCallback::setEventMask(FILE* log, HRESULT hr, bool& stop) {
    int coreMajor = 0;
    int coreMinor = 0;
    int corePatch = 0;
    CLRUtils::GetCoreCLRVersion(coreMajor, coreMinor, corePatch);

    eventMask |= COR_PRF_MONITOR_MODULE_LOADS | COR_PRF_MONITOR_ASSEMBLY_LOADS;
    if (IsTraceProfilerEnabled()) {
        eventMask |= COR_PRF_ENABLE_STACK_SNAPSHOT | COR_PRF_MONITOR_THREADS;
    }
    // Precompiled code is kept: a selected method is refused its precompiled
    // code when the runtime looks for it (JITCachedFunctionSearchStarted), and
    // so are the precompiled methods that inlined it. Switching it off for the
    // whole process would compile the framework again at every start.
    const bool precompiledOff = !attached && controller->shouldDisablePrecompiledCode() == 0;
    if (IsReJITEnabled()) {
        eventMask |= COR_PRF_ENABLE_REJIT;
        if (precompiledOff) {
            eventMask |= COR_PRF_DISABLE_ALL_NGEN_IMAGES;
        }
    } else {
        supportsReJIT = false;
    }
    if (attached) {
        fprintf_8(log, "Attaching to application %S\n", controller->getAppName().c_str());
    }
    controller->setCLRVersion(static_cast<unsigned int>(clrVersion));

    if (SUCCEEDED(hr) && clrVersion == 4) {
        hr = checkRuntimeInformation(log, coreMajor, coreMinor, corePatch, stop);
        if (stop) {
            return hr;
        }
    }
    if (!attached && controller->shouldMonitorApplication() != 0) {
        fflush(log);
        stop = true;
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }
    // An attach finds its modules loaded, and the runtime refuses the cache
    // searches that rewriting on load needs: the methods are compiled again.
    const bool onModuleLoad = controller->shouldInstrumentOnModuleLoad() == 0;
    if (onModuleLoad && attached) {
        fprintf_8(log, "Instrumentation on module load does not apply to an attach: methods are compiled again\n");
    } else if (onModuleLoad) {
        controller->initializeDirectives();
        // The module load does the rewriting. Compile events stay: each tells
        // the runtime how the rewritten body's offsets map to the method's own,
        // without which stack traces would show the lines of other statements.
        rewritesOnLoad = true;
        eventMask |= COR_PRF_MONITOR_CACHE_SEARCHES;
    }
    if (!attached && controller->shouldMonitorNgenModules() == 0) {
        eventMask |= COR_PRF_MONITOR_CACHE_SEARCHES;
        if (!onModuleLoad && precompiledOff) {
            eventMask |= COR_PRF_USE_PROFILE_IMAGES;
        }
    }
    if (!attached && controller->shouldDisableTransparencyChecks() == 0) {
        eventMask |= COR_PRF_DISABLE_TRANSPARENCY_CHECKS_UNDER_FULL_TRUST;
    }
    if (attached) {
        controller->initializeDirectives();
    }

    if (SUCCEEDED(hr)) {
        if (!attached && controller->shouldEnableDynamicInstrumentation() == 0 && fpc == nullptr) {
            eventMask |= COR_PRF_MONITOR_ENTERLEAVE;
        }
        // No enter/leave hooks nor function id mapper on this platform.
        hr = profilerInfo->SetEventMask(eventMask);
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to set event mask to 0x%x\n", eventMask);
        }
    }
    return hr;
}

// The runtime's kind and version in the log; a Core runtime too old to be
// profiled stops start-up. A failed query is logged and carried on.
HRESULT ProfilerCallback::checkRuntimeInformation(FILE* log, int coreMajor, int coreMinor, int corePatch,
                                                  bool& stop) {
    AutoCOMPointer<ICorProfilerInfo3> runtimeInfo;
    HRESULT hr = profilerInfo->QueryInterface(IID_ICorProfilerInfo3, reinterpret_cast<void**>(&runtimeInfo));
    COR_PRF_RUNTIME_TYPE type = COR_PRF_DESKTOP_CLR;
    USHORT major = 0;
    USHORT minor = 0;
    USHORT build = 0;
    if (SUCCEEDED(hr)) {
        hr = runtimeInfo->GetRuntimeInformation(nullptr, &type, &major, &minor, &build, nullptr, 0, nullptr, nullptr);
    }
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to query runtime information\n");
    }
    if (coreMajor != 0) {
        fprintf_8(log, "Runtime Info: %s CLR (0x%x) version %d.%d.%d (%d.%d_%d)\n", runtimeTypeWord(type), type,
                  coreMajor, coreMinor, corePatch, major, minor, build);
    } else {
        fprintf_8(log, "Runtime Info: %s CLR (0x%x) version %d.%d_%d\n", runtimeTypeWord(type), type, major, minor,
                  build);
    }
    isCoreCLR = type == COR_PRF_CORE_CLR;
    if (isCoreCLR && major == 4 && build < kFirstSupportedCoreBuild) {
        fprintf_8(log, "Unsupported .NET Core version");
        fflush(log);
        stop = true;
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }
    return hr;
}

// After the mask: the failure in the log, or the log and its switches kept.
void ProfilerCallback::settleLogging(FILE* log, HRESULT hr) {
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to initialize (0x%0x)\n", hr);
        fflush(log);
        return;
    }
    nativeLog = log;
    logEnabled = true;
    logMethodBytes = controller->shouldLogMethodBytes() == 0;
    logUninstrumented = controller->shouldLogUninstrumentedMethods() == 0;
    fpc = this;
    hooksEnabled = false;
}

// The rewriting engine and the shared metadata context.
HRESULT ProfilerCallback::createEngineAndContext(HRESULT hr) {
    if (SUCCEEDED(hr)) {
        profiler = IProfiler::newInstance(profilerInfo, static_cast<unsigned int>(clrVersion), isCoreCLR, controller);
        if (profiler == nullptr) {
            hr = E_OUTOFMEMORY;
        }
    }
    if (SUCCEEDED(hr)) {
        metaDataContext = IMetaDataContext::newInstance(profilerInfo);
        if (metaDataContext == nullptr) {
            hr = E_OUTOFMEMORY;
        }
    }
    if (SUCCEEDED(hr) && IsReJITEnabled()) {
        // A method whose instrumentation is reverted gets its own body back.
        profiler->keepOriginalBodies();
    }
    return hr;
}
