#include "ChildProcess.h"
#include "TextFiles.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
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
    // A child that hosts the runtime hosts the same one as its parent, and a
    // sanitizer's build runs its children with the parent's sanitizer options.
    std::vector<std::string> inherited(environment);
    for (const char* name : {"TARN_DOTNET_SHARED", "ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (const char* value = getenv(name)) inherited.push_back(std::string(name) + "=" + value);
    }
    const std::vector<char*> variables = pointers(inherited);
    FILE* out = tmpfile();
    FILE* err = tmpfile();
    fflush(nullptr);
    // Spawned, not forked: a fork of a process with the runtime's threads can
    // hang before its exec under user-mode emulation.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (out != nullptr && err != nullptr) {
        posix_spawn_file_actions_adddup2(&actions, fileno(out), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fileno(err), STDERR_FILENO);
    }
    posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
    pid_t child = -1;
    if (out == nullptr || err == nullptr ||
        posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), variables.data()) != 0) {
        child = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
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
