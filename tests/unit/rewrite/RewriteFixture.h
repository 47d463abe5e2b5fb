// The engine over real metadata: the test assembly of rewrite shapes (and any
// other assembly a test adds) copied and opened for writing, a metadata
// context on it, and a controller that hands the engine its log.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "metadata/IMetaDataContext.h"
#include "rewrite/Profiler.h"
#include "runtime/Guids.h"
#include "support/CapturedStream.h"
#include "support/DecodedBody.h"
#include "support/RealMetadataFixture.h"
#include "support/RefusingProfilerController.h"

// The controller as the engine sees it: a log, no shim setting, and no logging
// of methods left as they are; any other call is a fault of the engine.
class EngineController : public RefusingProfilerController {
public:
    FILE* getNativeLog() override { return log; }
    int shouldUseSyntheticShim() override { return E_FAIL; }
    int shouldLogUninstrumentedMethods() override { return 0; }

    FILE* log = nullptr;

protected:
    int refused(const char* operation) override {
        ADD_FAILURE() << "the engine asked the controller " << operation;
        return E_NOTIMPL;
    }
};

// The outcome of one instrumentMethod.
struct Rewrite {
    HRESULT hr = E_FAIL;
    unsigned int step = 99;
    mdMethodDef method = 0;
    const unsigned char* body = nullptr;  // as installed, null if none
};

class RewriteFixture : public RealMetadataFixture {
protected:
    void SetUp() override {
        RealMetadataFixture::SetUp();
        ASSERT_NE(shapes = module(RealAssemblies::testAsset("RewriteShapes"), true), 0u);
        controller.log = log.get();
        context.reset(IMetaDataContext::newInstance(info.get()));
        profiler.reset(Profiler::newInstance(info.get(), 4, true, &controller));
        ASSERT_NE(profiler, nullptr);
    }

    // A method by type and name, in the shapes module; several overloads
    // (constructors) are told apart by their parameter count.
    mdMethodDef method(const char16_t* typeName, const char16_t* name, int parameters = -1) {
        const mdMethodDef token =
            RealAssemblies::findMethod(info->importOf(shapes), typeIn(shapes, {typeName}), name, parameters);
        EXPECT_NE(token, 0u) << "no method " << RealAssemblies::narrow(name);
        return token;
    }

    Rewrite rewrite(ModuleID module, mdMethodDef token) {
        Rewrite outcome{E_FAIL, 99, token};
        EXPECT_EQ(context->setFunction(info->addFunction(module, token)), S_OK);
        outcome.hr = profiler->instrumentMethod(context.get(), &outcome.step);
        outcome.body = info->installedBody(module, token);
        return outcome;
    }

    Rewrite rewrite(const char16_t* typeName, const char16_t* name, int parameters = -1) {
        return rewrite(shapes, method(typeName, name, parameters));
    }

    ModuleID shapes = 0;
    CapturedStream log;
    EngineController controller;
    std::unique_ptr<IMetaDataContext> context;
    std::unique_ptr<Profiler> profiler;
};
