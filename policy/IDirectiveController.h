// The directive engine: the global skip filter, the filter of dynamic
// instrumentation, the named directive groups that directive lines build, and
// the decisions made from them.
//
// Contract:
//  - No lock inside. Reading directives, every decision and every module
//    scan run under the caller's serialisation (the callback hub's
//    profilerLock): scans and decisions share the group index, which both
//    extend.
//  - Groups, filters and results refer to objects owned by the controller;
//    they live as long as it does. The caller owns a match result.
//  - Statuses are 32-bit: 0 or positive for success, E_FAIL when a group could
//    not be had.
#pragma once

#include <cstdio>
#include <set>

#include "metadata/IMetaDataContext.h"
#include "policy/IClassMethodFilter.h"
#include "policy/IDirectiveGroup.h"
#include "policy/IDirectiveMatchResult.h"
#include "runtime/CorProfilerInfo.h"

class IProfilerController;

class IDirectiveController {
public:
    // log is the native log, not owned; it may be null. Null on allocation failure.
    static IDirectiveController* newInstance(FILE* log);

    virtual ~IDirectiveController() = default;

    virtual IClassMethodFilter* getSkips() = 0;
    // Null if no group has that name.
    virtual IDirectiveGroup* getDirectiveGroup(const char16_t* name) = 0;
    // The group of that name, made neither active nor created if new; null if
    // it cannot be had.
    virtual IDirectiveGroup* addDirectiveGroup(const char16_t* name) = 0;
    // Which live groups skip, match or pass over the method; no cache, no log.
    // Never null.
    virtual IDirectiveMatchResult* shouldMonitorResult(IMetaDataContext* context) = 0;
    // The decision at JIT time: the global filter's veto, then the groups
    // through the match cache.
    virtual bool shouldMonitor(IMetaDataContext* context) = 0;
    // Adds to methods the tokens of the module's methods that the groups
    // select, and with logged logs what it matched and its statistics.
    // controller says whether every class is to be logged; it may be null.
    virtual void getMonitoredMethodsForModule(IProfilerController* controller, ICorProfilerInfo* info,
                                              ModuleID module, std::set<mdMethodDef>& methods, bool logged) = 0;
    // Reads a directive file line by line; stops at the first failure.
    [[nodiscard]] virtual HRESULT readDirectives(FILE* stream) = 0;
    // One directive line, taken apart in place.
    [[nodiscard]] virtual HRESULT readDirective(char16_t* line) = 0;
    virtual void setCacheSize(int size) = 0;
    virtual void clearCache() = 0;
    virtual IClassMethodFilter* getDynamicInstrumentationSkips() = 0;
};
