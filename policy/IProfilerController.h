// The monitoring policy of one runtime, as the callback hub sees it.
//
// Contract:
//  - The should... operations answer 0 for yes and any other value for no; a
//    negative one is an error. shouldSkipDynamicInstrumentation and
//    shouldSkipAssembly follow the same rule, so 0 there says "skip".
//  - No lock inside: callers hold the hub's profilerLock around shouldMonitorMethod
//    and around every operation that changes directives. getMonitoredMethodsForModule
//    only reads rule sets and may be called outside it.
//  - Contexts passed in stand on the method in question; the controller does not
//    keep them.
#pragma once

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "metadata/IMetaDataContext.h"
#include "runtime/CorProfilerInfo.h"

class IProperties;

class IProfilerController {
public:
    // Takes the properties; null if the controller cannot be initialised.
    static IProfilerController* newInstance(ICorProfilerInfo* info, IProperties* properties);

    virtual ~IProfilerController() = default;

    virtual int shouldMonitorApplication() = 0;
    virtual int shouldMonitorMethod(IMetaDataContext* context) = 0;
    // The directives' answer alone: no memo, no trigger, no byref-like veto.
    virtual int shouldMonitorMethodUncached(IMetaDataContext* context) = 0;
    virtual int shouldHijackMethod(IMetaDataContext* context) = 0;
    virtual int shouldLogMethodBytes() = 0;
    virtual int shouldLogUninstrumentedMethods() = 0;
    virtual int shouldMonitorNgenModules() = 0;
    // S_OK if precompiled code is switched off for the whole process at launch
    // (the profile's "harrowlite.nativeprofiler.precompiledCode.disabled");
    // by default it is kept, and refused method by method.
    virtual int shouldDisablePrecompiledCode() = 0;
    virtual int shouldInstrumentOnModuleLoad() = 0;
    virtual int shouldDisableTransparencyChecks() = 0;
    // 0 yes, 1 no, E_FAIL when the key is not set.
    virtual int shouldUseSyntheticShim() = 0;
    // 0 or E_FAIL.
    virtual int shouldFieldMarkEnabled() = 0;
    virtual bool isByRefLike(IMetaDataContext* context) = 0;
    virtual bool usingGenericAgentTrigger() = 0;
    virtual bool isGenericAgentTriggerEnabled() = 0;
    // Whether the method lies where the generic agent trigger still waits
    // (the trigger's module, on Core): its compile event may be the one that
    // starts the agent, so it must not run precompiled code.
    virtual bool isGenericAgentTriggerPendingFor(IMetaDataContext* context) = 0;
    virtual void setGenericDomainTrigger(AppDomainID appDomain) = 0;
    virtual void setGenericModuleTrigger(ModuleID module) = 0;
    virtual void setIsAttach(bool attach) = 0;
    // Fills methods with the tokens of the module that the directives select;
    // with logged, the native log names each and the module's figures.
    virtual int getMonitoredMethodsForModule(ICorProfilerInfo* info, ModuleID module, std::set<mdMethodDef>& methods,
                                             bool logged) = 0;
    virtual void setCLRVersion(unsigned int clrVersion) = 0;
    virtual std::u16string& getAppName() = 0;
    // The native log; never null once the controller exists. Not owned by callers.
    virtual FILE* getNativeLog() = 0;
    virtual int shouldEnableDynamicInstrumentation() = 0;
    virtual int shouldSkipDynamicInstrumentation(IMetaDataContext* context) = 0;
    virtual int shouldSkipAssembly(IMetaDataContext* context) = 0;
    virtual int initializeDirectives() = 0;
    virtual int reloadDirectives() = 0;
    virtual int addDynamicDirective(char16_t* line) = 0;
    // Forgets the memo of one function, so that its next compilation decides anew.
    virtual void clearCacheForFunction(FunctionID functionId) = 0;
    // The memo of shouldMonitorMethod: 0 monitored, 1 not monitored, 2 reverted.
    // Hashed: every method the runtime compiles or looks up is asked for.
    using CompiledMethods = std::unordered_map<FunctionID, int>;
    virtual CompiledMethods& getCompiledMethods() = 0;
};
