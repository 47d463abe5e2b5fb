#include "platform/ProcessFacts.h"

#include <vector>

#include "platform/Environment.h"
#include "platform/FileSystem.h"
#include "platform/SharedNames.h"
#include "platform/SystemUtils.h"
#include "runtime/CorErrors.h"

bool ProcessFacts::isAzure() {
    const char16_t* profile = _wgetenv(SharedNames::kAgentProfileVariable);
    if (profile == nullptr) {
        profile = _wgetenv(SharedNames::kAgentProfileCapitalVariable);
    }
    if (profile == nullptr) {
        return false;
    }
    const std::u16string marker = std::u16string(profile) + u"/../../applicationHost.xdt";
    return GetFileAttributesW(marker.c_str()) != INVALID_FILE_ATTRIBUTES;
}

HRESULT ProcessFacts::getAppPoolName(std::u16string& name) {
    name = u"NULL";
    return E_FAIL;
}

bool ProcessFacts::getDotnetApplicationName(std::u16string& name) {
    bool isDotnet = false;
    std::u16string path;
    if (getDotnetApplicationDllPath(path, &isDotnet)) {
        const size_t slash = path.rfind(u'/');
        std::u16string file = slash == std::u16string::npos ? path : path.substr(slash + 1);
        // The last four units are taken to be ".dll".
        file.erase(file.size() < 4 ? 0 : file.size() - 4);
        name = file;
        return true;
    }
    if (isDotnet) {
        name = u"dotnet.cmd";
        return true;
    }
    return false;
}

bool ProcessFacts::getDotnetApplicationDllPath(std::u16string& path, bool* isDotnet) {
    std::vector<std::u16string> args;
    SystemUtils::GetProgramArguments(args);
    if (args.empty()) {
        return false;
    }
    if (!args[0].ends_with(u"dotnet") && !args[0].ends_with(u"dotnet.exe")) {
        return false;
    }
    *isDotnet = true;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i].find(u".dll") != std::u16string::npos) {
            path = args[i];
            return true;
        }
        // "dotnet exec app.dll" and "dotnet --fx-version 6.0 app.dll" run an
        // application; "dotnet build" does not.
        if (i == 1 && args[i] != u"exec" && !args[i].starts_with(u"--")) {
            return false;
        }
    }
    return false;
}
