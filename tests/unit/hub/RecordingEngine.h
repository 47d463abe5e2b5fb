// An instrumentation engine that records which methods the hub hands it and
// answers as the test says. It has no builder: no test here asks for the
// listing of a rewritten method (the traced runs do).
#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "rewrite/IProfiler.h"
#include "support/RealAssemblies.h"

// "[assembly]Class::Method" of the method in hand, or "?" for what cannot be read.
inline std::string describeMethod(IMetaDataContext* context) {
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    char16_t* method = nullptr;
    if (FAILED(context->getClassName(&assembly, &className)) || FAILED(context->getMethodName(&method))) {
        return "?";
    }
    return "[" + RealAssemblies::narrow(assembly) + "]" + RealAssemblies::narrow(className) +
           "::" + RealAssemblies::narrow(method);
}

class RecordingEngine : public IProfiler {
public:
    struct Answer {
        HRESULT result;
        unsigned int step;
        const char16_t* error;
    };

    HRESULT instrumentResult = S_OK;
    unsigned int stepReached = 12;
    const char16_t* lastError = nullptr;
    // Answers for particular methods, by "[assembly]Class::Method"; the others
    // get the three above.
    std::map<std::string, Answer> answers;
    // Runs once, inside the next instrumentMethod, where the engine's own work
    // could set off another compile on the same thread.
    std::function<void()> duringInstrument;

    // Methods handed to instrumentMethod, in order.
    std::vector<std::string> instrumented;
    // Every operation called, by name.
    std::vector<std::string> calls;
    IMethodBuilder* getBuilder() override {
        calls.push_back("getBuilder");
        return nullptr;
    }
    HRESULT hijackMethod(IMetaDataContext* context) override {
        calls.push_back("hijackMethod " + describeMethod(context));
        return E_NOTIMPL;
    }
    HRESULT instrumentMethod(IMetaDataContext* context, unsigned int* step) override {
        calls.push_back("instrumentMethod");
        instrumented.push_back(describeMethod(context));
        if (std::function<void()> during = std::exchange(duringInstrument, nullptr)) {
            during();
        }
        auto answer = answers.find(instrumented.back());
        if (answer != answers.end()) {
            lastError = answer->second.error;
            *step = answer->second.step;
            return answer->second.result;
        }
        *step = stepReached;
        return instrumentResult;
    }
    void clearHistoryForFunction(IMetaDataContext*) override { calls.push_back("clearHistoryForFunction"); }
    void forgetModule(ModuleID) override { calls.push_back("forgetModule"); }
    void keepOriginalBodies() override { calls.push_back("keepOriginalBodies"); }
    HRESULT restoreOriginalBody(IMetaDataContext* context) override {
        calls.push_back("restoreOriginalBody " + describeMethod(context));
        return S_OK;
    }
    bool usingSyntheticShim() override {
        calls.push_back("usingSyntheticShim");
        return false;
    }
    const char16_t* getLastError() override {
        calls.push_back("getLastError");
        return lastError;
    }

    std::string instrumentedList() const {
        std::string list;
        for (const std::string& method : instrumented) {
            list += method + ";";
        }
        return list;
    }
};
