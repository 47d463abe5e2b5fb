// Module load processing where only a fake runtime can fail a call (names that
// cannot be read, metadata that cannot be opened for the shim), and the
// rewriting on module load of a real assembly by a recording engine.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "ProfilerCallbackTestAccess.h"
#include "RealMethodsInfo.h"
#include "RecordingEngine.h"
#include "StartupChild.h"

namespace {

// Modules by id with their assembly names; id 0x66 fails GetModuleInfo.
// Metadata is never available, so the shim and the patcher fail where they
// open it.
class ModulesFake : public RuntimeInfoFake {
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

StartupSetup withModules(std::function<void(ProfilerCallback*, RuntimeInfoFake*, std::ostream&)> body) {
    StartupSetup setup;
    setup.makeInfo = [] { return new ModulesFake(); };
    setup.body = std::move(body);
    return setup;
}

TEST(ModuleLoad, FirstModuleWithoutNamesStillEndsTheFirstModuleStep) {
    StartupOutcome outcome = runStartup(withModules([](ProfilerCallback* callback, RuntimeInfoFake* info,
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
    StartupOutcome outcome = runStartup(withModules([](ProfilerCallback* callback, RuntimeInfoFake*,
                                                       std::ostream& notes) {
        notes << callback->ModuleLoadFinished(0x11, S_OK) << " " << callback->isDisabled();
    }));
    ASSERT_EQ(outcome.result, S_OK) << outcome.log;
    EXPECT_EQ(outcome.notes, "0 1");
    EXPECT_NE(outcome.log.find("Failed to define Synthetic Shim\n*** The agent has been disabled.\n"),
              std::string::npos)
        << outcome.log;
}

TEST(ModuleLoad, AgentPrefixedAssemblyIsPatchedOthersAreNot) {
    StartupOutcome outcome = runStartup(withModules([](ProfilerCallback* callback, RuntimeInfoFake* info,
                                                       std::ostream& notes) {
        callback->ModuleLoadFinished(0x11, S_OK);
        const int opened = info->calls("GetModuleMetaData");
        callback->ModuleLoadFinished(0x33, S_OK);
        notes << info->calls("GetModuleMetaData") - opened << " ";
        callback->ModuleLoadFinished(0x22, S_OK);
        notes << info->calls("GetModuleMetaData") - opened;
    }));
    ASSERT_EQ(outcome.result, S_OK) << outcome.log;
    // Plain: the trigger test and the version read; the agent's: those and
    // the patcher's write open, which fails and ends the patching.
    EXPECT_EQ(outcome.notes, "2 5") << outcome.log;
    const size_t patched = outcome.log.find("Module Loaded tarn.AgentExtras ");
    ASSERT_NE(patched, std::string::npos) << outcome.log;
    EXPECT_EQ(outcome.log.find("Patching PInvoke...\n"), outcome.log.find('\n', patched) + 1) << outcome.log;
    EXPECT_EQ(outcome.log.find("Patching PInvoke...\n", outcome.log.find("Patching PInvoke...\n") + 1),
              std::string::npos);
}

// Every selected method of the module goes to the engine in token order; a
// failure is logged with the engine's message, or "Unknown error." without
// one, and does not stop the walk.
TEST(ModuleLoad, InstrumentationOnLoadLogsEachFailureWithTheEnginesMessage) {
    StartupSetup setup;
    setup.properties["harrowlite.nativeprofiler.instrumentOnModuleLoad"] = "true";
    setup.properties["harrowlite.fieldmark.directivesFile"] = "program.fmd";
    setup.files["program.fmd"] = "TraceOneMethodOfClass: Shop.Order Place\nTraceAllMethodsOfClass: Billing.Internal.Ledger\n";
    setup.makeInfo = [] {
        auto* info = new RealMethodsInfo();
        info->addMethod("PolicyShapes", u"Shop.Order", u"Place", 0xA100);
        return info;
    };
    setup.body = [](ProfilerCallback* callback, RuntimeInfoFake* fake, std::ostream& notes) {
        auto* info = static_cast<RealMethodsInfo*>(fake);
        auto* engine = new RecordingEngine();
        engine->answers["[PolicyShapes]Shop.Order::Place"] = {E_FAIL, 7, u"Cannot resolve the trace functions"};
        engine->answers["[PolicyShapes]Billing.Internal.Ledger::Post"] = {E_INVALIDARG, 3, nullptr};
        ProfilerCallbackTestAccess::replaceEngine(*callback, engine);
        notes << info->error() << callback->ModuleLoadFinished(info->moduleOf("PolicyShapes"), S_OK) << " "
              << callback->isDisabled() << "\n" << engine->instrumentedList();
    };
    StartupOutcome outcome = runStartup(setup);
    ASSERT_EQ(outcome.result, S_OK) << outcome.log;
    // No compile events in this mode: the module load does the rewriting.
    EXPECT_EQ(outcome.mask & COR_PRF_MONITOR_JIT_COMPILATION, 0u);
    // Token order: Program comes first in the metadata, Shop.Order last.
    EXPECT_EQ(outcome.notes,
              "0 0\n[PolicyShapes]Program::Main;[PolicyShapes]Program::main;"
              "[PolicyShapes]Billing.Internal.Ledger::Post;[PolicyShapes]Billing.Internal.Ledger::Close;"
              "[PolicyShapes]Billing.Internal.Ledger::.ctor;[PolicyShapes]Shop.Order::Place;")
        << outcome.log;
    EXPECT_NE(outcome.log.find("Instrumented [PolicyShapes]Program::Main\n"
                               "Instrumented [PolicyShapes]Program::main\n"
                               "Failed to instrument [PolicyShapes]Billing.Internal.Ledger::Post - 0x80070057(03) "
                               "(Unknown error.)\n"
                               "Instrumented [PolicyShapes]Billing.Internal.Ledger::Close\n"
                               "Instrumented [PolicyShapes]Billing.Internal.Ledger::.ctor\n"
                               "Failed to instrument [PolicyShapes]Shop.Order::Place - 0x80004005(07) (Cannot resolve "
                               "the trace functions)\n"
                               "[PolicyShapes] Instrumented 6 methods in ("),
              std::string::npos)
        << outcome.log;
}

}  // namespace
