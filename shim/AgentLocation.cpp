#include "shim/AgentLocation.h"

#include "platform/Environment.h"
#include "platform/SharedNames.h"

std::u16string AgentLocation::find(bool dotnetCore) {
    const char16_t* location = _wgetenv(u"com.tarn.harrowlite.agentLocation");
    if (location != nullptr) {
        return location;
    }
    const char16_t* profile = _wgetenv(SharedNames::kAgentProfileVariable);
    if (profile == nullptr) {
        profile = _wgetenv(SharedNames::kAgentProfileCapitalVariable);
    }
    if (profile == nullptr) {
        return {};
    }
    // The profile file sits in the agent's home folder; a bare file name is
    // taken as the folder itself.
    std::u16string path(profile);
    std::u16string::size_type slash = path.rfind(u'/');
    if (slash != std::u16string::npos) {
        path.resize(slash);
    }
    path += u"/bin/";
    if (dotnetCore) {
        path += u"netcore/";
    }
    path += u"tarn.Agent.dll";
    return path;
}
