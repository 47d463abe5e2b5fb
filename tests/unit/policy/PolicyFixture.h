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
#include "policy/IDirectiveController.h"
#include "policy/ProfilerController.h"
#include "support/AgentHome.h"
#include "support/RealMetadataFixture.h"
#include "support/ScopedEnvironment.h"
#include "support/TextFiles.h"

// An agent installation under a scratch directory, with the agent profile
// named in this process's environment (as the process gate leaves it) and
// profiler controllers made over it the way the gate makes them. The native
// log goes to a file of its own, read back by log().
class AgentInstallation : public AgentHome {
public:
    AgentInstallation() {
        set("harrowlite.nativeprofiler.logfile", "logs/native.log");
        environment.set("com.tarn.harrowlite.agentProfile", profilePath().c_str());
        environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
        environment.set("WEBSITE_INSTANCE_ID", nullptr);
    }

    // A controller over the installation as it stands, with text (if any) as
    // its directive file; null if none is made.
    std::unique_ptr<ProfilerController> controller(ICorProfilerInfo* info, const std::string& text = "");
    // The lines of the native log of the last controller so far, the folder
    // of the profile shortened to "~".
    std::vector<std::string> log() const;
    // The name of this process's executable, which names its native log.
    static std::string executableName();
    std::string logPath() const { return profiles() + "/logs/native_" + executableName() + ".log"; }

private:
    ScopedEnvironment environment;
    ProfilerController* last = nullptr;
    // The properties of the controllers made.
    std::vector<std::unique_ptr<IProperties>> stores;
};

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
    bool selects(const std::string& text, std::initializer_list<const char16_t*> path, const char16_t* method) {
        return selects(*directives(text), at(path, method));
    }
    // The decision through the match cache, on a method of the shop.
    bool ask(IDirectiveController& controller, const char16_t* type, const char16_t* method) {
        return controller.shouldMonitor(at({type}, method));
    }
    // Reads one more line into a controller.
    static HRESULT line(IDirectiveController& controller, const std::string& text);

    // A controller that has read text as a directive file.
    std::unique_ptr<IDirectiveController> directives(const std::string& text, HRESULT* status = nullptr,
                                                     FILE* log = nullptr);

    ModuleID shop = 0;
    std::unique_ptr<SteeredContext> context;
};
