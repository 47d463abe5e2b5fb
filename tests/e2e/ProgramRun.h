// Runs one of the suite's .NET programs in a child process, with or without the
// profiler, and keeps what a test needs to judge the run.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/TextFiles.h"

namespace e2e {

struct RunOptions {
    std::vector<std::string> args;
    std::map<std::string, std::string> env;  // set on top of the inherited environment
    bool profiled = true;
    int timeoutSeconds = 120;
    // Empty: a fresh directory is made for the run. Otherwise one made by
    // newWorkDir, already furnished by the test (an agent installation).
    std::string workDir;
};

struct RunResult {
    std::string command;
    std::map<std::string, std::string> env;  // what the run set, for failure reports
    std::string workDir;                     // the program's working directory
    std::string out;
    std::string err;
    int exitCode = -1;
    bool timedOut = false;
    // A directory made for the run goes with the last copy of its result,
    // unless the test failed: then it stays for a look.
    std::shared_ptr<void> ownedWorkDir;

    // Everything about the run, for the message of a failed assertion.
    std::string describe() const;
    // Whether the program, run with TARN_E2E_REPORT_MAPS=1, reported our library mapped.
    bool mapsOurLibrary() const { return err.find(std::string("mapped: ") + TARN_PROFILER_PATH) != std::string::npos; }
};

// A fresh, empty directory under the suite's output folder.
std::string newWorkDir();
// Removes the folder when the last copy goes, unless the test has failed.
std::shared_ptr<void> removedUnlessFailed(const std::string& folder);

// Path of the built assembly of a program under tests/e2e/programs; a name
// ending in ".dll" is taken as the path itself.
std::string programPath(const std::string& program);

// A profiled run loads our library by the runtime's variables; its profile
// and the rest of its environment are the caller's.
RunResult runProgram(const std::string& program, const RunOptions& options);
// The program run without the profiler: the reference a profiled run must match.
RunResult runPlain(const std::string& program, std::vector<std::string> args = {});

// The version ("10.0.12") of the runtime that runs the suite's programs: the
// highest one installed beside the dotnet host of the major version that the
// programs target.
std::string runtimeVersion();

}  // namespace e2e
