#include "AgentInstall.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace e2e {

namespace {

const std::string kBuiltAgentDirectory = std::string(TARN_E2E_DIR) + "/agent";

void writeFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << text;
    if (!stream) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> linesStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
    std::vector<std::string> found;
    for (const auto& line : lines) {
        if (line.compare(0, prefix.size(), prefix) == 0) {
            found.push_back(line);
        }
    }
    return found;
}

std::string joinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        text += line + "\n";
    }
    return text;
}

AgentInstall::AgentInstall() : root(newWorkDir()) {
    std::filesystem::create_directories(agentDirectory() + "/bin/netcore");
    std::filesystem::copy(kBuiltAgentDirectory, agentDirectory() + "/bin/netcore");
    set("harrowlite.fieldmark.enable", "true");
    set("harrowlite.nativeprofiler.logfile", "native.log");
}

std::string AgentInstall::write(const std::string& relative, const std::string& text) const {
    const std::string path = agentDirectory() + "/" + relative;
    writeFile(path, text);
    return path;
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

std::string AgentInstall::logText() const {
    // The controller names the log after the process: native_<process>_<app>.log.
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(agentDirectory())) {
        const std::string name = entry.path().filename();
        if (entry.is_regular_file() && name.starts_with("native_") && name.ends_with(".log")) {
            text += readFile(entry.path());
        }
    }
    return text;
}

std::vector<std::string> AgentInstall::log() const { return splitLines(logText()); }

std::vector<std::string> AgentInstall::record() const { return splitLines(readFile(root + "/record.txt")); }

}  // namespace e2e
