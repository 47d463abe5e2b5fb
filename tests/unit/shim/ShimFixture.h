// A writable copy of the installed core library served to the synthetic shim
// through the profiler info double, with the shim's log captured and the agent's
// environment variables under the test's control.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/SharedNames.h"
#include "shim/SyntheticAgentShim.h"
#include "support/CapturedStream.h"
#include "support/LookupFaults.h"
#include "support/RealMetadataFixture.h"
#include "support/ScopedEnvironment.h"
#include "support/TextFiles.h"

class ShimFixture : public RealMetadataFixture {
protected:
    void SetUp() override {
        RealMetadataFixture::SetUp();
        ASSERT_NE(coreLib = module(RealAssemblies::coreLibPath(), true), 0u);
        import = info->importOf(coreLib);
        faults = std::make_unique<LookupFaults>(import);

        environment.set("com.tarn.harrowlite.agentLocation", nullptr);
        environment.set("com.tarn.harrowlite.agentProfile", "/opt/tarn/AgentProfile.config");
        environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
    }

    // Runs the shim once over the copy; the log goes to logText.
    HRESULT define(bool dotnetCore, bool attached) {
        CapturedStream log;
        CoreLibraryLookups lookups;
        SyntheticAgentShim shim(lookups);
        HRESULT hr = shim.DefineSyntheticAgentShim(info.get(), coreLib, log.get(), dotnetCore, attached, coreLib);
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
    ModuleID coreLib = 0;
    IMetaDataImport* import = nullptr;
    std::unique_ptr<LookupFaults> faults;
    std::string logText;
};
