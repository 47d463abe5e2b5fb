// A helper program run as a process of its own, for tests whose subject reads
// facts of the real process (its name, command line, environment, mappings):
// its standard output split into "key=value" lines and the others.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ChildProcess.h"

struct ProbeProcess : ChildProcess {
    // The lines that begin with the value prefix, split at their first '=',
    // the prefix taken off the key.
    std::map<std::string, std::string> values;
    // Every other line, in order.
    std::vector<std::string> otherLines;

    // A value, or "<missing>".
    std::string operator[](const std::string& key) const {
        auto found = values.find(key);
        return found != values.end() ? found->second : "<missing>";
    }
    // The run, for failure messages.
    std::string describe() const { return "exit status " + std::to_string(exitStatus) + ", output:\n" + out; }

    // Runs program with argv[0] the program itself and the sanitizer settings
    // of the test; an empty prefix takes every line that holds a '=' as a value.
    static ProbeProcess run(const std::string& program, const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment, const std::string& workingDirectory,
                            const std::string& valuePrefix);
};
