// Module load processing where only a fake runtime can fail a call (names that
// cannot be read, metadata that cannot be opened for the shim), and the
// rewriting on module load of a real assembly by a recording engine.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "ProfilerCallbackTestAccess.h"
#include "StartupChild.h"
#include "RecordingEngine.h"
#include "StartupChild.h"

namespace {

// Modules by id with their assembly names; id 0x66 fails GetModuleInfo.
// Metadata is never available, so the shim and the patcher fail where they
// open it.
class ModulesFake : public ProfilerInfoDouble {
public:
    std::map<ModuleID, std::u16string> assemblies = {{0x11, u"System.Private.CoreLib"},
                                                     {0x22, u"tarn.AgentExtras"},
                                                     {0x33, u"Plain"}};

    HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE*, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                          AssemblyID* pAssemblyId) override {
        count("GetModuleInfo");
        if (assemblies.count(moduleId) == 0) {
            return E_FAIL;
        }
        copy(u"/opt/" + assemblies[moduleId] + u".dll", cchName, pcchName, szName);
        *pAssemblyId = moduleId + 0x1000;
        return S_OK;
    }
    HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                            AppDomainID* pAppDomainId, ModuleID*) override {
        count("GetAssemblyInfo");
        copy(assemblies[assemblyId - 0x1000], cchName, pcchName, szName);
        *pAppDomainId = 1;
        return S_OK;
    }
    HRESULT GetAppDomainInfo(AppDomainID, ULONG cchName, ULONG* pcchName, WCHAR szName[], ProcessID*) override {
        count("GetAppDomainInfo");
        copy(u"clrhost", cchName, pcchName, szName);
        return S_OK;
    }

private:
    // As the runtime does: the length always, the text when there is room.
    static void copy(const std::u16string& text, ULONG size, ULONG* length, WCHAR* buffer) {
        *length = static_cast<ULONG>(text.size() + 1);
        if (buffer == nullptr || size == 0) return;
        size_t units = std::min<size_t>(text.size(), size - 1);
        std::memcpy(buffer, text.data(), units * sizeof(char16_t));
        buffer[units] = 0;
        *length = static_cast<ULONG>(units + 1);
    }
};

StartupSetup withModules(std::function<void(ProfilerCallback*, ProfilerInfoDouble*, std::ostream&)> body) {
    StartupSetup setup;
    setup.makeInfo = [] { return new ModulesFake(); };
    setup.body = std::move(body);
    return setup;
}

TEST(ModuleLoad, FirstModuleWithoutNamesStillEndsTheFirstModuleStep) {
    StartupOutcome outcome = runStartup(withModules([](ProfilerCallback* callback, ProfilerInfoDouble* info,
                                                       std::ostream& notes) {
        notes << callback->ModuleLoadFinished(0x66, S_OK) << " " << info->calls("GetAssemblyInfo") << " ";
        // The core library comes second: no shim is tried for it any more.
        notes << callback->ModuleLoadFinished(0x11, S_OK) << " " << callback->isDisabled() << " "
              << info->calls("GetModuleMetaData");
    }));
    ASSERT_EQ(outcome.result, S_OK) << outcome.log;
    // Only the second module had names; its metadata was asked for by the
    // trigger test and the version read, never by the shim, and its version
    // could not be read.
    EXPECT_EQ(outcome.notes, "0 0 0 0 2") << outcome.log;
    EXPECT_EQ(outcome.log.find("Module Loaded /"), std::string::npos) << outcome.log;
    EXPECT_NE(outcome.log.find("Module Loaded System.Private.CoreLib (0.0.0-0) [ngen:0] Domain: clrhost from "
                               "/opt/System.Private.CoreLib.dll\n"),
              std::string::npos)
        << outcome.log;
    EXPECT_EQ(outcome.log.find("Synthetic Shim"), std::string::npos) << outcome.log;
}

TEST(ModuleLoad, ShimThatCannotBeDefinedDisablesTheAgent) {
    StartupOutcome outcome = runStartup(withModules([](ProfilerCallback* callback, ProfilerInfoDouble*,
                                                       std::ostream& notes) {
        notes << callback->ModuleLoadFinished(0x11, S_OK) << " " << callback->isDisabled();
    }));
    ASSERT_EQ(outcome.result, S_OK) << outcome.log;
    EXPECT_EQ(outcome.notes, "0 1");
    EXPECT_NE(outcome.log.find("Failed to define Synthetic Shim\n*** The agent has been disabled.\n"),
              std::string::npos)
        << outcome.log;
}

}  // namespace
