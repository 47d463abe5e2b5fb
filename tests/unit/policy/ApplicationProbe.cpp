#include "ApplicationProbe.h"

#include <filesystem>

#include "support/RealAssemblies.h"

ApplicationProbe::ApplicationProbe() {
    std::filesystem::create_directories(scratch.path("bin"));
    std::filesystem::create_directories(scratch.path("app"));
    writeProfile();
}

std::string ApplicationProbe::program(const std::string& asset, const std::string& fileName) const {
    const std::string target = scratch.path("app/" + fileName);
    std::filesystem::copy_file(RealAssemblies::testAsset(asset), target,
                               std::filesystem::copy_options::overwrite_existing);
    return target;
}

ProbeProcess ApplicationProbe::run(const std::string& processName, const std::vector<std::string>& arguments,
                                   const std::vector<std::string>& extraEnvironment) const {
    const std::string program = scratch.path("bin/" + processName);
    if (!std::filesystem::exists(program)) {
        std::filesystem::copy_file(TARN_POLICY_PROBE, program);
    }
    // The first entry of a name is the one that counts: a given profile replaces the default.
    std::vector<std::string> environment = extraEnvironment;
    environment.push_back("com.tarn.harrowlite.agentProfile=" + profilePath());
    return ProbeProcess::run(program, arguments, environment, scratch.path(), "probe.");
}
