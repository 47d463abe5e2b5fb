// The agent's door to the sampling profiler, to the names of the functions in
// its samples, and to the thread clocks it measures with.
#include <string>

#include "hub/Exports.h"
#include "hub/ProfilerCallback.h"
#include "platform/Clock.h"
#include "platform/Threads.h"

namespace {
constexpr int kUnknownModule = -3;
}

TARN_EXPORT int Native_StartProfilingForMethod(const char16_t* moduleName, unsigned int methodToken, int sampleLimit) {
    if (fpc == nullptr || moduleName == nullptr) {
        return kUnknownModule;
    }
    try {
        const std::u16string name(moduleName);
        ModuleID module = fpc->GetModuleID(name.c_str());
        if (module == 0) {
            return kUnknownModule;
        }
        return fpc->getTraceProfiler().StartProfilingForMethod(module, methodToken, sampleLimit);
    } catch (...) {
        return kUnknownModule;
    }
}

TARN_EXPORT int Native_StartProfilingForThread(int nativeThread, int sampleLimit) {
    if (fpc == nullptr) {
        return kUnknownModule;
    }
    try {
        return fpc->getTraceProfiler().StartProfilingForThread(nativeThread, sampleLimit);
    } catch (...) {
        return -1;
    }
}

TARN_EXPORT int Native_StopProfiling(int index) {
    return fpc != nullptr ? fpc->getTraceProfiler().StopProfiling(index) : -1;
}

TARN_EXPORT int Native_ReadStackSnapshotEntryCount(int index) {
    return fpc != nullptr ? fpc->getTraceProfiler().ReadStackSnapshotEntryCount(index) : -1;
}

TARN_EXPORT int Native_ReadStackSampleCount(int index) {
    return fpc != nullptr ? fpc->getTraceProfiler().ReadStackSampleCount(index) : -1;
}

TARN_EXPORT int Native_ReadFailedStackSampleCount(int index) {
    return fpc != nullptr ? fpc->getTraceProfiler().ReadFailedStackSampleCount(index) : -1;
}

TARN_EXPORT int Native_ReadStackSnapshots(int index, unsigned long* functions, unsigned long* parents, int* depths,
                                          int* counts) {
    return fpc != nullptr ? fpc->getTraceProfiler().ReadStackSnapshots(index, functions, parents, depths, counts) : -1;
}

TARN_EXPORT int Native_CloseProfilingSession(int index) {
    return fpc != nullptr ? fpc->getTraceProfiler().CloseProfilingSession(index) : -1;
}

TARN_EXPORT void Native_PushSamplingInterval(unsigned int milliseconds) {
    if (fpc != nullptr) {
        try {
            fpc->getTraceProfiler().PushSamplingInterval(milliseconds);
        } catch (...) {
            // The interval stays as it was.
        }
    }
}

TARN_EXPORT void Native_PopSamplingInterval() {
    if (fpc != nullptr) {
        fpc->getTraceProfiler().PopSamplingInterval();
    }
}

TARN_EXPORT void Native_GetClassForFunctionId(unsigned long functionId, char16_t* buffer, int size) {
    if (fpc != nullptr) {
        fpc->getTraceProfiler().GetClassForFunctionId(functionId, buffer, size);
    }
}

TARN_EXPORT HRESULT Native_GetModuleAndMetadataTokensForFunctionId(unsigned long functionId, char16_t* moduleName,
                                                                   unsigned int size, unsigned int* token) {
    if (fpc == nullptr) {
        return -1;
    }
    return fpc->getTraceProfiler().askAboutFunction(functionId, [&](ICorProfilerInfo* info) {
        ModuleID module = 0;
        mdToken methodToken = 0;
        HRESULT hr = info->GetFunctionInfo(functionId, nullptr, &module, &methodToken);
        if (SUCCEEDED(hr)) {
            if (token != nullptr) {
                *token = methodToken;
            }
            ULONG length = 0;
            hr = info->GetModuleInfo(module, nullptr, size, &length, moduleName, nullptr);
        }
        return hr;
    });
}

TARN_EXPORT unsigned int Native_GetMetadataTokenForFunctionId(unsigned long functionId) {
    mdToken methodToken = 0;
    if (fpc != nullptr) {
        (void)fpc->getTraceProfiler().askAboutFunction(functionId, [&](ICorProfilerInfo* info) {
            return info->GetFunctionInfo(functionId, nullptr, nullptr, &methodToken);
        });
    }
    return methodToken;
}

// The thread and clock exports need no profiler.

TARN_EXPORT_DECORATED void* Native_GetCurrentThread() {
    return GetCurrentThread();
}

// Only the calling thread's own handle can be read; any other is refused.
TARN_EXPORT_DECORATED BOOL Native_GetThreadTimes(void* thread, FILETIME* creation, FILETIME* exit, FILETIME* kernel,
                                                 FILETIME* user) {
    if (thread != GetCurrentThread()) {
        return FALSE;
    }
    return GetThreadTimes(thread, creation, exit, kernel, user);
}

TARN_EXPORT_DECORATED BOOL Native_QueryPerformanceCounter(LARGE_INTEGER* counter) {
    return counter != nullptr && QueryPerformanceCounter(counter);
}

TARN_EXPORT_DECORATED BOOL Native_QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
    return frequency != nullptr && QueryPerformanceFrequency(frequency);
}
