// An agent installation laid out in a run's working directory, as a real one
// stands on a machine: the agent profile (a properties file) in agent/, the
// directive files beside it, and the built test agent under
// agent/bin/netcore/tarn.Agent.dll, where the shim's loader looks for it.
// The native log and the agent's record land in the same directory.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "ProgramRun.h"

namespace e2e {

// Directives that select every method of an assembly.
inline std::string allMethodsOf(const std::string& assembly) {
    return "IdentifyAssemblyAs: " + assembly +
           " Everything\nTraceAllMethodsIfFlagged: Everything\nTurnOn: Everything\n";
}

// A program run without the profiler and then under it, in an installation.
struct Comparison {
    RunResult reference;
    RunResult run;
    std::vector<std::string> log;  // the native log of the profiled run
    std::string why;               // the profiled run and its log, for failure messages

    // The profiled run ended by itself as the plain one did, printing the same.
    ::testing::AssertionResult unchanged() const;
};

class AgentInstall {
public:
    // Lays out a fresh working directory with the agent copied in, the native
    // log switched on and field marking enabled. The directory goes with the
    // installation unless the test failed: then it stays for a look at its
    // logs and record.
    AgentInstall();

    const std::string& workDir() const { return root; }
    std::string agentDirectory() const { return root + "/agent"; }
    std::string profilePath() const { return agentDirectory() + "/default.properties"; }

    // A property of the profile, written when the run starts.
    void set(const std::string& key, const std::string& value) { properties[key] = value; }
    void unset(const std::string& key) { properties.erase(key); }
    // Bytes written ahead of the properties (a byte order mark).
    void startProfileWith(const std::string& bytes) { profileLead = bytes; }
    // A file in the agent directory; returns its path.
    std::string write(const std::string& relative, const std::string& text) const {
        return writeFile(agentDirectory() + "/" + relative, text);
    }
    // Directive lines, read through "harrowlite.fieldmark.directivesFile".
    void directives(const std::string& lines) {
        write("program.fmd", lines);
        set("harrowlite.fieldmark.directivesFile", "program.fmd");
    }

    // Options for runProgram: this directory, the profile variable, the record file.
    RunOptions options(std::vector<std::string> args = {}) const {
        return {.args = std::move(args),
                .env = {{"TMSENV_AGENT_PROFILE", profilePath()}, {"TARN_AGENT_RECORD", root + "/record.txt"}},
                .workDir = root};
    }
    // Writes the profile and runs the program in this installation.
    RunResult run(const std::string& program, RunOptions options) const {
        writeProfile();
        options.workDir = root;
        return runProgram(program, options);
    }
    // Runs the program without the profiler, then with options in this installation.
    Comparison compare(const std::string& program, RunOptions options) const;

    // The native log of the run (one file per process, named after it).
    std::string logText() const { return readFilesStartingWith(agentDirectory(), "native_"); }
    std::vector<std::string> log() const { return splitLines(logText()); }
    // A run and the native log, for the message of a failed assertion.
    std::string explain(const RunResult& run) const { return run.describe() + "--- native log ---\n" + logText(); }
    // What the agent recorded, one trace call a line.
    std::vector<std::string> record() const { return splitLines(readFile(root + "/record.txt")); }

    // Writes the profile as it stands (run does it before each run).
    void writeProfile() const;

private:
    std::string root;
    std::shared_ptr<void> removed;
    std::map<std::string, std::string> properties;
    std::string profileLead;
};

}  // namespace e2e
