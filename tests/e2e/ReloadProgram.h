// The Reload program running in the background while a test changes what the
// profiler does to it; what the test reads of it while it runs. The program
// is steered by files in its working directory ("reload", "environment",
// "stop") and writes its process id to "pid" once its methods have run.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "AgentInstall.h"

namespace e2e {

// Polls until condition holds or the time limit passes; the last answer.
inline bool waitUntil(const std::function<bool()>& condition, int seconds = 60) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

// The highest call number of Work.Alpha or Work.Beta (name "alpha" or
// "beta") that the agent recorded, -1 if none.
inline int lastCall(const AgentInstall& install, const std::string& name) {
    int last = -1;
    const std::string head = "pushTrace 0 System.String:" + name + "-";
    for (const std::string& line : linesStartingWith(install.record(), head)) {
        last = std::max(last, std::atoi(line.c_str() + head.size()));
    }
    return last;
}

// The process id that the program writes once its methods have run; empty if
// it does not within the time limit.
inline std::string waitForPid(const AgentInstall& install) {
    const std::string pidFile = install.workDir() + "/pid";
    waitUntil([&] { return !readFile(pidFile).empty(); });
    return readFile(pidFile);
}

// Whether the program notes the line in "native.txt" within the time limit.
inline bool notes(const AgentInstall& install, const std::string& line) {
    return waitUntil([&] { return readFile(install.workDir() + "/native.txt").find(line) != std::string::npos; });
}

inline void touch(const AgentInstall& install, const std::string& name) {
    writeFile(install.workDir() + "/" + name, "");
}

// The first call of the agent's loader: selected where the core library's
// shim starts at its loader (an attach, a reload that selects the core
// library), its trace call must not lead back to the loader.
inline constexpr char kLoaderFirstCall[] =
    "TraceOneMethodOfClass: System.Runtime.Loader.AssemblyLoadContext get_Default\n";

// Options for the program started without the profiler, for an attach to
// bring in the tracing of Work.Alpha and of Work.Spin, which runs across the
// attach; the profile is written.
inline RunOptions awaitingAttach(AgentInstall& install) {
    install.directives(
        std::string("TraceOneMethodOfClass: Reload.Work Alpha\nTraceOneMethodOfClass: Reload.Work Spin\n") +
        kLoaderFirstCall);
    install.writeProfile();
    RunOptions options = install.options();
    options.profiled = false;
    return options;
}

// Runs the program on a thread of its own; however the test ends, the
// program is told to stop and waited for.
class RunningReload {
public:
    RunningReload(const AgentInstall& install, RunOptions options)
        : install(install), thread([this, options] { result = runProgram("Reload", options); }) {}
    ~RunningReload() { stop(); }

    const RunResult& stop() {
        touch(install, "stop");
        if (thread.joinable()) thread.join();
        return result;
    }

private:
    const AgentInstall& install;
    RunResult result;
    std::thread thread;
};

}  // namespace e2e
