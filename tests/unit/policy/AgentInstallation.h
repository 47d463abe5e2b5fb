// An agent installation laid out under a scratch directory, with the agent
// profile named in this process's environment (as the process gate leaves it)
// and a profiler controller made over it the way the gate makes one. The
// native log goes to a file of its own, read back by log(). The profile is
// agent/profiles/default.properties, read as a properties file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "policy/ProfilerController.h"
#include "support/ScopedEnvironment.h"
#include "support/AgentHome.h"

class AgentInstallation : public AgentHome {
public:
    AgentInstallation();
    AgentInstallation(const AgentInstallation&) = delete;
    AgentInstallation& operator=(const AgentInstallation&) = delete;

    // A controller over the installation as it stands; null if none is made.
    std::unique_ptr<ProfilerController> controller(ICorProfilerInfo* info);

    // The lines of the native log of the last controller so far.
    std::vector<std::string> log() const;
    // The name of this process's executable, which names its native log.
    static std::string executableName();
    // Where the native log of this process lands.
    std::string logPath() const;

private:
    ScopedEnvironment environment;
    ProfilerController* last = nullptr;
    // The properties of the controllers made.
    std::vector<std::unique_ptr<IProperties>> stores;
};
