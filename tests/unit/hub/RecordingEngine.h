// An instrumentation engine that records which methods the hub hands it and
// answers as the test says. It has no builder: no test here asks for the
// listing of a rewritten method (the traced runs do).
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "rewrite/IProfiler.h"
#include "support/RealAssemblies.h"

class RecordingEngine : public IProfiler {
public:
    HRESULT instrumentResult = S_OK;
    unsigned int stepReached = 12;
    const char16_t* lastError = nullptr;
    // Runs once, inside the next instrumentMethod, where the engine's own work
    // could set off another compile on the same thread.
    std::function<void()> duringInstrument;

    // "[assembly]Class::Method" of each method handed to instrumentMethod, in order.
    std::vector<std::string> instrumented;
    // Operations called, of any kind.
    int calls = 0;

    IMethodBuilder* getBuilder() override { ++calls; return nullptr; }
    HRESULT hijackMethod(IMetaDataContext*) override { ++calls; return E_NOTIMPL; }
    HRESULT instrumentMethod(IMetaDataContext* context, unsigned int* step) override {
        ++calls;
        char16_t *assembly = nullptr, *className = nullptr, *method = nullptr;
        const bool named =
            SUCCEEDED(context->getClassName(&assembly, &className)) && SUCCEEDED(context->getMethodName(&method));
        auto narrow = [](const char16_t* text) { return RealAssemblies::narrow(text); };
        instrumented.push_back(named ? "[" + narrow(assembly) + "]" + narrow(className) + "::" + narrow(method) : "?");
        if (std::function<void()> during = std::exchange(duringInstrument, nullptr)) during();
        *step = stepReached;
        return instrumentResult;
    }
    bool hasOutcome(IMetaDataContext*) override {
        ++calls;
        return false;
    }
    void installInto(ICorProfilerFunctionControl*) override { ++calls; }
    void clearHistoryForFunction(IMetaDataContext*) override { ++calls; }
    void forgetModule(ModuleID) override { ++calls; }
    bool mapRewrittenOnLoad(FunctionID) override { ++calls; return false; }
    void keepOriginalBodies() override { ++calls; }
    HRESULT restoreOriginalBody(IMetaDataContext*) override { ++calls; return S_OK; }
    bool usingSyntheticShim() override { ++calls; return false; }
    void placeShimInModules(std::function<HRESULT(ModuleID)>) override { ++calls; }
    const char16_t* getLastError() override { ++calls; return lastError; }

    std::string instrumentedList() const {
        std::string list;
        for (const std::string& method : instrumented) list += method + ";";
        return list;
    }
};
