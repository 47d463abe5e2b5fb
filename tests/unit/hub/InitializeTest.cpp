// Start-up decisions of the callback object on a fake runtime, each in a child
// process of its own (the process gate is made once per process).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "StartupChild.h"

namespace {

using ::testing::HasSubstr;

TEST(Initialize, EventMaskOfEachConfiguration) {
    struct Case {
        const char* name;
        unsigned long mask;
        std::map<std::string, std::string> properties;
        bool attach = false;
        int infoVersion = 10;
    };
    // Property names below leave out their leading "harrowlite.".
    const Case cases[] = {
        {"launch, defaults", 0x1006022C, {}},
        {"deep instrumentation off", 0x0006002C, {{"agent.deep.instrumentation.enabled", "false"}}},
        {"ReJIT off", 0x1002022C, {{"agent.rejit.enabled", "false"}}},
        {"ICorProfilerInfo4 absent", 0x1002022C, {}, false, 3},
        {"NGEN monitoring off", 0x1004022C, {{"nativeprofiler.ngen.monitor.enabled", "false"}}},
        {"transparency checks disabled", 0x5006022C, {{"nativeprofiler.clrv4.transparency.checks.disabled", "true"}}},
        {"dynamic instrumentation on", 0x1006122C, {{"agent.remoteagentdynamicinstrumentation.enabled", "true"}}},
        // Compile events stay on: they bring each rewritten body's offset map.
        {"instrumentation on module load", 0x1006022C, {{"nativeprofiler.instrumentOnModuleLoad", "true"}}},
        {"precompiled code off", 0xB006022C, {{"nativeprofiler.precompiledCode.disabled", "true"}}},
        {"attach, defaults", 0x1004022C, {}, true},
        // The runtime refuses cache searches to an attach: methods are compiled again.
        {"attach, rewrite on module load", 0x1004022C, {{"nativeprofiler.instrumentOnModuleLoad", "true"}}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StartupSetup setup;
        for (const auto& [key, value] : c.properties) setup.properties["harrowlite." + key] = value;
        setup.attach = c.attach;
        setup.makeInfo = [version = c.infoVersion] { return new ProfilerInfoDouble(version); };
        setup.body = [](ProfilerCallback* callback, ProfilerInfoDouble*, std::ostream& notes) {
            notes << "rejit=" << callback->IsReJITEnabled() << " supports=" << callback->getSupportsReJIT();
        };
        StartupOutcome outcome = runStartup(setup);
        EXPECT_EQ(outcome.result, S_OK) << outcome.log;
        EXPECT_EQ(outcome.setEventMaskCalls, 1);
        EXPECT_EQ(outcome.mask, c.mask) << outcome.log << std::hex << "the mask in hex: " << outcome.mask;
        EXPECT_TRUE(outcome.fpcSet);
        // The service thread, where there is one, stops when the object goes.
        EXPECT_TRUE(outcome.released);
        const bool reJIT = (c.mask & COR_PRF_ENABLE_REJIT) != 0;
        EXPECT_EQ(outcome.notes, std::string("rejit=") + (reJIT ? "1" : "0") + " supports=" + (reJIT ? "1" : "0"));
        EXPECT_THAT(outcome.log, HasSubstr("Runtime Info: Core CLR (0x2) version "));
        EXPECT_EQ(outcome.log.find("Attaching to application ") != std::string::npos, c.attach) << outcome.log;
    }
}

TEST(Initialize, OldCoreRuntimeIsRefusedFromBuild22221On) {
    for (USHORT build : {USHORT(22220), USHORT(22221)}) {
        StartupSetup setup;
        setup.makeInfo = [build] {
            auto* info = new ProfilerInfoDouble();
            info->setRuntimeVersion(4, 0, build);
            return info;
        };
        StartupOutcome outcome = runStartup(setup);
        const bool refused = build == 22220;
        EXPECT_EQ(outcome.result, refused ? CORPROF_E_PROFILER_CANCEL_ACTIVATION : S_OK) << build << outcome.log;
        EXPECT_EQ(outcome.setEventMaskCalls, refused ? 0 : 1) << build;
        EXPECT_EQ(outcome.fpcSet, !refused) << build;
        // The runtime line carries the runtime's numbers; the library's folder
        // version is 0 in a process without the runtime library.
        EXPECT_THAT(outcome.log, HasSubstr("Runtime Info: Core CLR (0x2) version 4.0_" + std::to_string(build) + "\n"));
        EXPECT_EQ(outcome.log.find("Unsupported .NET Core version") != std::string::npos, refused) << outcome.log;
    }
}

TEST(Initialize, AttachThatCannotListTheLoadedModulesIsRefused) {
    StartupSetup setup;
    setup.attach = true;
    setup.makeInfo = [] {
        auto* info = new ProfilerInfoDouble();
        info->modulesResult = E_FAIL;
        return info;
    };
    StartupOutcome outcome = runStartup(setup);
    EXPECT_EQ(outcome.result, static_cast<HRESULT>(0x80131375)) << outcome.log;
    EXPECT_THAT(outcome.log, HasSubstr("Failed to attach TMS Agent with 0x80004005\n"));
}

}  // namespace
