// Where the managed agent's assembly is on disk, as the shim's loader will
// look for it.
#pragma once

#include <string>

class AgentLocation {
public:
    // "com.tarn.harrowlite.agentLocation" as it stands if set. Otherwise the
    // folder of the agent profile file ("com.tarn.harrowlite.agentProfile", or
    // else "com.tarn.harrowlite.AgentProfile") with "bin/", "netcore/" on the
    // Core runtime, and "tarn.Agent.dll" appended. Empty if none of the three
    // variables is set.
    static std::u16string find(bool dotnetCore);

private:
    AgentLocation() = delete;
};
