// The policy object of one runtime: the switches read from the properties, the
// native log, the application decision, directive loading and the method
// decision. The member definitions are spread over four sources:
// ProfilerController.cpp (set-up, switches, log), ProfilerControllerApplication.cpp
// (which process this is and whether it is monitored),
// ProfilerControllerDirectives.cpp (which directive files are read) and
// ProfilerControllerMethods.cpp (the decisions on methods).
//
// No lock of its own: see IProfilerController.h.
#pragma once

#include <cstdio>
#include <map>
#include <set>
#include <string>

#include "platform/AutoPointer.h"
#include "platform/DirectorySearch.h"
#include "policy/IDirectiveController.h"
#include "policy/IProfilerController.h"
#include "policy/IProperties.h"

class ProfilerController : public IProfilerController {
public:
    using Text = std::basic_string<char16_t>;

    explicit ProfilerController(ICorProfilerInfo* info);
    ~ProfilerController() override;
    ProfilerController(const ProfilerController&) = delete;
    ProfilerController& operator=(const ProfilerController&) = delete;

    // Takes the properties: they are deleted on failure, kept (never deleted)
    // on success. 0, or E_FAIL without an agent profile in the environment.
    int initializeController(IProperties* properties);

    int shouldMonitorApplication() override;
    int shouldMonitorMethod(IMetaDataContext* context) override;
    int shouldMonitorMethodUncached(IMetaDataContext* context) override;
    int shouldHijackMethod(IMetaDataContext* context) override;
    int shouldLogMethodBytes() override;
    int shouldLogUninstrumentedMethods() override;
    int shouldMonitorNgenModules() override;
    int shouldDisablePrecompiledCode() override;
    int shouldInstrumentOnModuleLoad() override;
    int shouldDisableTransparencyChecks() override;
    int shouldUseSyntheticShim() override;
    int shouldFieldMarkEnabled() override;
    bool isByRefLike(IMetaDataContext* context) override;
    bool usingGenericAgentTrigger() override;
    bool isGenericAgentTriggerEnabled() override;
    bool isGenericAgentTriggerPendingFor(IMetaDataContext* context) override;
    void setGenericDomainTrigger(AppDomainID appDomain) override;
    void setGenericModuleTrigger(ModuleID module) override;
    void setIsAttach(bool attach) override;
    int getMonitoredMethodsForModule(ICorProfilerInfo* info, ModuleID module, std::set<mdMethodDef>& methods,
                                     bool logged) override;
    void setCLRVersion(unsigned int version) override;
    std::u16string& getAppName() override;
    FILE* getNativeLog() override;
    int shouldEnableDynamicInstrumentation() override;
    int shouldSkipDynamicInstrumentation(IMetaDataContext* context) override;
    int shouldSkipAssembly(IMetaDataContext* context) override;
    // The directives as loaded, for an account of a decision; null if they cannot be.
    IDirectiveController* getDirectiveController() {
        return initializeDirectives() >= 0 ? directives.get() : nullptr;
    }
    int initializeDirectives() override;
    int reloadDirectives() override;
    int addDynamicDirective(char16_t* line) override;
    void clearCacheForFunction(FunctionID functionId) override;
    CompiledMethods& getCompiledMethods() override;

    // Which process this is (ProfilerControllerApplication.cpp).
    bool IsCurrentProcessIIS();
    int initializeProcessName();
    int initializeAppPoolName();

    // Directive loading (ProfilerControllerDirectives.cpp).
    int addHiddenDirectives();
    int addDirectives(const char16_t* list);
    int loadDirectives(const Text& name);
    int loadFMDFile(const Text& path);
    int loadFMLFile(const Text& path);
    bool shouldIgnoreDirectives(const char16_t* path);
    // Next to the agent profile first, then as given; data may be null.
    bool findFile(const Text& name, Text& foundPath, WIN32_FIND_DATAW* data);
    int collectExtensions(std::map<Text, Text>& bundles, bool useConfiguredBundles);

    // Where the log of this process goes and how its opening went.
    struct OpenedLog {
        FILE* stream = nullptr;
        Text path;        // the file written, or the last one tried
        Text heldBy;      // the name another live process of ours holds, if any
        const char* refusal = nullptr;
    };
    // The log of this process: fileName gets "_<identity>" before its
    // extension, and goes under the site's log folder on Azure; where another
    // live process holds that file, its process id follows the identity.
    OpenedLog openRelativePathFile(const Text& base, const Text& fileName);

    const Text& getAgentDirectory() const { return agentDirectory; }
    const Text& getAgentProfilePath() const { return agentProfilePath; }

private:
    static FILE* discardingStream();
    int shouldMonitorAppPool(FILE* log);
    int decideManagedProgram(FILE* log, Text& displayName, bool& isAspNetCore);
    // The property's value, or null if the key is not set.
    const char16_t* findProperty(const char16_t* key);
    // Set only if the key exists and its value begins with "true", in any case.
    bool readTrueWord(const char16_t* key, bool fallback);
    void readSwitches();
    // The process's identity in log names: pool, or process and dotnet application.
    bool makeLogIdentity(Text& identity);

    ICorProfilerInfo* info;
    Text appName;
    Text agentProfilePath;
    Text agentDirectory;
    AutoPointer<Text> processName;
    AutoPointer<Text> appPoolName;
    IProperties* properties = nullptr;
    AutoPointer<IDirectiveController> directives;
    static constexpr size_t kExpectedMethods = 16384;
    CompiledMethods compiledMethods;
    bool logMethodBytes = false;
    bool logUninstrumentedMethods = false;
    bool monitorNgenModules = true;
    bool disablePrecompiledCode = false;
    bool instrumentOnModuleLoad = false;
    bool disableTransparencyChecks = false;
    bool genericTriggerMatched = false;
    bool isDotnetCore;
    bool isAttach = false;
    bool fieldMarkEnabled = false;
    int useSyntheticShim;
    unsigned int clrVersion = 0;
    int cacheSize = 5000;
    FILE* nativeLog = nullptr;
    bool enableDynamicInstrumentation = false;
    bool iisChecked = false;
    bool isIIS = false;
    bool usingGenericTrigger = false;
    UINT64 genericDomainTrigger = 0;
    UINT64 genericModuleTrigger = 0;
};
