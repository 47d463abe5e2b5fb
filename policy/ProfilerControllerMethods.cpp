// The decisions on methods: monitored, hijacked, skipped, byref-like.
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/Text16.h"
#include "policy/ProfilerController.h"
#include "runtime/CorErrors.h"

int ProfilerController::shouldMonitorMethod(IMetaDataContext* context) {
    int status = initializeDirectives();
    if (status < 0) {
        return status;
    }

    // The first suitable method in the agent's module (Core) or AppDomain
    // (desktop) is selected whatever the directives say, so that the agent
    // comes up. The memo is left alone.
    if (!genericTriggerMatched && isGenericAgentTriggerEnabled()) {
        IClassMethodFilter* skips = directives->getSkips();
        const ModuleID module = context->getModuleID();
        bool inTrigger = false;
        if (isDotnetCore) {
            inTrigger = module == genericModuleTrigger;
        } else if (shouldHijackMethod(context) != 0) {
            ICorProfilerInfo* profilerInfo = context->getInfo();
            AssemblyID assembly = 0;
            AppDomainID appDomain = 0;
            inTrigger = profilerInfo->GetModuleInfo(module, nullptr, 0, nullptr, nullptr, &assembly) == S_OK &&
                        profilerInfo->GetAssemblyInfo(assembly, 0, nullptr, nullptr, &appDomain, nullptr) == S_OK &&
                        appDomain == genericDomainTrigger;
        }
        if (inTrigger && !skips->skipClassMethod(context)) {
            fprintf_8(getNativeLog(), "Generic agent trigger matched.\n");
            genericTriggerMatched = true;
            return S_OK;
        }
    }

    const FunctionID functionId = context->getFunctionID();
    auto known = compiledMethods.find(functionId);
    if (known != compiledMethods.end()) {
        return known->second;
    }

    status = directives->shouldMonitor(context) ? S_OK : S_FALSE;
    if (status == S_OK && isByRefLike(context)) {
        status = S_FALSE;
        char16_t* assembly = nullptr;
        char16_t* className = nullptr;
        char16_t* methodName = nullptr;
        if (SUCCEEDED(context->getClassName(&assembly, &className)) && SUCCEEDED(context->getMethodName(&methodName))) {
            fprintf_8(getNativeLog(), "Instrumentation disabled for byref-like type [%S]%S::%S\n", assembly, className,
                      methodName);
        }
    }
    compiledMethods[functionId] = status;
    return status;
}

int ProfilerController::shouldMonitorMethodUncached(IMetaDataContext* context) {
    if (directives == nullptr) {
        return E_UNEXPECTED;
    }
    return directives->shouldMonitor(context) ? S_OK : S_FALSE;
}

bool ProfilerController::isByRefLike(IMetaDataContext* context) {
    char16_t* parent = nullptr;
    if (FAILED(context->getParentName(nullptr, &parent)) || parent == nullptr ||
        strcmp_u16(parent, SharedNames::kValueType) != 0) {
        return false;
    }
    char16_t** names = nullptr;
    unsigned int count = 0;
    if (FAILED(context->getClassAttributes(nullptr, &names, &count))) {
        return false;
    }
    // A read-only struct is treated like a byref-like one.
    for (unsigned int i = 0; i < count; ++i) {
        if (strcmp_u16(names[i], SharedNames::kIsByRefLikeAttribute) == 0 ||
            strcmp_u16(names[i], SharedNames::kIsReadOnlyAttribute) == 0) {
            return true;
        }
    }
    return false;
}

int ProfilerController::shouldHijackMethod(IMetaDataContext* context) {
    // The Core runtime has no hijack: the synthetic shim brings the agent in.
    if (isDotnetCore) {
        return S_FALSE;
    }
    char16_t* assembly = nullptr;
    const HRESULT hr = context->getClassName(&assembly, nullptr);
    if (FAILED(hr)) {
        return hr;
    }
    return strcmp_u16(assembly, SharedNames::kDesktopCoreLibrary) == 0 ? S_OK : S_FALSE;
}

int ProfilerController::getMonitoredMethodsForModule(ICorProfilerInfo* profilerInfo, ModuleID module,
                                                     std::set<mdMethodDef>& methods, bool logged) {
    if (directives != nullptr) {
        directives->getMonitoredMethodsForModule(this, profilerInfo, module, methods, logged);
    }
    return S_OK;
}

int ProfilerController::shouldSkipDynamicInstrumentation(IMetaDataContext* context) {
    if (directives == nullptr) {
        return S_FALSE;
    }
    return directives->getDynamicInstrumentationSkips()->skipClassMethod(context) ? S_OK : S_FALSE;
}

int ProfilerController::shouldSkipAssembly(IMetaDataContext* context) {
    if (initializeDirectives() != 0) {
        return S_FALSE;
    }
    return directives->getSkips()->skipAssembly(context) ? S_OK : S_FALSE;
}
