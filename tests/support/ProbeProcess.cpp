#include "support/ProbeProcess.h"

#include <cstdlib>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A null-terminated array of pointers into the strings, for execve.
std::vector<char*> pointers(const std::vector<std::string>& strings)
{
    std::vector<char*> all;
    for (const std::string& entry : strings) {
        all.push_back(const_cast<char*>(entry.c_str()));
    }
    all.push_back(nullptr);
    return all;
}

} // namespace

std::string ProbeProcess::operator[](const std::string& key) const
{
    auto found = values.find(key);
    return found != values.end() ? found->second : "<missing>";
}

std::string ProbeProcess::describe() const
{
    return "exit status " + std::to_string(exitStatus) + ", output:\n" + output;
}

ProbeProcess ProbeProcess::run(const std::string& program, const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment, const std::string& workingDirectory,
                               const std::string& valuePrefix)
{
    std::vector<std::string> commandLine {program};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = pointers(commandLine);
    // A sanitizer build's children run with the sanitizer's settings of the test.
    std::vector<std::string> childEnvironment = environment;
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        if (const char* value = getenv(name)) childEnvironment.push_back(std::string(name) + "=" + value);
    }
    std::vector<char*> envp = pointers(childEnvironment);

    ProbeProcess result;
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        return result;
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipeEnds[1], STDOUT_FILENO);
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        if (chdir(workingDirectory.c_str()) == 0) {
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
        if (line.starts_with(valuePrefix) && equals != std::string::npos) {
            result.values[line.substr(valuePrefix.size(), equals - valuePrefix.size())] = line.substr(equals + 1);
        } else {
            result.otherLines.push_back(line);
        }
    }
    return result;
}
