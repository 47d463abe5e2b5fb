#include "ApplicationProbe.h"

#include <filesystem>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "support/RealAssemblies.h"

std::string ApplicationRun::operator[](const std::string& key) const
{
    auto found = probe.find(key);
    return found != probe.end() ? found->second : "<missing>";
}

bool ApplicationRun::logged(const std::string& line) const
{
    for (const std::string& entry : log) {
        if (entry == line) {
            return true;
        }
    }
    return false;
}

std::string ApplicationRun::describe() const
{
    return "exit status " + std::to_string(exitStatus) + ", output:\n" + output;
}

ApplicationProbe::ApplicationProbe()
{
    std::filesystem::create_directories(scratch.path("bin"));
    std::filesystem::create_directories(scratch.path("app"));
    writeProfile("");
}

void ApplicationProbe::writeProfile(const std::string& text) const { scratch.write("agent/profiles/default.properties", text); }

std::string ApplicationProbe::program(const std::string& asset, const std::string& fileName) const
{
    const std::string target = scratch.path("app/" + fileName);
    std::filesystem::copy_file(RealAssemblies::testAsset(asset), target,
                               std::filesystem::copy_options::overwrite_existing);
    return target;
}

ApplicationRun ApplicationProbe::run(const std::string& processName, const std::vector<std::string>& arguments,
                                     const std::vector<std::string>& extraEnvironment) const
{
    const std::string program = scratch.path("bin/" + processName);
    if (!std::filesystem::exists(program)) {
        std::filesystem::copy_file(TARN_POLICY_PROBE, program);
    }
    std::vector<char*> argv {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    // The first entry of a name is the one that counts: a given profile replaces the default.
    std::vector<std::string> environment = extraEnvironment;
    environment.push_back("com.tarn.harrowlite.agentProfile=" + profile());
    std::vector<char*> envp;
    for (const std::string& entry : environment) {
        envp.push_back(const_cast<char*>(entry.c_str()));
    }
    envp.push_back(nullptr);

    ApplicationRun result;
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

    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("probe.")) {
            const size_t equals = line.find('=');
            result.probe[line.substr(6, equals - 6)] = line.substr(equals + 1);
        } else {
            result.log.push_back(line);
        }
    }
    return result;
}
