// Start-up decisions of the callback object on a fake runtime, each in a child
// process of its own (the process gate is made once per process).
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "StartupChild.h"

namespace {

std::string hex(unsigned long value) {
    char text[16];
    snprintf(text, sizeof(text), "0x%lX", value);
    return text;
}

TEST(Initialize, EventMaskOfEachConfiguration) {
    struct Case {
        const char* name;
        std::map<std::string, std::string> properties;
        bool attach;
        int infoVersion;
        unsigned long mask;
    };
    const Case cases[] = {
        {"launch, defaults", {}, false, 10, 0x1006022C},
        {"deep instrumentation off", {{"harrowlite.agent.deep.instrumentation.enabled", "false"}}, false, 10,
         0x0006002C},
        {"ReJIT off", {{"harrowlite.agent.rejit.enabled", "false"}}, false, 10, 0x1002022C},
        {"ICorProfilerInfo4 absent", {}, false, 3, 0x1002022C},
        {"NGEN monitoring off", {{"harrowlite.nativeprofiler.ngen.monitor.enabled", "false"}}, false, 10, 0x1004022C},
        {"transparency checks disabled", {{"harrowlite.nativeprofiler.clrv4.transparency.checks.disabled", "true"}},
         false, 10, 0x5006022C},
        {"dynamic instrumentation on", {{"harrowlite.agent.remoteagentdynamicinstrumentation.enabled", "true"}}, false,
         10, 0x1006122C},
        // Compile events stay on: they bring each rewritten body's offset map.
        {"instrumentation on module load", {{"harrowlite.nativeprofiler.instrumentOnModuleLoad", "true"}}, false, 10,
         0x1006022C},
        {"precompiled code off", {{"harrowlite.nativeprofiler.precompiledCode.disabled", "true"}}, false, 10,
         0xB006022C},
        {"attach, defaults", {}, true, 10, 0x1004022C},
        // The runtime refuses cache searches to an attach: methods are compiled again.
        {"attach, instrumentation on module load", {{"harrowlite.nativeprofiler.instrumentOnModuleLoad", "true"}},
         true, 10, 0x1004022C},
    };
    for (const Case& c : cases) {
        StartupSetup setup;
        setup.properties.insert(c.properties.begin(), c.properties.end());
        setup.attach = c.attach;
        const int version = c.infoVersion;
        setup.makeInfo = [version] { return new ProfilerInfoDouble(version); };
        setup.body = [](ProfilerCallback* callback, ProfilerInfoDouble*, std::ostream& notes) {
            notes << "rejit=" << callback->IsReJITEnabled() << " supports=" << callback->getSupportsReJIT();
        };
        StartupOutcome outcome = runStartup(setup);
        EXPECT_EQ(outcome.result, S_OK) << c.name << "\n" << outcome.log;
        EXPECT_EQ(outcome.setEventMaskCalls, 1) << c.name;
        EXPECT_EQ(hex(outcome.mask), hex(c.mask)) << c.name << "\n" << outcome.log;
        EXPECT_TRUE(outcome.fpcSet) << c.name;
        // The service thread, where there is one, stops when the object goes.
        EXPECT_TRUE(outcome.released) << c.name;
        const bool reJIT = (c.mask & COR_PRF_ENABLE_REJIT) != 0;
        EXPECT_EQ(outcome.notes, std::string("rejit=") + (reJIT ? "1" : "0") + " supports=" + (reJIT ? "1" : "0"))
            << c.name;
        EXPECT_NE(outcome.log.find("Runtime Info: Core CLR (0x2) version "), std::string::npos) << c.name;
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
        EXPECT_NE(outcome.log.find("Runtime Info: Core CLR (0x2) version 4.0_" + std::to_string(build) + "\n"),
                  std::string::npos)
            << outcome.log;
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
    EXPECT_NE(outcome.log.find("Failed to attach TMS Agent with 0x80004005\n"), std::string::npos) << outcome.log;
}

}  // namespace
