#include "ProgramRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace e2e {

namespace {

const char* const kProfilerClsid = "{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}";

}  // namespace

std::string newWorkDir() {
    std::string pattern = std::string(TARN_E2E_DIR) + "/run-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    return buffer.data();
}

namespace {

// The inherited environment without any profiler setting of the caller's, with the
// run's own variables on top.
std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text(*entry);
        std::string name = text.substr(0, text.find('='));
        if (name.rfind("CORECLR_", 0) == 0 || name.rfind("DOTNET_", 0) == 0 ||
            extra.count(name) != 0) {
            continue;
        }
        result.push_back(text);
    }
    for (const auto& [name, value] : extra) {
        result.push_back(name + "=" + value);
    }
    return result;
}

// A profiled run that names no agent profile gets the smallest one that lets
// the profiler start: field marking on, the native log in the run's directory,
// and the built test agent for the traced Main.
void furnishDefaultProfile(const std::string& workDir, std::map<std::string, std::string>& env) {
    const std::string profile = workDir + "/default.properties";
    std::ofstream(profile) << "harrowlite.fieldmark.enable=true\n"
                              "harrowlite.nativeprofiler.logfile=native.log\n";
    env["TMSENV_AGENT_PROFILE"] = profile;
    env["com.tarn.harrowlite.agentLocation"] = std::string(TARN_E2E_DIR) + "/agent/tarn.Agent.dll";
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

}  // namespace

std::string readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::stringstream content;
    content << stream.rdbuf();
    return content.str();
}

std::string programPath(const std::string& program) {
    if (program.size() > 4 && program.compare(program.size() - 4, 4, ".dll") == 0) {
        return program;
    }
    return std::string(TARN_E2E_DIR) + "/" + program + "/" + program + ".dll";
}

std::map<std::string, std::string> profilerEnvironment() {
    return {{"CORECLR_ENABLE_PROFILING", "1"},
            {"CORECLR_PROFILER", kProfilerClsid},
            {"CORECLR_PROFILER_PATH", TARN_PROFILER_PATH}};
}

RunResult runProgram(const std::string& program, const RunOptions& options) {
    RunResult result;
    result.workDir = options.workDir.empty() ? newWorkDir() : options.workDir;
    result.env = options.profiled ? profilerEnvironment() : std::map<std::string, std::string>{};
    for (const auto& [name, value] : options.env) {
        result.env[name] = value;
    }
    if (options.profiled && result.env.count("TMSENV_AGENT_PROFILE") == 0) {
        furnishDefaultProfile(result.workDir, result.env);
    }
    result.env["DOTNET_CLI_TELEMETRY_OPTOUT"] = "1";

    std::vector<std::string> argv = {TARN_DOTNET, programPath(program)};
    argv.insert(argv.end(), options.args.begin(), options.args.end());
    for (const auto& arg : argv) {
        result.command += (result.command.empty() ? "" : " ") + arg;
    }
    std::vector<std::string> envp = childEnvironment(result.env);
    std::vector<char*> argvPointers = pointers(argv);
    std::vector<char*> envPointers = pointers(envp);
    std::string outPath = result.workDir + "/stdout.txt";
    std::string errPath = result.workDir + "/stderr.txt";

    pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int in = open("/dev/null", O_RDONLY);
        if (out < 0 || err < 0 || in < 0 || chdir(result.workDir.c_str()) != 0) {
            _exit(127);
        }
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        execve(argvPointers[0], argvPointers.data(), envPointers.data());
        _exit(127);
    }

    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            result.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.exitCode = 128 + WTERMSIG(status);
    }
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

std::string RunResult::describe() const {
    std::ostringstream text;
    text << "command: " << command << "\n";
    for (const auto& [name, value] : env) {
        text << "  " << name << "=" << value << "\n";
    }
    text << "working directory: " << workDir << "\n";
    text << "exit code: " << exitCode << (timedOut ? " (killed after time-out)" : "") << "\n";
    text << "--- stdout ---\n" << out << "--- stderr ---\n" << err << "--------------\n";
    return text.str();
}

}  // namespace e2e
