#include "HostedRuntime.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

namespace {

constexpr const char* kSharedRoot = "/usr/share/dotnet/shared/Microsoft.NETCore.App";
// Another runtime's framework folders, for a process of another architecture
// (the linux-arm64 suites under emulation).
constexpr const char* kSharedRootVariable = "TARN_DOTNET_SHARED";

std::string sharedRoot() {
    const char* root = getenv(kSharedRootVariable);
    return root != nullptr && *root != 0 ? root : kSharedRoot;
}

using CoreclrInitialize = int (*)(const char* exePath, const char* appDomainFriendlyName, int propertyCount,
                                  const char** propertyKeys, const char** propertyValues, void** hostHandle,
                                  unsigned int* domainId);
using MetaDataGetDispenser = HRESULT (*)(REFCLSID rclsid, REFIID riid, void** ppv);

// The newest installed framework version.
std::string findFramework() {
    std::error_code error;
    std::vector<std::string> versions;
    for (const auto& entry : std::filesystem::directory_iterator(sharedRoot(), error)) {
        if (entry.is_directory()) {
            versions.push_back(entry.path().string());
        }
    }
    if (versions.empty()) {
        return {};
    }
    std::sort(versions.begin(), versions.end());
    return versions.back() + "/";
}

std::string trustedAssemblies(const std::string& dir) {
    std::string list;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() == ".dll") {
            if (!list.empty()) {
                list += ':';
            }
            list += entry.path().string();
        }
    }
    return list;
}

}  // namespace

HostedRuntime& HostedRuntime::instance() {
    static HostedRuntime* hosted = new HostedRuntime();
    return *hosted;
}

HostedRuntime::HostedRuntime() {
    framework = findFramework();
    if (framework.empty()) {
        failure = "no framework under " + sharedRoot();
        return;
    }
    library = dlopen(coreclrPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        failure = std::string("dlopen: ") + dlerror();
        return;
    }
    auto initialize = reinterpret_cast<CoreclrInitialize>(dlsym(library, "coreclr_initialize"));
    getDispenser = dlsym(library, "MetaDataGetDispenser");
    if (initialize == nullptr || getDispenser == nullptr) {
        failure = "libcoreclr.so lacks coreclr_initialize or MetaDataGetDispenser";
        return;
    }
    std::string tpa = trustedAssemblies(framework);
    std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string appPaths = std::filesystem::path(exe).parent_path().string();
    const char* keys[] = {"TRUSTED_PLATFORM_ASSEMBLIES", "APP_PATHS"};
    const char* values[] = {tpa.c_str(), appPaths.c_str()};
    void* host = nullptr;
    unsigned int domain = 0;
    int hr = initialize(exe.c_str(), "tarn-tests", 2, keys, values, &host, &domain);
    if (hr < 0) {
        char text[64];
        snprintf(text, sizeof text, "coreclr_initialize: 0x%08X", static_cast<unsigned int>(hr));
        failure = text;
    }
}

AutoCOMPointer<IMetaDataDispenserEx> HostedRuntime::dispenser() const {
    AutoCOMPointer<IMetaDataDispenserEx> result;
    if (ready()) {
        auto entry = reinterpret_cast<MetaDataGetDispenser>(getDispenser);
        entry(CLSID_CorMetaDataDispenser, IID_IMetaDataDispenserEx, reinterpret_cast<void**>(&result));
    }
    return result;
}
