#include "sampling/TraceProfiler.h"

namespace {
// Log levels: 1 ERROR, 2 WARN, 3 INFO, 4 DEBUG, 5 TRACE.
constexpr int kWarn = 2;
constexpr int kDefaultMaxStacks = 256;
constexpr unsigned int kDefaultSamplingIntervalMs = 100;
}  // namespace

TraceProfiler::TraceProfiler(ProfilerCallback* callback)
    : callback(callback),
      enabled(true),
      unsafe(false),
      shuttingDown(false),
      logLevel(0),
      maxStacks(0),
      samplingInterval(0) {
    InitializeCriticalSection(&sessionLock);
    InitializeConditionVariable(&wakeUp);
}

TraceProfiler::~TraceProfiler() {
    pthread_cond_destroy(&wakeUp);
    DeleteCriticalSection(&sessionLock);
}

void TraceProfiler::Init() {
    maxStacks = kDefaultMaxStacks;
    samplingInterval = kDefaultSamplingIntervalMs;
    logLevel = kWarn;
}

void TraceProfiler::Shutdown() {
    shuttingDown = true;
    if (enabled) {
        enabled = false;
        WakeConditionVariable(&wakeUp);
    }
}

void TraceProfiler::SetUnsafe(bool value) {
    EnterCriticalSection(&sessionLock);
    unsafe = value;
    LeaveCriticalSection(&sessionLock);
}

bool TraceProfiler::isUnsafe() {
    EnterCriticalSection(&sessionLock);
    bool value = unsafe;
    LeaveCriticalSection(&sessionLock);
    return value;
}
