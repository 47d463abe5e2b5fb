// The process-wide gate before everything else. One object per process, made
// at the first getInstance and never destroyed. It settles which properties
// file governs the process, decides for each runtime whether it is profiled
// (pick first, pick one or pick many), analyses a `dotnet` command line, and
// keeps the diagnostic log of the start-up path.
//
// Threads: getInstance and getDiagnosticLog take gProfilingManagerLock, the
// pick-first test the manager's own lock. The rest is settled in init and only
// read afterwards.
#pragma once

#include <cstdio>
#include <string>

#include "platform/AutoPointer.h"
#include "platform/Win32Types.h"
#include "policy/IProfilerController.h"
#include "policy/IProperties.h"
#include "runtime/CorProfilerInfo.h"

// Recursive, and ready before any code runs: constant-initialised here.
extern CRITICAL_SECTION gProfilingManagerLock;

class ProfilingManager {
public:
    static ProfilingManager* getInstance();

    // 0 if this runtime is to be profiled, else CORPROF_E_PROFILER_CANCEL_ACTIVATION.
    // clrVersion is 2 or 4; version 1 is never profiled.
    [[nodiscard]] HRESULT shouldMonitorCLR(long clrVersion);
    // Made once, at the first call; every caller gets the same object.
    IProfilerController* getController(ICorProfilerInfo* info);
    // Null if no properties file could be read.
    IProperties* getProperties();
    // The profile chosen by "AgentProfile.config", or empty.
    const std::basic_string<char16_t>& getCustomConfigPath();

    // A build tool of the dotnet command (dotnet build, MSBuild, csc).
    bool isDotnetInternalCommand();

    bool isPickFirst();
    bool isPickOne();
    bool isPickMany();
    bool isPickFirstAlreadyHonored();
    void HonorPickFirst();


    // "TMS_DIAGNOSTICS_ENABLED" is "1" (or empty), read anew at each call.
    bool isDiagnosticLogEnabled();
    // The diagnostic log, or "/dev/null" when it is not enabled. Null if its
    // file could not be made; the next call tries again.
    FILE* getDiagnosticLog();
    // Writes to the diagnostic log if there is one.
    void logDiagnostic(const char* format, ...);
    // The directory above the one that holds the profiler library, else ".".
    bool findAgentHome(std::basic_string<char16_t>& home);
    void dumpDiagnostics(FILE* file);

private:
    ProfilingManager();
    void init();
    void initProperties();
    void initInProcSxSOptions();

    static ProfilingManager* sInstance;

    FILE* diagnosticLog = nullptr;
    bool pickFirstHonored = false;
    unsigned int runtimeMask = 0;
    int pickMode = 1;
    std::basic_string<char16_t> customConfigPath;
    AutoPointer<IProperties> properties;
    AutoPointer<IProfilerController> controller;
    CRITICAL_SECTION lock;
};
