// A writable copy of the installed core library served to the synthetic shim
// through a profiler info double, with the shim's log captured and the agent's
// environment variables under the test's control.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "runtime/Guids.h"
#include "shim/SyntheticAgentShim.h"
#include "support/EmittingProfilerInfo.h"
#include "support/LookupFaults.h"
#include "offline/HostedRuntime.h"
#include "support/RealAssemblies.h"
#include "support/ScopedEnvironment.h"
#include "support/ScratchDirectory.h"

class ShimFixture : public ::testing::Test {
protected:
    static constexpr ModuleID kModule = 0x7f0012340000;

    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        std::string copy = scratch.path("System.Private.CoreLib.dll");
        std::filesystem::copy_file(RealAssemblies::coreLibPath(), copy);
        emit = EmittingProfilerInfo::openForWriting(copy);
        ASSERT_NE(emit.get(), nullptr) << "cannot open " << copy << " for writing";
        ASSERT_EQ(emit->QueryInterface(IID_IMetaDataImport, reinterpret_cast<void**>(&import)), S_OK);
        faults = std::make_unique<LookupFaults>(import.get());

        environment.set("com.tarn.harrowlite.agentLocation", nullptr);
        environment.set("com.tarn.harrowlite.agentProfile", "/opt/tarn/AgentProfile.config");
        environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
    }

    // Runs the shim once over the copy; the log goes to logText.
    HRESULT define(bool dotnetCore, bool attached, int infoVersion = 10) {
        info = std::make_unique<EmittingProfilerInfo>(kModule, emit.get(), import.get(), infoVersion);
        info->metaDataResult = metaDataResult;
        char* buffer = nullptr;
        size_t size = 0;
        FILE* log = open_memstream(&buffer, &size);
        SyntheticAgentShim shim;
        HRESULT hr = shim.DefineSyntheticAgentShim(info.get(), kModule, log, dotnetCore, attached);
        fclose(log);
        logText.assign(buffer, size);
        free(buffer);
        return hr;
    }

    mdTypeDef shimType() { return RealAssemblies::findType(import, SharedNames::kSyntheticAgentShimClass); }
    mdTypeDef corlibType(const char16_t* name) { return RealAssemblies::findType(import, name); }

    mdMethodDef methodNamed(mdTypeDef type, const char16_t* name) { return RealAssemblies::findMethod(import, type, name); }

    // Lines of the log that begin with prefix, in order.
    std::vector<std::string> logLines(const std::string& prefix = "") const {
        std::vector<std::string> lines;
        std::istringstream log(logText);
        for (std::string line; std::getline(log, line);) {
            if (line.starts_with(prefix)) lines.push_back(line);
        }
        return lines;
    }

    ScratchDirectory scratch;
    ScopedEnvironment environment;
    AutoCOMPointer<IMetaDataEmit> emit;
    AutoCOMPointer<IMetaDataImport> import;
    std::unique_ptr<LookupFaults> faults;
    std::unique_ptr<EmittingProfilerInfo> info;
    HRESULT metaDataResult = S_OK;
    std::string logText;
};
