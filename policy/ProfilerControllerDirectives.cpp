// Directive loading and the method decision. The directive engine is not part
// of the library yet: until it is, every operation that needs directives
// reports E_NOTIMPL and selects nothing.
#include "policy/ProfilerController.h"
#include "runtime/CorErrors.h"

int ProfilerController::initializeDirectives() { return E_NOTIMPL; }

int ProfilerController::reloadDirectives() { return E_NOTIMPL; }

int ProfilerController::addDynamicDirective(char16_t*) { return E_NOTIMPL; }

int ProfilerController::shouldMonitorMethod(IMetaDataContext*) { return E_NOTIMPL; }

int ProfilerController::shouldMonitorMethodUncached(IMetaDataContext*) { return E_NOTIMPL; }

int ProfilerController::shouldHijackMethod(IMetaDataContext*) { return E_NOTIMPL; }

bool ProfilerController::isByRefLike(IMetaDataContext*) { return false; }

int ProfilerController::getMonitoredMethodsForModule(ICorProfilerInfo*, ModuleID, std::set<mdMethodDef>&) { return S_OK; }

int ProfilerController::shouldSkipDynamicInstrumentation(IMetaDataContext*) { return S_FALSE; }

int ProfilerController::shouldSkipAssembly(IMetaDataContext*) { return S_FALSE; }
