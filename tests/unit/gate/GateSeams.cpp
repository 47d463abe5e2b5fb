#include "GateSeams.h"

#include <cstdio>
#include <cstdlib>

#include "platform/Win32Types.h"

// The hub owns this lock and initialises it in each callback's constructor;
// here it is recursive from the start.
CRITICAL_SECTION gProfilingManagerLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

namespace {

[[noreturn]] void unexpected(const char* operation)
{
    fprintf(stderr, "the gate called IProfilerController::%s\n", operation);
    abort();
}

// The gate only makes and hands out the controller; any use of it here is a fault.
class UnusedController : public IProfilerController {
public:
    int shouldMonitorApplication() override { unexpected(__func__); }
    int shouldMonitorMethod(IMetaDataContext*) override { unexpected(__func__); }
    int shouldMonitorMethodUncached(IMetaDataContext*) override { unexpected(__func__); }
    int shouldHijackMethod(IMetaDataContext*) override { unexpected(__func__); }
    int shouldLogMethodBytes() override { unexpected(__func__); }
    int shouldLogUninstrumentedMethods() override { unexpected(__func__); }
    int shouldMonitorNgenModules() override { unexpected(__func__); }
    int shouldInstrumentOnModuleLoad() override { unexpected(__func__); }
    int shouldDisableTransparencyChecks() override { unexpected(__func__); }
    int shouldUseSyntheticShim() override { unexpected(__func__); }
    int shouldFieldMarkEnabled() override { unexpected(__func__); }
    bool isByRefLike(IMetaDataContext*) override { unexpected(__func__); }
    bool usingGenericAgentTrigger() override { unexpected(__func__); }
    bool isGenericAgentTriggerEnabled() override { unexpected(__func__); }
    void setGenericDomainTrigger(AppDomainID) override { unexpected(__func__); }
    void setGenericModuleTrigger(ModuleID) override { unexpected(__func__); }
    void setIsAttach(bool) override { unexpected(__func__); }
    int getMonitoredMethodsForModule(ICorProfilerInfo*, ModuleID, std::set<mdMethodDef>&) override
    {
        unexpected(__func__);
    }
    void setCLRVersion(unsigned int) override { unexpected(__func__); }
    std::u16string& getAppName() override { unexpected(__func__); }
    FILE* getNativeLog() override { unexpected(__func__); }
    int shouldEnableDynamicInstrumentation() override { unexpected(__func__); }
    int shouldSkipDynamicInstrumentation(IMetaDataContext*) override { unexpected(__func__); }
    int shouldSkipAssembly(IMetaDataContext*) override { unexpected(__func__); }
    int initializeDirectives() override { unexpected(__func__); }
    int reloadDirectives() override { unexpected(__func__); }
    int addDynamicDirective(char16_t*) override { unexpected(__func__); }
    void clearCacheForFunction(FunctionID) override { unexpected(__func__); }
    std::map<unsigned long, int>& getCompiledMethods() override { unexpected(__func__); }
};

int calls = 0;
ControllerFactoryCall last {};

} // namespace

IProfilerController* IProfilerController::newInstance(ICorProfilerInfo* info, IProperties* properties)
{
    ++calls;
    last = {info, properties, new UnusedController()};
    return last.made;
}

int controllerFactoryCalls() { return calls; }

const ControllerFactoryCall& lastControllerFactoryCall() { return last; }
