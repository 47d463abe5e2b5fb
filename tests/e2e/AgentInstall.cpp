#include "AgentInstall.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace e2e {

namespace {

const std::string kBuiltAgentDirectory = std::string(TARN_E2E_DIR) + "/agent";

void makeDirectories(const std::string& path) {
    for (size_t slash = path.find('/', 1); ; slash = path.find('/', slash + 1)) {
        std::string prefix = path.substr(0, slash);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
            throw std::runtime_error("cannot make " + prefix);
        }
        if (slash == std::string::npos) {
            return;
        }
    }
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << text;
    if (!stream) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::vector<std::string> filesIn(const std::string& directory) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(directory.c_str())) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_type == DT_REG) {
                names.push_back(entry->d_name);
            }
        }
        closedir(dir);
    }
    return names;
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
    makeDirectories(agentDirectory() + "/bin/netcore");
    for (const auto& name : filesIn(kBuiltAgentDirectory)) {
        writeFile(agentDirectory() + "/bin/netcore/" + name, readFile(kBuiltAgentDirectory + "/" + name));
    }
    set("harrowlite.fieldmark.enable", "true");
    set("harrowlite.nativeprofiler.logfile", "native.log");
}

std::string AgentInstall::write(const std::string& relative, const std::string& text) const {
    std::string path = agentDirectory() + "/" + relative;
    makeDirectories(path.substr(0, path.rfind('/')));
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
    for (const auto& name : filesIn(agentDirectory())) {
        if (name.rfind("native_", 0) == 0 && name.size() > 4 && name.compare(name.size() - 4, 4, ".log") == 0) {
            text += readFile(agentDirectory() + "/" + name);
        }
    }
    return text;
}

std::vector<std::string> AgentInstall::log() const { return splitLines(logText()); }

std::vector<std::string> AgentInstall::record() const { return splitLines(readFile(root + "/record.txt")); }

}  // namespace e2e
