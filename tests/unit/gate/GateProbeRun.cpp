#include "GateProbeRun.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

std::string ProbeRun::operator[](const std::string& key) const
{
    auto found = decisions.find(key);
    return found != decisions.end() ? found->second : "<missing>";
}

std::string ProbeRun::describe() const
{
    return "exit status " + std::to_string(exitStatus) + ", output:\n" + output;
}

GateInstallation::GateInstallation()
{
    std::filesystem::create_directories(scratch.path("bin"));
    std::filesystem::create_directories(home() + "/lib");
    std::filesystem::copy_file(TARN_GATE_PROBE_MODULE, library());
    for (const char* name : {"dotnet", "dotnet.exe", "app.exe", "myhost"}) {
        std::filesystem::create_symlink(TARN_GATE_PROBE, host(name));
    }
    writeProfile("default.properties", "agent.name=default\n");
}

std::string GateInstallation::writeProfile(const std::string& name, const std::string& text) const
{
    return scratch.write("agent/profiles/" + name, text);
}

std::vector<std::string> GateInstallation::environment() const
{
    return {"com.tarn.harrowlite.agentProfile=" + defaultProfile(), "TMS_DIAGNOSTICS_ENABLED=1",
            "LD_PRELOAD=" + library()};
}

ProbeRun GateInstallation::run(const std::string& hostName, const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment) const
{
    const std::string program = host(hostName);
    std::vector<char*> argv {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const std::string& entry : environment) {
        envp.push_back(const_cast<char*>(entry.c_str()));
    }
    envp.push_back(nullptr);

    ProbeRun result;
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        return result;
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipeEnds[1], STDOUT_FILENO);
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        if (chdir(scratch.path().c_str()) == 0) {
            execve(program.c_str(), argv.data(), envp.data());
        }
        _exit(127);
    }
    close(pipeEnds[1]);
    char buffer[4096];
    ssize_t count;
    while ((count = read(pipeEnds[0], buffer, sizeof(buffer))) > 0) {
        result.output.append(buffer, static_cast<size_t>(count));
    }
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.pid = child;

    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) {
            result.decisions[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return result;
}

std::string GateInstallation::diagnosticLogPath(const std::string& programName) const
{
    return home() + "/logs/nativeprofiler_diagnostic_" + programName + ".log";
}

std::vector<std::string> GateInstallation::diagnosticLog(const std::string& programName) const
{
    std::vector<std::string> lines;
    std::ifstream log(diagnosticLogPath(programName));
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> linesAfterDump(const std::vector<std::string>& log)
{
    for (size_t i = 0; i < log.size(); ++i) {
        if (log[i] == "==============================") {
            return {log.begin() + static_cast<long>(i) + 1, log.end()};
        }
    }
    return {};
}
