// A metadata context over the profiler info double, with the test assemblies
// and the core library registered as modules.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "metadata/IMetaDataContext.h"
#include "support/RealMetadataFixture.h"

class MetaDataFixture : public RealMetadataFixture {
protected:
    void SetUp() override {
        RealMetadataFixture::SetUp();
        ASSERT_NE(shapes = module(RealAssemblies::testAsset("MetadataShapes")), 0u);
        context.reset(IMetaDataContext::newInstance(info));
        ASSERT_NE(context, nullptr);
    }

    FunctionID function(ModuleID module, std::initializer_list<const char16_t*> path, const char16_t* method) {
        mdMethodDef token = methodIn(module, path, method);
        EXPECT_NE(token, 0u) << "no method " << RealAssemblies::narrow(method);
        return info->addFunction(module, token);
    }

    // A cached class, or base class, and its assembly, as text.
    using NameGetter = HRESULT (IMetaDataContext::*)(char16_t**, char16_t**);
    std::pair<std::string, std::string> names(NameGetter getter) {
        char16_t* assembly = nullptr;
        char16_t* name = nullptr;
        EXPECT_EQ(((*context).*getter)(&assembly, &name), S_OK);
        return {RealAssemblies::narrow(assembly), RealAssemblies::narrow(name)};
    }
    std::pair<std::string, std::string> className() { return names(&IMetaDataContext::getClassName); }
    std::pair<std::string, std::string> parentName() { return names(&IMetaDataContext::getParentName); }

    std::string methodName() {
        char16_t* name = nullptr;
        EXPECT_EQ(context->getMethodName(&name), S_OK);
        return RealAssemblies::narrow(name);
    }

    using NameList = std::vector<std::pair<std::string, std::string>>;
    using ListGetter = HRESULT (IMetaDataContext::*)(char16_t***, char16_t***, unsigned int*);

    // A cached list as (assembly, class) pairs.
    NameList list(ListGetter getter) {
        char16_t** assemblies = nullptr;
        char16_t** classes = nullptr;
        unsigned int count = 0;
        HRESULT hr = ((*context).*getter)(&assemblies, &classes, &count);
        EXPECT_EQ(hr, S_OK);
        NameList names;
        for (unsigned int i = 0; SUCCEEDED(hr) && i < count; ++i)
            names.emplace_back(RealAssemblies::narrow(assemblies[i]), RealAssemblies::narrow(classes[i]));
        return names;
    }

    ModuleID shapes = 0;
    std::unique_ptr<IMetaDataContext> context;
};
