#include "AgentInstall.h"

#include <filesystem>

namespace e2e {

AgentInstall::AgentInstall() : root(newWorkDir()), removed(removedUnlessFailed(root)) {
    std::filesystem::create_directories(agentDirectory() + "/bin/netcore");
    std::filesystem::copy(std::string(TARN_E2E_DIR) + "/agent", agentDirectory() + "/bin/netcore");
    set("harrowlite.fieldmark.enable", "true");
    set("harrowlite.nativeprofiler.logfile", "native.log");
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

}  // namespace e2e
