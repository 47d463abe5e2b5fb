#include "GateInstallation.h"

#include <algorithm>
#include <filesystem>

GateInstallation::GateInstallation() {
    std::filesystem::create_directories(scratch.path("bin"));
    std::filesystem::create_directories(home() + "/lib");
    std::filesystem::copy_file(TARN_GATE_PROBE_MODULE, library());
    for (const char* name : {"dotnet", "dotnet.exe", "app.exe", "myhost"})
        std::filesystem::create_symlink(TARN_GATE_PROBE, host(name));
    set("agent.name", "default");
    writeProfile();
}

std::vector<std::string> GateInstallation::environment(const std::vector<std::string>& extra) const {
    std::vector<std::string> entries{"com.tarn.harrowlite.agentProfile=" + profilePath(), "TMS_DIAGNOSTICS_ENABLED=1",
                                     "LD_PRELOAD=" + library()};
    entries.insert(entries.end(), extra.begin(), extra.end());
    return entries;
}

ProbeProcess GateInstallation::run(const std::string& hostName, const std::vector<std::string>& arguments,
                                   const std::vector<std::string>& environment) const {
    return ProbeProcess::run(host(hostName), arguments, environment, scratch.path(), "");
}

std::vector<std::string> GateInstallation::diagnosticLog(const std::string& programName) const {
    const std::vector<std::string> log =
        splitLines(readFile(home() + "/logs/nativeprofiler_diagnostic_" + programName + ".log"));
    const auto dump = std::find(log.begin(), log.end(), "==============================");
    return dump == log.end() ? log : std::vector<std::string>(dump + 1, log.end());
}
