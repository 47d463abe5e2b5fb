// Runs the policy probe as a process of its own: copied under the process name
// under test (a copy, since the controller reads the name behind
// /proc/self/exe), with a command line and an environment of the test's
// choosing, over a scratch agent installation.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/ScratchDirectory.h"

struct ApplicationRun {
    int exitStatus = -1;
    std::string output;
    // Native log lines, in order (what is not a "probe." line).
    std::vector<std::string> log;
    std::map<std::string, std::string> probe;

    // A "probe." value, or "<missing>".
    std::string operator[](const std::string& key) const;
    bool logged(const std::string& line) const;
    std::string describe() const;
};

class ApplicationProbe {
public:
    ApplicationProbe();

    std::string profile() const { return scratch.path("agent/profiles/default.properties"); }
    const ScratchDirectory& files() const { return scratch; }
    // The properties file, "key=value" lines.
    void writeProfile(const std::string& text) const;
    // A built test program's assembly copied to app/<fileName>; its full path.
    std::string program(const std::string& asset, const std::string& fileName) const;

    // Runs the probe as processName with these arguments behind it; the
    // profile is in the environment unless the extra entries name another.
    ApplicationRun run(const std::string& processName, const std::vector<std::string>& arguments,
                       const std::vector<std::string>& extraEnvironment = {}) const;

private:
    ScratchDirectory scratch;
};
