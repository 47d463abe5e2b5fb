#include "GateInstallation.h"

#include <filesystem>

GateInstallation::GateInstallation() {
    std::filesystem::create_directories(scratch.path("bin"));
    std::filesystem::create_directories(home() + "/lib");
    std::filesystem::copy_file(TARN_GATE_PROBE_MODULE, library());
    for (const char* name : {"dotnet", "dotnet.exe", "app.exe", "myhost"}) {
        std::filesystem::create_symlink(TARN_GATE_PROBE, host(name));
    }
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
    return splitLines(readFile(home() + "/logs/nativeprofiler_diagnostic_" + programName + ".log"));
}

std::vector<std::string> linesAfterDump(const std::vector<std::string>& log) {
    for (size_t i = 0; i < log.size(); ++i) {
        if (log[i] == "==============================") {
            return {log.begin() + static_cast<long>(i) + 1, log.end()};
        }
    }
    return {};
}
