// The instrumentation engine: rewrites the body of the method in hand.
//
// Contract: no lock inside; the callback hub calls it under profilerLock (or on
// the module-load path when instrumenting on load). The context passed in stands
// on the method to work on and is not kept beyond the call.
#pragma once

#include <functional>

#include "metadata/IMetaDataContext.h"
#include "policy/IProfilerController.h"
#include "rewrite/IMethodBuilder.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/FunctionControl.h"

class IProfiler {
public:
    // Null if one of the engine's token getters cannot be made. The controller
    // is the process's; it gives the shim setting and the native log.
    static IProfiler* newInstance(ICorProfilerInfo* info, unsigned int clrVersion, bool isCoreCLR,
                                  IProfilerController* controller);

    virtual ~IProfiler() = default;

    // The builder of the last method, kept until the next instrumentMethod. Owned
    // by the engine.
    virtual IMethodBuilder* getBuilder() = 0;
    [[nodiscard]] virtual HRESULT hijackMethod(IMetaDataContext* context) = 0;
    // step receives the stage reached, 1 to 12, or 0 when the method had been
    // rewritten before and that outcome stands.
    [[nodiscard]] virtual HRESULT instrumentMethod(IMetaDataContext* context, unsigned int* step) = 0;
    // Whether instrumentMethod has an outcome for the method in hand: a call
    // would only give it again (step 0) and install nothing.
    virtual bool hasOutcome(IMetaDataContext* context) = 0;
    // Until called with null, bodies go to this ReJIT version of a method and
    // each instrumentMethod rewrites anew: a version has no body of its own
    // before. The method's own body, which code of it may still run, stays.
    virtual void installInto(ICorProfilerFunctionControl* version) = 0;
    // Lets the method be rewritten again.
    virtual void clearHistoryForFunction(IMetaDataContext* context) = 0;
    // Drops what is known of an unloaded module's methods and tokens: the
    // runtime may hand its identifier to another module.
    virtual void forgetModule(ModuleID module) = 0;
    // From now on the engine keeps a copy of each body as it was before its
    // first rewrite, so that restoreOriginalBody can hand it back.
    virtual void keepOriginalBodies() = 0;
    // Hands the kept body of the method in hand to the version of
    // installInto. E_FAIL if none was kept or there is no version.
    [[nodiscard]] virtual HRESULT restoreOriginalBody(IMetaDataContext* context) = 0;
    // A method is compiled while methods are rewritten when their module
    // loads: if it was, the runtime learns which offsets of the new body stand
    // for which of the method's own. Whether it was rewritten.
    virtual bool mapRewrittenOnLoad(FunctionID function) = 0;
    virtual bool usingSyntheticShim() = 0;
    // From now on the trace functions are those of a shim in the method's own
    // module, which define makes there before the module's first rewrite (and
    // answers alike after), or of the core library's where define answers
    // S_FALSE; a method whose module has neither is refused. Without it they
    // are those of the core library's shim.
    virtual void placeShimInModules(std::function<HRESULT(ModuleID)> define) = 0;
    // The message of the last failure, or null. Owned by the engine.
    virtual const char16_t* getLastError() = 0;
};
