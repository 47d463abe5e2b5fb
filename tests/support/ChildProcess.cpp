#include "ChildProcess.h"
#include "TextFiles.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace {

// A null-terminated array of pointers into the strings, for execve.
std::vector<char*> pointers(const std::vector<std::string>& strings) {
    std::vector<char*> all;
    for (const std::string& entry : strings) {
        all.push_back(const_cast<char*>(entry.c_str()));
    }
    all.push_back(nullptr);
    return all;
}

std::string contents(FILE* file) {
    std::string text = streamText(file);
    fclose(file);
    return text;
}

}  // namespace

ChildProcess ChildProcess::run(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                               const std::string& workingDirectory, int timeoutSeconds) {
    ChildProcess result;
    const std::vector<char*> arguments = pointers(argv);
    const std::vector<char*> variables = pointers(environment);
    FILE* out = tmpfile();
    FILE* err = tmpfile();
    fflush(nullptr);
    const pid_t child = out != nullptr && err != nullptr ? fork() : -1;
    if (child == 0) {
        const int in = open("/dev/null", O_RDONLY);
        if (in < 0 || chdir(workingDirectory.c_str()) != 0) _exit(127);
        dup2(in, STDIN_FILENO);
        dup2(fileno(out), STDOUT_FILENO);
        dup2(fileno(err), STDERR_FILENO);
        execve(arguments[0], arguments.data(), variables.data());
        _exit(127);
    }
    if (child > 0) result.exitStatus = wait(child, timeoutSeconds, &result.timedOut);
    if (out != nullptr) result.out = contents(out);
    if (err != nullptr) result.err = contents(err);
    return result;
}

int ChildProcess::wait(pid_t child, int timeoutSeconds, bool* timedOut) {
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            if (timedOut != nullptr) *timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
