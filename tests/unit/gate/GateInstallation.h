// Runs the gate probe as a process of its own, under a chosen host name, argv
// and environment; its decisions are the "key=value" lines it prints.
#pragma once

#include <string>
#include <vector>

#include "support/AgentHome.h"
#include "support/ProbeProcess.h"

// A scratch installation: an agent home whose "lib" holds a stand-in profiler
// library, a "profiles" folder with the default profile, and links named after
// the hosts under test in "bin", all leading to the probe.
class GateInstallation : public AgentHome {
public:
    GateInstallation();

    std::string home() const { return scratch.path("agent"); }
    std::string library() const { return home() + "/lib/tarn.NativeProfiler.so"; }
    std::string host(const std::string& name) const { return scratch.path("bin/" + name); }

    // The environment most runs start from: the default profile, the
    // diagnostic log on, and the stand-in library mapped into the process;
    // then the entries of extra.
    std::vector<std::string> environment(const std::vector<std::string>& extra = {}) const;

    // Runs the host link name with these arguments after it, in the scratch
    // root as working directory.
    ProbeProcess run(const std::string& hostName, const std::vector<std::string>& arguments,
                     const std::vector<std::string>& environment) const;

    // Lines of the diagnostic log of a program after its environment dump (all
    // of them if it has none); empty if there is no log.
    std::vector<std::string> diagnosticLog(const std::string& programName) const;
};
