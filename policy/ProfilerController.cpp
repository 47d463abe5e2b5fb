#include "policy/ProfilerController.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <unistd.h>
#include <vector>

#include "platform/BuildInfo.h"
#include "platform/CappedLog.h"
#include "platform/ProcessFacts.h"
#include "metadata/CLRUtils.h"
#include "platform/Environment.h"
#include "platform/File16.h"
#include "platform/FileSystem.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/SystemUtils.h"
#include "platform/Text16.h"
#include "runtime/CorErrors.h"

namespace {

using SharedNames::kAgentProfileCapitalVariable;
using SharedNames::kAgentProfileVariable;
constexpr char16_t kLogFileKey[] = u"harrowlite.nativeprofiler.logfile";
constexpr int kDefaultCacheSize = 5000;

}  // namespace

IProfilerController* IProfilerController::newInstance(ICorProfilerInfo* info, IProperties* properties) {
    ProfilerController* controller = new ProfilerController(info);
    if (controller == nullptr) {
        delete properties;
        return nullptr;
    }
    if (controller->initializeController(properties) != 0) {
        delete controller;
        return nullptr;
    }
    return controller;
}

ProfilerController::ProfilerController(ICorProfilerInfo* info)
    : info(info), isDotnetCore(CLRUtils::IsDotnetCore(info)), useSyntheticShim(E_FAIL) {
    // Every method compiled, and every precompiled one before its first run,
    // is decided here: a web service's start-up decides about 8,000. Room for
    // them from the start spares the rehashes, each of which visits every
    // entry far from the last (128 KB).
    compiledMethods.reserve(kExpectedMethods);
}

ProfilerController::~ProfilerController() {
    if (nativeLog != nullptr && nativeLog != stderr) {
        CappedLog::close(nativeLog);
    }
}

int ProfilerController::initializeController(IProperties* newProperties) {
    const char16_t* profile = _wgetenv(kAgentProfileVariable);
    if (profile == nullptr) {
        profile = _wgetenv(kAgentProfileCapitalVariable);
    }
    std::vector<char16_t> fullPath(kPathUnitLimit);
    // Without properties there is nothing to decide with: refused like a
    // missing profile.
    if (profile == nullptr || newProperties == nullptr ||
        GetFullPathNameW(profile, kPathUnitLimit, fullPath.data(), nullptr) == 0) {
        delete newProperties;
        return E_FAIL;
    }
    agentProfilePath = fullPath.data();
    const size_t slash = agentProfilePath.rfind(u'/');
    agentDirectory = slash == Text::npos ? Text() : agentProfilePath.substr(0, slash);

    properties = newProperties;
    readSwitches();
    return S_OK;
}

const char16_t* ProfilerController::findProperty(const char16_t* key) {
    // getProperty stores a missing key, so the question comes first.
    return properties->hasProperty(key) ? properties->getProperty(key) : nullptr;
}

bool ProfilerController::readTrueWord(const char16_t* key, bool fallback) {
    const char16_t* value = findProperty(key);
    // "true" first: the comparison runs over its length, so "TRUEly" counts.
    return value != nullptr ? strcasecmp_u16(u"true", value) == 0 : fallback;
}

void ProfilerController::readSwitches() {
    logMethodBytes = readTrueWord(u"harrowlite.nativeprofiler.logBytecode", false);
    logUninstrumentedMethods = readTrueWord(u"harrowlite.nativeprofiler.logAllMethodsNoticed", false);
    disableTransparencyChecks = readTrueWord(u"harrowlite.nativeprofiler.clrv4.transparency.checks.disabled", false);

    const char16_t* shim = findProperty(u"harrowlite.nativeprofiler.synthetic.shim.enabled");
    if (shim != nullptr) {
        useSyntheticShim = strcasecmp_u16(u"true", shim) == 0 ? S_OK : S_FALSE;
    }

    const char16_t* ngen = findProperty(u"harrowlite.nativeprofiler.ngen.monitor.enabled");
    monitorNgenModules = ngen == nullptr || strcasecmp_u16(u"false", ngen) != 0;
    disablePrecompiledCode = readTrueWord(u"harrowlite.nativeprofiler.precompiledCode.disabled", false);

    instrumentOnModuleLoad = properties->getBoolProperty(u"harrowlite.nativeprofiler.instrumentOnModuleLoad", false);

    const char16_t* cache = findProperty(u"harrowlite.nativeprofiler.directivematching.cache.max.size");
    cacheSize = cache != nullptr ? atoi_u16(cache) : 0;
    if (cacheSize == 0) {
        cacheSize = kDefaultCacheSize;
    }

    enableDynamicInstrumentation = readTrueWord(u"harrowlite.agent.remoteagentdynamicinstrumentation.enabled", false);
    usingGenericTrigger = properties->getBoolProperty(u"harrowlite.nativeprofiler.generic.agent.trigger.enabled", true);
    fieldMarkEnabled = properties->getBoolProperty(u"harrowlite.fieldmark.enable", false);
}

int ProfilerController::shouldLogMethodBytes() {
    return logMethodBytes ? S_OK : S_FALSE;
}

int ProfilerController::shouldLogUninstrumentedMethods() {
    return logUninstrumentedMethods ? S_OK : S_FALSE;
}

int ProfilerController::shouldMonitorNgenModules() {
    return monitorNgenModules ? S_OK : S_FALSE;
}

int ProfilerController::shouldDisablePrecompiledCode() {
    return disablePrecompiledCode ? S_OK : S_FALSE;
}

int ProfilerController::shouldInstrumentOnModuleLoad() {
    return instrumentOnModuleLoad ? S_OK : S_FALSE;
}

int ProfilerController::shouldDisableTransparencyChecks() {
    return disableTransparencyChecks ? S_OK : S_FALSE;
}

int ProfilerController::shouldUseSyntheticShim() {
    return useSyntheticShim;
}

int ProfilerController::shouldFieldMarkEnabled() {
    return fieldMarkEnabled ? S_OK : E_FAIL;
}

int ProfilerController::shouldEnableDynamicInstrumentation() {
    return enableDynamicInstrumentation ? S_OK : S_FALSE;
}

bool ProfilerController::usingGenericAgentTrigger() {
    return usingGenericTrigger;
}

bool ProfilerController::isGenericAgentTriggerEnabled() {
    if (!usingGenericTrigger || isAttach) {
        return false;
    }
    // The desktop runtime names the trigger's AppDomain once the agent's is known.
    return isDotnetCore || genericDomainTrigger != 0;
}

bool ProfilerController::isGenericAgentTriggerPendingFor(IMetaDataContext* context) {
    return isDotnetCore && !genericTriggerMatched && isGenericAgentTriggerEnabled() &&
           context->getModuleID() == genericModuleTrigger;
}

void ProfilerController::setGenericDomainTrigger(AppDomainID appDomain) {
    genericDomainTrigger = appDomain;
}

void ProfilerController::setGenericModuleTrigger(ModuleID module) {
    genericModuleTrigger = module;
}

void ProfilerController::setIsAttach(bool attach) {
    isAttach = attach;
}

void ProfilerController::setCLRVersion(unsigned int version) {
    clrVersion = version;
}

void ProfilerController::clearCacheForFunction(FunctionID functionId) {
    compiledMethods.erase(functionId);
}

IProfilerController::CompiledMethods& ProfilerController::getCompiledMethods() {
    return compiledMethods;
}

FILE* ProfilerController::getNativeLog() {
    if (nativeLog != nullptr) {
        return nativeLog;
    }
    // The program's own output is never written to: without a file the log
    // goes nowhere.
    const char16_t* logFile = properties != nullptr ? findProperty(kLogFileKey) : nullptr;
    if (logFile == nullptr) {
        nativeLog = discardingStream();
        return nativeLog;
    }
    const OpenedLog opened = openRelativePathFile(agentDirectory, logFile);
    nativeLog = opened.stream;
    if (nativeLog != nullptr) {
        fprintf_8(nativeLog, "tarn.NativeProfiler %s (%s)", BuildInfo::kVersion, BuildInfo::kRevision);
        if (!opened.heldBy.empty()) {
            fprintf_8(nativeLog, ": the native log %S is held by another process; process %d writes %S",
                      opened.heldBy.c_str(), static_cast<int>(getpid()), opened.path.c_str());
        }
        fprintf_8(nativeLog, "\n");
    }
    if (nativeLog != nullptr) warnIfWorldWritable(nativeLog, agentProfilePath.c_str());
    // A log that was meant for a file and cannot be had: one line says why,
    // and the log goes nowhere.
    if (nativeLog == nullptr) {
        fprintf_8(stderr, "Cannot open the native log file %S at %S (%s): no native log is written\n", logFile,
                  opened.path.c_str(), opened.refusal != nullptr ? opened.refusal : "unknown error");
        fflush(stderr);
        nativeLog = discardingStream();
    }
    return nativeLog;
}

// A stream whose writes go nowhere; standard error only where not even that
// can be had (no memory).
FILE* ProfilerController::discardingStream() {
    FILE* stream = fopencookie(nullptr, "w", cookie_io_functions_t{});
    return stream != nullptr ? stream : stderr;
}

bool ProfilerController::makeLogIdentity(Text& identity) {
    if (FAILED(initializeProcessName())) {
        return false;
    }
    if (IsCurrentProcessIIS()) {
        if (FAILED(initializeAppPoolName())) {
            return false;
        }
        identity = *appPoolName;
        return true;
    }
    identity = *processName;
    Text application;
    if (ProcessFacts::getDotnetApplicationName(application)) {
        identity += u"_" + application;
    }
    return true;
}

ProfilerController::OpenedLog ProfilerController::openRelativePathFile(const Text& base, const Text& fileName) {
    Text identity;
    Text logName = fileName;
    if (makeLogIdentity(identity)) {
        const size_t dot = fileName.rfind(u'.');
        logName = (dot == Text::npos ? fileName : fileName.substr(0, dot)) + u"_" + identity + u".log";
    }

    Text fullPath;
    if (ProcessFacts::isAzure()) {
        const char16_t* home = _wgetenv(u"HOME");
        fullPath = home != nullptr ? Text(home) : Text(u"D:") + u"/" + u"home";
        fullPath += u"/LogFiles/SiteExtensions/TMS/tarn/";
        const char16_t* instance = _wgetenv(u"WEBSITE_INSTANCE_ID");
        if (instance != nullptr) {
            fullPath += Text(instance).substr(0, 6) + u"/";
        }
        const size_t slash = logName.rfind(u'/');
        fullPath += slash == Text::npos ? logName : logName.substr(slash + 1);
    } else if (!logName.empty() && (logName[0] == u'\\' || logName[0] == u'/')) {
        fullPath = logName;
    } else {
        fullPath = base + u"/" + logName;
    }

    OpenedLog opened;
    // Last resort: the name alone, relative to the working directory.
    const Text* candidates[] = {&fullPath, logName != fullPath ? &logName : nullptr};
    for (const Text* each : candidates) {
        if (each == nullptr || each->empty()) continue;
        const Text& candidate = *each;
        SystemUtils::TryToCreateFullPath(candidate);
        opened.path = candidate;
        bool held = false;
        opened.stream = fopenOwnLog_u16(opened.path, &held, &opened.refusal);
        opened.heldBy = held ? candidate : Text();
        if (opened.stream != nullptr) return opened;
    }
    return opened;
}
