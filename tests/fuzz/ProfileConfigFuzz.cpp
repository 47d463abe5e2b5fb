// An "AgentProfile.config" of any content, beside the agent profile that the
// process is given.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "gate/ProfileConfig.h"
#include "gate/ProfilingManager.h"

static std::string folder;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char pattern[] = "/tmp/tarn-fuzz-XXXXXX";
    folder = mkdtemp(pattern);
    setenv("TMSENV_AGENT_PROFILE", (folder + "/default.properties").c_str(), 1);
    FILE* profile = fopen((folder + "/default.properties").c_str(), "w");
    if (profile != nullptr) fclose(profile);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* config = fopen((folder + "/AgentProfile.config").c_str(), "w");
    if (config == nullptr) return 0;
    fwrite(data, 1, size, config);
    fclose(config);
    ProfileConfig chosen(nullptr);
    std::u16string path;
    chosen.getProfilePath(path);
    return 0;
}
