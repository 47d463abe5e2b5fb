// A writable copy of the installed core library served to the synthetic shim
// through the profiler info double, with the shim's log captured and the agent's
// environment variables under the test's control.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "runtime/Guids.h"
#include "shim/SyntheticAgentShim.h"
#include "support/ProfilerInfoDouble.h"
#include "support/CapturedStream.h"
#include "support/LookupFaults.h"
#include "offline/HostedRuntime.h"
#include "support/RealAssemblies.h"
#include "support/ScopedEnvironment.h"
#include "support/TextFiles.h"

class ShimFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        info = ProfilerInfoDouble::newInstance();
        module = info->addWritableModule(RealAssemblies::coreLibPath());
        ASSERT_NE(module, 0u) << "cannot open a copy of the core library for writing";
        import = info->importOf(module);
        faults = std::make_unique<LookupFaults>(import);

        environment.set("com.tarn.harrowlite.agentLocation", nullptr);
        environment.set("com.tarn.harrowlite.agentProfile", "/opt/tarn/AgentProfile.config");
        environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
    }

    // Runs the shim once over the copy; the log goes to logText.
    HRESULT define(bool dotnetCore, bool attached) {
        info->metaDataResult = metaDataResult;
        CapturedStream log;
        SyntheticAgentShim shim;
        HRESULT hr = shim.DefineSyntheticAgentShim(info.get(), module, log.get(), dotnetCore, attached);
        logText = log.text();
        return hr;
    }

    mdTypeDef shimType() { return RealAssemblies::findType(import, SharedNames::kSyntheticAgentShimClass); }
    mdTypeDef corlibType(const char16_t* name) { return RealAssemblies::findType(import, name); }

    mdMethodDef methodNamed(mdTypeDef type, const char16_t* name) { return RealAssemblies::findMethod(import, type, name); }

    // Lines of the log that begin with prefix, in order.
    std::vector<std::string> logLines(const std::string& prefix = "") const {
        return linesStartingWith(splitLines(logText), prefix);
    }

    ScopedEnvironment environment;
    AutoCOMPointer<ProfilerInfoDouble> info;
    ModuleID module = 0;
    IMetaDataImport* import = nullptr;
    std::unique_ptr<LookupFaults> faults;
    HRESULT metaDataResult = S_OK;
    std::string logText;
};
