#include "gate/ProfilingManager.h"

#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <unistd.h>
#include <vector>

#include "gate/ProfileConfig.h"
#include "platform/Environment.h"
#include "platform/File16.h"
#include "platform/FileSystem.h"
#include "platform/FormattedOutput.h"
#include "platform/ProcessFacts.h"
#include "platform/SharedNames.h"
#include "platform/StringUtils.h"
#include "platform/Synchronization.h"
#include "platform/SystemUtils.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"
#include "runtime/CorErrors.h"

namespace {

using Text = std::basic_string<char16_t>;

using SharedNames::kAgentProfileCapitalVariable;
using SharedNames::kAgentProfileVariable;
constexpr char16_t kAgentProfileOverride[] = u"TMSENV_AGENT_PROFILE";
constexpr char16_t kDiagnosticsVariable[] = u"TMS_DIAGNOSTICS_ENABLED";
constexpr char16_t kMultipleRuntimesKey[] = u"com.tarn.harrowlite.nativeprofiler.monitor.inprocsxs.multiple.clrs";
using SharedNames::kExcludedApplicationsKey;
constexpr char16_t kInternalCommands[] = u"dotnet.cmd,MSBuild,csc";
constexpr char16_t kProfilerModule[] = u"tarn.NativeProfiler.so";

constexpr int kPickFirst = 1;
constexpr int kPickOne = 2;
constexpr int kPickMany = 4;

void putAgentProfile(const Text& value) {
    _wputenv((Text(kAgentProfileVariable) + u"=" + value).c_str());
}

// Copies a property into a buffer that the tokenizers may cut up.
std::vector<char16_t> writableCopy(const char16_t* text) {
    const Text copy(text);
    std::vector<char16_t> buffer(copy.begin(), copy.end());
    buffer.push_back(0);
    return buffer;
}

// The token stands first, so an empty token equals every name.
bool isVersionToken(const char16_t* token, const char16_t* shortName, const char16_t* fullName) {
    return strcasecmp_u16(token, shortName) == 0 || strncasecmp_u16(token, fullName, 4) == 0;
}

}  // namespace

CRITICAL_SECTION gProfilingManagerLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
ProfilingManager* ProfilingManager::sInstance = nullptr;

ProfilingManager::ProfilingManager() {
    InitializeCriticalSection(&lock);
}

ProfilingManager* ProfilingManager::getInstance() {
    EnterCriticalSection(&gProfilingManagerLock);
    if (sInstance == nullptr) {
        // Made and set up under the lock: a second caller waits for init.
        sInstance = new ProfilingManager();
        sInstance->init();
    }
    LeaveCriticalSection(&gProfilingManagerLock);
    return sInstance;
}

void ProfilingManager::init() {
    diagnosticLog = nullptr;
    initProperties();
    initInProcSxSOptions();
}

void ProfilingManager::initProperties() {
    if (_wgetenv(kAgentProfileVariable) == nullptr) {
        const char16_t* fromOverride = _wgetenv(kAgentProfileOverride);
        if (fromOverride != nullptr) {
            putAgentProfile(fromOverride);
        }
    }
    if (_wgetenv(kAgentProfileVariable) == nullptr) {
        const char16_t* fromCapital = _wgetenv(kAgentProfileCapitalVariable);
        if (fromCapital != nullptr) {
            putAgentProfile(fromCapital);
        }
    }
    {
        ProfileConfig config(getDiagnosticLog());
        config.getProfilePath(customConfigPath);
    }
    if (!customConfigPath.empty()) {
        putAgentProfile(customConfigPath);
    }

    const char16_t* chosen = _wgetenv(kAgentProfileVariable);
    if (chosen != nullptr) {
        std::string narrow;
        FromChar16(chosen, narrow);
        char canonical[PATH_MAX];
        if (realpath(narrow.c_str(), canonical) != nullptr) {
            Text wide;
            FromChar8(canonical, wide);
            putAgentProfile(wide);
        }
    }

    FILE* log = getDiagnosticLog();
    chosen = _wgetenv(kAgentProfileVariable);
    if (chosen == nullptr) {
        logDiagnostic("Failed to get %S.\n", kAgentProfileVariable);
        fflush(log);
        return;
    }
    std::vector<char16_t> fullPathBuffer(kPathUnitLimit);
    char16_t* fullPath = fullPathBuffer.data();
    if (GetFullPathNameW(chosen, kPathUnitLimit, fullPath, nullptr) == 0) {
        // Without its profile the profiler stays off: the operator must hear why.
        fprintf_8(stderr, "The agent profile %S cannot be used: its path is too long\n", chosen);
        logDiagnostic("GetFullPathNameW failed.\n");
        fflush(log);
        return;
    }
    logDiagnostic("Opening %S\n", fullPath);
    const char* refusal = nullptr;
    FILE* file = fopenText_u16(fullPath, &refusal);
    if (file == nullptr) {
        logDiagnostic("Failed to open %S.\n", fullPath);
        fflush(log);
        return;
    }
    properties = IProperties::newInstance();
    properties->readProperties(file);
    properties->setUseAzureEnv(ProcessFacts::isAzure());
    fflush(log);
    fclose(file);
}

void ProfilingManager::initInProcSxSOptions() {
    pickFirstHonored = false;
    pickMode = kPickFirst;
    runtimeMask = 0;
    if (properties == nullptr || !properties->hasProperty(kMultipleRuntimesKey)) {
        return;
    }

    // The two-argument tokenizer hands out empty strings and runs of
    // delimiters, never the words; an empty token counts for both versions.
    std::vector<char16_t> value = writableCopy(properties->getProperty(kMultipleRuntimesKey));
    int versions = 0;
    for (char16_t* token = strtok_u16(value.data(), u" ,\t"); token != nullptr; token = strtok_u16(nullptr, u" ,\t")) {
        if ((runtimeMask & 2) == 0 && isVersionToken(token, u"V2", u"v2.0.50727")) {
            runtimeMask |= 2;
            ++versions;
        }
        if ((runtimeMask & 4) == 0 && isVersionToken(token, u"V4", u"v4.0.30319")) {
            runtimeMask |= 4;
            ++versions;
        }
    }
    if (versions == 1) {
        pickMode = kPickOne;
    } else if (versions > 1) {
        pickMode = kPickMany;
    }
}

HRESULT ProfilingManager::shouldMonitorCLR(long clrVersion) {
    if ((clrVersion & 1) != 0 || properties == nullptr) {
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }

    Text application;
    if (ProcessFacts::getDotnetApplicationName(application)) {
        std::vector<char16_t> excluded = writableCopy(properties->hasProperty(kExcludedApplicationsKey)
                                                          ? properties->getProperty(kExcludedApplicationsKey)
                                                          : u"");
        if (StringUtils::findInList(excluded.data(), u",", application.c_str(), false)) {
            if (isDiagnosticLogEnabled()) {
                logDiagnostic("Ignoring dotnet application %S\n", application.c_str());
                fflush(getDiagnosticLog());
            }
            return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
        }
    }

    const bool azure = ProcessFacts::isAzure();
    Text pool;
    (void)ProcessFacts::getAppPoolName(pool);  // sets "NULL" on this platform
    if (azure && pool.starts_with(u"~")) {
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }

    if (!properties->getBoolProperty(u"TMS_ENABLED", true)) {
        return CORPROF_E_PROFILER_CANCEL_ACTIVATION;
    }

    if (isPickFirst()) {
        HRESULT hr = S_OK;
        EnterCriticalSection(&lock);
        if (isPickFirstAlreadyHonored()) {
            hr = CORPROF_E_PROFILER_CANCEL_ACTIVATION;
        } else {
            HonorPickFirst();
        }
        LeaveCriticalSection(&lock);
        return hr;
    }

    // Pick one and pick many differ only in how many versions the mask holds.
    const unsigned int version = static_cast<unsigned int>(clrVersion);
    return (version & runtimeMask) == version ? S_OK : CORPROF_E_PROFILER_CANCEL_ACTIVATION;
}

IProfilerController* ProfilingManager::getController(ICorProfilerInfo* info) {
    if (controller == nullptr) {
        controller = IProfilerController::newInstance(info, properties);
    }
    return controller;
}

IProperties* ProfilingManager::getProperties() {
    return properties;
}

const std::basic_string<char16_t>& ProfilingManager::getCustomConfigPath() {
    return customConfigPath;
}

bool ProfilingManager::isDotnetInternalCommand() {
    Text application;
    if (!ProcessFacts::getDotnetApplicationName(application)) {
        return false;
    }
    std::vector<char16_t> commands = writableCopy(kInternalCommands);
    return StringUtils::findInList(commands.data(), u",", application.c_str(), true);
}

bool ProfilingManager::isPickFirst() {
    return pickMode == kPickFirst;
}

bool ProfilingManager::isPickOne() {
    return pickMode == kPickOne;
}

bool ProfilingManager::isPickMany() {
    return pickMode == kPickMany;
}

bool ProfilingManager::isPickFirstAlreadyHonored() {
    return pickFirstHonored;
}

void ProfilingManager::HonorPickFirst() {
    pickFirstHonored = true;
}

bool ProfilingManager::isDiagnosticLogEnabled() {
    const char16_t* value = _wgetenv(kDiagnosticsVariable);
    return value != nullptr && strcmp_u16(value, u"1") == 0;
}

FILE* ProfilingManager::getDiagnosticLog() {
    EnterCriticalSection(&gProfilingManagerLock);
    if (diagnosticLog == nullptr) {
        if (isDiagnosticLogEnabled()) {
            Text path;
            findAgentHome(path);
            path += u"/logs/nativeprofiler_diagnostic";
            std::vector<Text> args;
            SystemUtils::GetProgramArguments(args);
            if (!args.empty()) {
                Text program = args[0].substr(args[0].rfind(u'/') + 1);
                const size_t extension = program.rfind(u".exe");
                if (extension != Text::npos) {
                    program.erase(extension);
                }
                path += u"_" + program;
            }
            path += u".log";
            if (SystemUtils::TryToCreateFullPath(path)) {
                // A log that cannot be opened stays null, like one whose
                // directory cannot be made; nothing is dumped into nowhere.
                // Another process of the same program keeps its own.
                const char* refusal = nullptr;
                bool held = false;
                diagnosticLog = fopenOwnLog_u16(path, &held, &refusal);
                if (diagnosticLog != nullptr) {
                    dumpDiagnostics(diagnosticLog);
                }
            }
        } else {
            diagnosticLog = fopen("/dev/null", "we");
        }
    }
    FILE* log = diagnosticLog;
    LeaveCriticalSection(&gProfilingManagerLock);
    return log;
}

void ProfilingManager::logDiagnostic(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vfprintf_8(getDiagnosticLog(), format, args);
    va_end(args);
}

bool ProfilingManager::findAgentHome(std::basic_string<char16_t>& home) {
    home.assign(1, u'.');
    Text path;
    if (SystemUtils::GetFullModulePath(kProfilerModule, path)) {
        // The library lies in a folder of the agent home.
        for (int level = 0; level < 2; ++level) {
            const size_t slash = path.rfind(u'/');
            path.erase(slash == Text::npos ? 0 : slash);
        }
        home = path;
    }
    return true;
}

void ProfilingManager::dumpDiagnostics(FILE* file) {
    fprintf_8(file, "pid: %d\n", SystemUtils::GetPid());

    Text modulePath;
    SystemUtils::GetFullModulePath(kProfilerModule, modulePath);
    fprintf_8(file, "module path: %S\n", modulePath.c_str());

    bool isDotnet = false;
    Text entryPoint = u"unknown";
    ProcessFacts::getDotnetApplicationDllPath(entryPoint, &isDotnet);
    fprintf_8(file, "is dotnet core: %s\n", isDotnet ? "true" : "false");
    fprintf_8(file, "entry point: %S\n", entryPoint.c_str());

    Text application = u"unknown";
    ProcessFacts::getDotnetApplicationName(application);
    fprintf_8(file, "app name: %S\n", application.c_str());

    std::vector<Text> args;
    SystemUtils::GetProgramArguments(args);
    if (!args.empty()) {
        fprintf_8(file, "cmdline:\n");
        for (const Text& argument : args) {
            fprintf_8(file, "\t%S\n", argument.c_str());
        }
    }

    fprintf_8(file, "environment variables ========\n");
    for (char** entry = environ; *entry != nullptr; ++entry) {
        fprintf_8(file, "env: %s\n", *entry);
    }
    fprintf_8(file, "==============================\n");
    fflush(file);
}
