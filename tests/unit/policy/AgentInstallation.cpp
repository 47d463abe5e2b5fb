#include "AgentInstallation.h"

#include <filesystem>

#include "policy/Properties.h"
#include "support/RealAssemblies.h"

std::string AgentInstallation::executableName() {
    const std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
    return exe.substr(exe.rfind('/') + 1);
}

AgentInstallation::AgentInstallation() {
    set("harrowlite.nativeprofiler.logfile", "logs/native.log");
    environment.set("com.tarn.harrowlite.agentProfile", profilePath().c_str());
    environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
    environment.set("WEBSITE_INSTANCE_ID", nullptr);
    std::filesystem::create_directories(profiles());
}

std::unique_ptr<ProfilerController> AgentInstallation::controller(ICorProfilerInfo* info) {
    FILE* file = fopen(writeProfile().c_str(), "r");
    IProperties* store = IProperties::newInstance();
    store->readProperties(file);
    fclose(file);
    last = static_cast<ProfilerController*>(IProfilerController::newInstance(info, store));
    // A refusal deletes the properties; a made controller leaves them to us.
    if (last != nullptr) stores.emplace_back(store);
    return std::unique_ptr<ProfilerController>(last);
}

std::string AgentInstallation::logPath() const {
    const std::string name = "native_" + executableName() + ".log";
    return profiles() + "/logs/" + name;
}

std::vector<std::string> AgentInstallation::log() const {
    if (last != nullptr) fflush(last->getNativeLog());
    std::vector<std::string> lines = splitLines(readFile(logPath()));
    // The first line names the build; the suites read what follows it.
    if (!lines.empty() && lines.front().rfind("tarn.NativeProfiler ", 0) == 0) lines.erase(lines.begin());
    return lines;
}
