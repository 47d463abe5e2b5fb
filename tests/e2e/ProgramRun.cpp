#include "ProgramRun.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/ChildProcess.h"

extern char** environ;

namespace e2e {

std::string newWorkDir() {
    std::string path = std::string(TARN_E2E_DIR) + "/run-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp failed for " + path);
    return path;
}

std::shared_ptr<void> removedUnlessFailed(const std::string& folder) {
    return std::shared_ptr<void>(nullptr, [folder](void*) {
        std::error_code ignored;
        if (!::testing::Test::HasFailure()) std::filesystem::remove_all(folder, ignored);
    });
}

namespace {

// The inherited environment without any profiler setting of the caller's, with the
// run's own variables on top.
std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        const std::string name = text.substr(0, text.find('='));
        if (!name.starts_with("CORECLR_") && !name.starts_with("DOTNET_") && extra.count(name) == 0) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : extra) result.push_back(name + "=" + value);
    return result;
}

}  // namespace

std::string runtimeVersion() {
    static const std::string version = [] {
        const std::string config = readFile(std::string(TARN_E2E_DIR) + "/Hello/Hello.runtimeconfig.json");
        std::smatch match;
        const int major =
            std::regex_search(config, match, std::regex(R"("version":\s*"(\d+)\.)")) ? std::stoi(match[1]) : -1;
        const std::filesystem::path versions =
            std::filesystem::canonical(TARN_DOTNET).parent_path() / "shared" / "Microsoft.NETCore.App";
        std::array<int, 3> best {-1, -1, -1};
        for (const auto& entry : std::filesystem::directory_iterator(versions)) {
            std::array<int, 3> found {-1, -1, -1};
            if (sscanf(entry.path().filename().c_str(), "%d.%d.%d", &found[0], &found[1], &found[2]) == 3 &&
                found[0] == major && found > best) {
                best = found;
            }
        }
        return std::to_string(best[0]) + "." + std::to_string(best[1]) + "." + std::to_string(best[2]);
    }();
    return version;
}

std::string programPath(const std::string& program) {
    if (program.size() > 4 && program.compare(program.size() - 4, 4, ".dll") == 0) return program;
    return std::string(TARN_E2E_DIR) + "/" + program + "/" + program + ".dll";
}

RunResult runProgram(const std::string& program, const RunOptions& options) {
    RunResult result;
    result.workDir = options.workDir.empty() ? newWorkDir() : options.workDir;
    if (options.workDir.empty()) result.ownedWorkDir = removedUnlessFailed(result.workDir);
    if (options.profiled) {
        result.env = {{"CORECLR_ENABLE_PROFILING", "1"},
                      {"CORECLR_PROFILER", "{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}"},
                      {"CORECLR_PROFILER_PATH", TARN_PROFILER_PATH}};
    }
    for (const auto& [name, value] : options.env) result.env[name] = value;
    result.env["DOTNET_CLI_TELEMETRY_OPTOUT"] = "1";

    std::vector<std::string> argv = {TARN_DOTNET, programPath(program)};
    argv.insert(argv.end(), options.args.begin(), options.args.end());
    for (const auto& arg : argv) result.command += (result.command.empty() ? "" : " ") + arg;
    const ChildProcess child =
        ChildProcess::run(argv, childEnvironment(result.env), result.workDir, options.timeoutSeconds);
    result.exitCode = child.exitStatus;
    result.timedOut = child.timedOut;
    result.out = child.out;
    result.err = child.err;
    return result;
}

RunResult runPlain(const std::string& program, std::vector<std::string> args) {
    RunOptions plain;
    plain.profiled = false;
    plain.args = std::move(args);
    return runProgram(program, plain);
}

std::string RunResult::describe() const {
    std::ostringstream text;
    text << "command: " << command << "\n";
    for (const auto& [name, value] : env) text << "  " << name << "=" << value << "\n";
    text << "working directory: " << workDir << "\n";
    text << "exit code: " << exitCode << (timedOut ? " (killed after time-out)" : "") << "\n";
    text << "--- stdout ---\n" << out << "--- stderr ---\n" << err << "--------------\n";
    return text.str();
}

}  // namespace e2e
