// A profiler controller that serves no call: each one goes to refused(), which
// a test overrides to answer one question or to treat any call as a fault.
// Unserved calls answer E_NOTIMPL, false, null or an empty value.
#pragma once

#include "policy/IProfilerController.h"
#include "runtime/CorErrors.h"

class RefusingProfilerController : public IProfilerController {
public:
    int shouldMonitorApplication() override { return refused(__func__); }
    int shouldMonitorMethod(IMetaDataContext*) override { return refused(__func__); }
    int shouldMonitorMethodUncached(IMetaDataContext*) override { return refused(__func__); }
    int shouldHijackMethod(IMetaDataContext*) override { return refused(__func__); }
    int shouldLogMethodBytes() override { return refused(__func__); }
    int shouldLogUninstrumentedMethods() override { return refused(__func__); }
    int shouldMonitorNgenModules() override { return refused(__func__); }
    int shouldDisablePrecompiledCode() override { return refused(__func__); }
    int shouldInstrumentOnModuleLoad() override { return refused(__func__); }
    int shouldDisableTransparencyChecks() override { return refused(__func__); }
    int shouldUseSyntheticShim() override { return refused(__func__); }
    int shouldFieldMarkEnabled() override { return refused(__func__); }
    bool isByRefLike(IMetaDataContext*) override { return refused(__func__) == 0; }
    bool usingGenericAgentTrigger() override { return refused(__func__) == 0; }
    bool isGenericAgentTriggerEnabled() override { return refused(__func__) == 0; }
    bool isGenericAgentTriggerPendingFor(IMetaDataContext*) override { return refused(__func__) == 0; }
    void setGenericDomainTrigger(AppDomainID) override { refused(__func__); }
    void setGenericModuleTrigger(ModuleID) override { refused(__func__); }
    void setIsAttach(bool) override { refused(__func__); }
    int getMonitoredMethodsForModule(ICorProfilerInfo*, ModuleID, std::set<mdMethodDef>&, bool) override {
        return refused(__func__);
    }
    void setCLRVersion(unsigned int) override { refused(__func__); }
    std::u16string& getAppName() override { return refused(__func__), appName; }
    FILE* getNativeLog() override { return refused(__func__), nullptr; }
    int shouldEnableDynamicInstrumentation() override { return refused(__func__); }
    int shouldSkipDynamicInstrumentation(IMetaDataContext*) override { return refused(__func__); }
    int shouldSkipAssembly(IMetaDataContext*) override { return refused(__func__); }
    int initializeDirectives() override { return refused(__func__); }
    int reloadDirectives() override { return refused(__func__); }
    int addDynamicDirective(char16_t*) override { return refused(__func__); }
    void clearCacheForFunction(FunctionID) override { refused(__func__); }
    CompiledMethods& getCompiledMethods() override { return refused(__func__), compiledMethods; }

protected:
    virtual int refused(const char* /*operation*/) { return E_NOTIMPL; }

private:
    std::u16string appName;
    CompiledMethods compiledMethods;
};
