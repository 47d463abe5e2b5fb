// Real assemblies for the directive engine: the test assembly PolicyShapes
// (a small shop with interfaces, attributes, generics and nested types), the
// core library and others, read through the hosted runtime. The context is
// positioned on a method as the JIT path does, through a function id.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "SteeredContext.h"
#include "metadata/IMetaDataContext.h"
#include "policy/IDirectiveController.h"
#include "support/RealMetadataFixture.h"
#include "support/TextFiles.h"

class PolicyFixture : public RealMetadataFixture {
protected:
    void SetUp() override {
        RealMetadataFixture::SetUp();
        ASSERT_NE(shop = module(RealAssemblies::testAsset("PolicyShapes")), 0u);
        context = std::make_unique<SteeredContext>(info);
    }

    // Positions the context on a method; the ClassID follows the type, so
    // that methods of one class share it.
    IMetaDataContext* at(ModuleID where, std::initializer_list<const char16_t*> path, const char16_t* method) {
        mdMethodDef token = methodIn(where, path, method);
        EXPECT_NE(token, 0u) << "no method " << RealAssemblies::narrow(method) << " in "
                             << RealAssemblies::narrow(*(path.end() - 1));
        EXPECT_EQ(context->setFunction(info->addFunction(where, token)), S_OK);
        context->classID = where + typeIn(where, path);
        return context.get();
    }

    IMetaDataContext* at(std::initializer_list<const char16_t*> path, const char16_t* method) {
        return at(shop, path, method);
    }

    // Positions the context on every method of every type of a module in
    // turn, as a module scan does: no function id, and ClassID 0 unless each
    // type is to have one of its own.
    void forEachMethod(ModuleID where, const std::function<void(IMetaDataContext*)>& visit,
                       bool withClassIds = false);

    // Names of the groups in each list of the controller's account of the method.
    struct Account {
        bool skippedGlobally = false;
        std::vector<std::string> skipped;
        std::vector<std::string> matched;
        std::vector<std::string> unmatched;
    };
    static Account account(IDirectiveController& controller, IMetaDataContext* method);
    // The decision without the match cache.
    static bool selects(IDirectiveController& controller, IMetaDataContext* method);
    // Reads one more line into a controller.
    static HRESULT line(IDirectiveController& controller, const std::string& text);

    // A controller that has read text as a directive file.
    std::unique_ptr<IDirectiveController> directives(const std::string& text, HRESULT* status = nullptr,
                                                     FILE* log = nullptr);

    ModuleID shop = 0;
    std::unique_ptr<SteeredContext> context;
};
