// The sampling profiler that lives beside the instrumentation, as far as the
// callback hub drives it: set-up, shutdown, the end of a thread, and the unsafe
// windows in which no stack snapshot may be taken.
//
// Contract: a member of ProfilerCallback, built with a pointer to its owner. The
// session lock guards the unsafe flag; enabled and shutting down are plain fields,
// written on the runtime's start-up and shutdown paths.
#pragma once

#include "platform/CoreCLRPAL.h"

class ProfilerCallback;

class TraceProfiler {
public:
    explicit TraceProfiler(ProfilerCallback* callback);
    ~TraceProfiler();
    TraceProfiler(const TraceProfiler&) = delete;
    TraceProfiler& operator=(const TraceProfiler&) = delete;

    // Once, from ProfilerCallback::Initialize.
    void Init();
    // Stops all sampling for good; the sampling thread is woken, not joined.
    void Shutdown();
    // Stops the sessions that sample this thread. There are none before the
    // sampling thread exists, which the first session starts.
    void ThreadDestroyed(ThreadID threadId) {}
    // True while the runtime loads or unloads an assembly.
    void SetUnsafe(bool value);
    bool isUnsafe();
    bool isEnabled() const { return enabled; }
    bool isShuttingDown() const { return shuttingDown; }
    int getLogLevel() const { return logLevel; }
    int getMaxStacks() const { return maxStacks; }
    unsigned int getSamplingInterval() const { return samplingInterval; }

private:
    ProfilerCallback* callback;
    bool enabled;
    bool unsafe;
    bool shuttingDown;
    int logLevel;
    int maxStacks;
    unsigned int samplingInterval;
    CRITICAL_SECTION sessionLock;
    CONDITION_VARIABLE wakeUp;
};
