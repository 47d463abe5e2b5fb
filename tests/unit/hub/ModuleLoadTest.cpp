// Module load processing where only the double can fail a call: a module
// whose names cannot be read, and metadata that cannot be opened for the shim.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StartupChild.h"
#include "support/RealAssemblies.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr ModuleID kUnknownModule = 0x66;

// The core library as the only module, its metadata never available, so the
// shim fails where it opens it. The module's id lands in coreLib.
StartupSetup withCoreLibrary(ModuleID& coreLib,
                             std::function<void(ProfilerCallback*, ProfilerInfoDouble*, std::ostream&)> body) {
    StartupSetup setup;
    setup.makeInfo = [&coreLib] {
        auto* info = new ProfilerInfoDouble();
        coreLib = info->addModule(RealAssemblies::coreLibPath());
        info->metaDataResult = E_FAIL;
        return info;
    };
    setup.body = std::move(body);
    return setup;
}

TEST(ModuleLoad, FirstModuleWithoutNamesStillEndsTheFirstModuleStep) {
    ModuleID coreLib = 0;
    StartupOutcome outcome = runStartup(withCoreLibrary(coreLib, [&coreLib](ProfilerCallback* callback,
                                                                           ProfilerInfoDouble* info,
                                                                           std::ostream& notes) {
        notes << callback->ModuleLoadFinished(kUnknownModule, S_OK) << " " << info->calls("GetModuleMetaData") << " ";
        // The core library comes second: no shim is tried for it any more.
        notes << callback->ModuleLoadFinished(coreLib, S_OK) << " " << callback->isDisabled() << " "
              << info->calls("GetModuleMetaData");
    }));
    ASSERT_EQ(outcome.result, S_OK) << outcome.log;
    // Only the second module had names; its metadata was asked for by the
    // trigger test and the version read, never by the shim (nor by the search
    // for inliners: it has no precompiled code), and its version could not be
    // read.
    EXPECT_EQ(outcome.notes, "0 0 0 0 2") << outcome.log;
    EXPECT_THAT(outcome.log, HasSubstr("Module Loaded System.Private.CoreLib (0.0.0-0) [ngen:0] Domain: clrhost from " +
                                       RealAssemblies::coreLibPath() + "\n"));
    EXPECT_THAT(outcome.log, Not(HasSubstr("Synthetic Shim")));
}

// After an attach the core library's shim serves every module, or none.
TEST(ModuleLoad, ShimThatCannotBeDefinedDisablesTheAgent) {
    ModuleID coreLib = 0;
    StartupSetup setup =
        withCoreLibrary(coreLib, [&coreLib](ProfilerCallback* callback, ProfilerInfoDouble*, std::ostream& notes) {
            notes << callback->ModuleLoadFinished(coreLib, S_OK) << " " << callback->isDisabled();
        });
    setup.attach = true;
    StartupOutcome outcome = runStartup(setup);
    EXPECT_EQ(outcome.notes, "0 1") << outcome.log;
    EXPECT_THAT(outcome.log, HasSubstr("Failed to define Synthetic Shim\n*** The agent has been disabled.\n"));
}

}  // namespace
