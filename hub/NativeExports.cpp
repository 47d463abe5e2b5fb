// The flat interface that the managed agent reaches by P/Invoke.
#include <string>

#include "hub/Exports.h"
#include "hub/ProfilerCallback.h"
#include "platform/Threads.h"

// The kernel's number of the calling thread; needs no profiler.
TARN_EXPORT DWORD Native_GetCurrentNativeThreadId() {
    return GetCurrentThreadId();
}

// The exports below need the profiler; each gives its fixed answer while there
// is none. String arguments are copied before use: the agent's buffer is only
// borrowed for the call.

TARN_EXPORT bool Native_SupportsReJIT() {
    try {
        return fpc != nullptr && fpc->IsReJITEnabled();
    } catch (...) {
        return false;
    }
}

TARN_EXPORT bool Native_IsProfilerAttached() {
    return fpc != nullptr && fpc->IsProfilerAttached();
}

TARN_EXPORT int Native_RequestReJIT(const char16_t* moduleName, const char16_t* assemblyName, int methodToken) {
    if (fpc == nullptr || moduleName == nullptr || assemblyName == nullptr) {
        return -1;
    }
    try {
        const std::u16string module(moduleName);
        const std::u16string assembly(assemblyName);
        return fpc->RequestReJIT(module.c_str(), assembly.c_str(), methodToken);
    } catch (...) {
        return -1;
    }
}

TARN_EXPORT int Native_GetReJITStatus(int identifier) {
    return fpc != nullptr ? fpc->GetReJITStatus(identifier) : -1;
}

TARN_EXPORT void Native_ReloadDirectives(bool wait) {
    if (fpc != nullptr) {
        fpc->ReloadDirectives(wait);
    }
}

TARN_EXPORT void Native_AddDynamicDirective(const char16_t* directive) {
    if (fpc == nullptr || directive == nullptr || fpc->getController() == nullptr) {
        return;
    }
    try {
        fpc->AddDynamicDirective(directive);
    } catch (...) {
        // The directive is lost; the agent can send it again.
    }
}

TARN_EXPORT bool Native_isGenericAgentTriggerEnabled() {
    if (fpc == nullptr || fpc->getController() == nullptr) {
        return true;
    }
    try {
        return fpc->getController()->isGenericAgentTriggerEnabled();
    } catch (...) {
        return true;
    }
}

// The KEY=VALUE lines an attached agent would have found in its environment,
// widened unit for byte; at most size units with the terminator.
TARN_EXPORT void Native_GetAgentAttachEnvironmentVars(char16_t* buffer, int size) {
    if (buffer == nullptr || size <= 0) {
        return;
    }
    int written = 0;
    if (fpc != nullptr) {
        for (char c : fpc->getAttachEnvironment()) {
            if (written + 1 >= size) {
                break;
            }
            buffer[written++] = static_cast<char16_t>(static_cast<unsigned char>(c));
        }
    }
    buffer[written] = 0;
}
