// Which process this is, and whether its application is monitored.
#include <new>
#include <unistd.h>
#include <vector>

#include "platform/ProcessFacts.h"
#include "metadata/CLRUtils.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/StringUtils.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"
#include "policy/ProfilerController.h"
#include "runtime/CorErrors.h"

namespace {

using Text = ProfilerController::Text;

constexpr char16_t kIisNamesKey[] = u"harrowlite.agent.dotnet.iisNames";
constexpr char16_t kAppPoolsKey[] = u"harrowlite.agent.dotnet.monitorAppPools";
constexpr char16_t kAppPoolsExcludeKey[] = u"harrowlite.agent.dotnet.monitorAppPools.exclude";
constexpr char16_t kApplicationsKey[] = u"harrowlite.agent.dotnet.monitorApplications";
constexpr char16_t kCollectorProcess[] = u"CounterGatherAgent.exe";
constexpr char16_t kAspNetCoreNamespace[] = u"Microsoft.AspNetCore";
constexpr size_t kExeLinkBytes = 2048;

// findInList cuts its list apart, so it gets a copy.
bool isInList(const char16_t* list, const Text& item, bool caseSensitive, const char16_t* removed = nullptr) {
    std::vector<char16_t> copy(list, list + strlen_u16(list) + 1);
    if (removed != nullptr) {
        StringUtils::wcsrem(copy.data(), removed);
    }
    return StringUtils::findInList(copy.data(), u",", item.c_str(), caseSensitive);
}

const char* notWord(int status) {
    return status != 0 ? "not " : "";
}

}  // namespace

int ProfilerController::initializeProcessName() {
    if (processName != nullptr) {
        return S_OK;
    }
    char link[kExeLinkBytes] = {};
    if (readlink("/proc/self/exe", link, sizeof(link) - 1) < 0) {
        link[0] = 0;
    }
    Text path;
    FromChar8(link, path);
    const size_t slash = path.rfind(u'/');
    Text file = slash == Text::npos ? path : path.substr(slash + 1);
    std::vector<char16_t> buffer(file.begin(), file.end());
    buffer.push_back(0);
    processName = new Text(StringUtils::wcstrim(buffer.data()));
    return S_OK;
}

int ProfilerController::initializeAppPoolName() {
    if (appPoolName != nullptr) {
        return S_OK;
    }
    appPoolName = new Text();
    // This platform has no pools: the gate answers "NULL", which is the name.
    (void)ProcessFacts::getAppPoolName(*appPoolName);  // sets "NULL" on this platform
    return S_OK;
}

bool ProfilerController::IsCurrentProcessIIS() {
    if (iisChecked || processName == nullptr || properties == nullptr) {
        return isIIS;
    }
    iisChecked = true;
    const char16_t* names = findProperty(kIisNamesKey);
    if (names != nullptr) {
        isIIS = names[0] != 0 && isInList(names, *processName, false);
    } else {
        isIIS = *processName == u"w3wp.exe" || *processName == u"aspnet_wp.exe";
    }
    // A line decided before the log is chosen goes to a log already open only.
    if (nativeLog != nullptr) {
        fprintf_8(nativeLog, "Application %S is %s an IIS process\n", processName->c_str(), notWord(isIIS ? 0 : 1));
    }
    return isIIS;
}

std::u16string& ProfilerController::getAppName() {
    if (!appName.empty()) {
        return appName;
    }
    if (SUCCEEDED(initializeProcessName())) {
        appName = *processName;
        if (appName.ends_with(u".exe")) {
            appName.erase(appName.size() - 4);
        }
    }
    if (IsCurrentProcessIIS() && SUCCEEDED(initializeAppPoolName())) {
        appName = *appPoolName;
        return appName;
    }
    ProcessFacts::getDotnetApplicationName(appName);
    return appName;
}

int ProfilerController::shouldMonitorApplication() {
    int status = initializeProcessName();
    if (FAILED(status)) {
        return status;
    }
    FILE* log = getNativeLog();
    if (IsCurrentProcessIIS()) {
        return shouldMonitorAppPool(log);
    }

    // The sibling collector is always monitored, whatever the lists say.
    if (*processName == kCollectorProcess) {
        fprintf_8(log, "Application %S %smonitored\n", processName->c_str(), "");
        fflush(log);
        return 0;
    }

    bool excluded = false;
    if (const char16_t* applications = findProperty(kApplicationsKey)) {
        status = isInList(applications, *processName, false) ? 0 : 1;
    } else if (const char16_t* exclusions = findProperty(SharedNames::kExcludedApplicationsKey)) {
        status = isInList(exclusions, *processName, false) ? 1 : 0;
        excluded = status == 1;
    } else {
        status = 0;
    }

    // A host such as dotnet is not on the list by its own name: the managed
    // program it runs gets a say.
    Text displayName = *processName;
    bool isAspNetCore = false;
    if (status == 1 && !excluded) {
        status = decideManagedProgram(log, displayName, isAspNetCore);
    }

    fprintf_8(log, "%sApplication %S %smonitored\n", isAspNetCore ? "ASP.NET Core " : "", displayName.c_str(),
              notWord(status));
    fflush(log);
    return status;
}

// A process of the web server is decided by its application pool alone.
int ProfilerController::shouldMonitorAppPool(FILE* log) {
    int status = initializeAppPoolName();
    if (FAILED(status)) {
        return status;
    }
    // Pool lists may be written with quotes around names.
    if (const char16_t* pools = findProperty(kAppPoolsKey)) {
        status = isInList(pools, *appPoolName, true, u"\"'") ? 0 : 1;
    } else if (const char16_t* excluded = findProperty(kAppPoolsExcludeKey)) {
        status = isInList(excluded, *appPoolName, true, u"\"'") ? 1 : 0;
    } else {
        status = 0;
    }
    fprintf_8(log, "AppPool %S %smonitored\n", appPoolName->c_str(), notWord(status));
    fflush(log);
    return status;
}

// The managed program of a host that is not listed by its own name: an ASP.NET
// Core program goes by the pool lists and its path, another by the application
// list and its name. Unchanged (1) when the program cannot be found.
int ProfilerController::decideManagedProgram(FILE* log, Text& displayName, bool& isAspNetCore) {
    int status = 1;
    Text path;
    if (!CLRUtils::GetManagedModulePath(info, path)) {
        fprintf_8(log, "Failed to find application assembly.\n");
        return status;
    }
    const size_t slash = path.rfind(u'/');
    Text name = slash == Text::npos ? path : path.substr(slash + 1);
    const size_t dll = name.rfind(u".dll");
    if (dll != Text::npos) {
        name.erase(dll);
    }
    displayName = name;
    if (CLRUtils::AssemblyReferencesNamespace(info, path, kAspNetCoreNamespace)) {
        isAspNetCore = true;
        fprintf_8(log, "Detected ASP.NET Core Application %S\n", displayName.c_str());
        // The Razor compiler server runs as an ASP.NET Core program of its own.
        if (path.find(u"rzc.dll") != Text::npos) {
            status = 1;
        } else if (const char16_t* pools = findProperty(kAppPoolsKey)) {
            status = isInList(pools, path, true) ? 0 : 1;
        } else if (const char16_t* poolsExcluded = findProperty(kAppPoolsExcludeKey)) {
            status = isInList(poolsExcluded, path, true) ? 1 : 0;
        } else {
            status = 0;
        }
        return status;
    }
    if (const char16_t* applications = findProperty(kApplicationsKey)) {
        status = isInList(applications, name, false) ? 0 : 1;
    }
    if (status != 0) {
        fprintf_8(log, "%S is not an ASP.NET Core Application\n", displayName.c_str());
    }
    return status;
}
