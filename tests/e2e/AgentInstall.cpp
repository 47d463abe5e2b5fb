#include "AgentInstall.h"

#include <cstdio>
#include <filesystem>

namespace e2e {

AgentInstall::AgentInstall() : root(newWorkDir()) {
    std::filesystem::create_directories(agentDirectory() + "/bin/netcore");
    std::filesystem::copy(std::string(TARN_E2E_DIR) + "/agent", agentDirectory() + "/bin/netcore");
    set("harrowlite.fieldmark.enable", "true");
    set("harrowlite.nativeprofiler.logfile", "native.log");
}

std::string AgentInstall::write(const std::string& relative, const std::string& text) const {
    return writeFile(agentDirectory() + "/" + relative, text);
}

void AgentInstall::directives(const std::string& lines) {
    write("program.fmd", lines);
    set("harrowlite.fieldmark.directivesFile", "program.fmd");
}

void AgentInstall::removeAgent() const {
    std::remove((agentDirectory() + "/bin/netcore/tarn.Agent.dll").c_str());
}

void AgentInstall::replaceAgent(const std::string& content) const {
    writeFile(agentDirectory() + "/bin/netcore/tarn.Agent.dll", content);
}

RunOptions AgentInstall::options(std::vector<std::string> args) const {
    RunOptions options;
    options.workDir = root;
    options.args = std::move(args);
    options.env = {{"TMSENV_AGENT_PROFILE", profilePath()}, {"TARN_AGENT_RECORD", root + "/record.txt"}};
    return options;
}

RunResult AgentInstall::run(const std::string& program, RunOptions options) const {
    writeProfile();
    options.workDir = root;
    return runProgram(program, options);
}

void AgentInstall::writeProfile() const {
    std::string text = profileLead;
    for (const auto& [key, value] : properties) {
        text += key + "=" + value + "\n";
    }
    writeFile(profilePath(), text);
}

std::string AgentInstall::logText() const { return readFilesStartingWith(agentDirectory(), "native_"); }

std::vector<std::string> AgentInstall::log() const { return splitLines(logText()); }

std::vector<std::string> AgentInstall::record() const { return splitLines(readFile(root + "/record.txt")); }

}  // namespace e2e
