// Runs the policy probe as a process of its own: copied under the process name
// under test (a copy, since the controller reads the name behind
// /proc/self/exe), with a command line and an environment of the test's
// choosing, over a scratch agent installation. The probe's "probe.key=value"
// lines are the run's values; the other lines are the native log.
#pragma once

#include <string>
#include <vector>

#include "support/ProbeProcess.h"
#include "support/AgentHome.h"

class ApplicationProbe : public AgentHome {
public:
    ApplicationProbe();

    // A built test program's assembly copied to app/<fileName>; its full path.
    std::string program(const std::string& asset, const std::string& fileName) const;

    // Runs the probe as processName with these arguments behind it; the
    // profile is in the environment unless the extra entries name another.
    ProbeProcess run(const std::string& processName, const std::vector<std::string>& arguments,
                     const std::vector<std::string>& extraEnvironment = {}) const;

};
