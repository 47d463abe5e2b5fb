#include "AgentInstall.h"

#include <cstdio>
#include <filesystem>

namespace e2e {

AgentInstall::AgentInstall() : root(newWorkDir()), removed(removedUnlessFailed(root)) {
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

void AgentInstall::replaceAgent(const std::optional<std::string>& content) const {
    const std::string agent = agentDirectory() + "/bin/netcore/tarn.Agent.dll";
    if (content) {
        writeFile(agent, *content);
    } else {
        std::remove(agent.c_str());
    }
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

Comparison AgentInstall::compare(const std::string& program, RunOptions options) const {
    Comparison result;
    result.reference = runPlain(program, options.args);
    result.run = run(program, std::move(options));
    result.log = log();
    result.why = explain(result.run);
    return result;
}

::testing::AssertionResult Comparison::unchanged() const {
    if (!run.timedOut && run.exitCode == reference.exitCode && run.out == reference.out) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "the profiled run differs from the plain one, which ended with "
                                         << reference.exitCode << " and printed\n" << reference.out << why;
}

void AgentInstall::writeProfile() const {
    std::string text = profileLead;
    for (const auto& [key, value] : properties) text += key + "=" + value + "\n";
    writeFile(profilePath(), text);
}

std::string AgentInstall::logText() const { return readFilesStartingWith(agentDirectory(), "native_"); }

std::vector<std::string> AgentInstall::log() const { return splitLines(logText()); }

std::vector<std::string> AgentInstall::record() const { return splitLines(readFile(root + "/record.txt")); }

}  // namespace e2e
