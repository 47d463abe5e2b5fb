// A helper program run as a process of its own, for tests whose subject reads
// facts of the real process (its name, command line, environment, mappings):
// started under a chosen program path, argv, environment and working
// directory, its standard output collected and split into "key=value" lines.
#pragma once

#include <map>
#include <string>
#include <vector>

struct ProbeProcess {
    int exitStatus = -1;
    std::string output;
    // The lines that begin with the value prefix, split at their first '=',
    // the prefix taken off the key.
    std::map<std::string, std::string> values;
    // Every other line, in order.
    std::vector<std::string> otherLines;

    // A value, or "<missing>".
    std::string operator[](const std::string& key) const;
    // The run, for failure messages.
    std::string describe() const;

    // Runs program with argv[0] the program itself; an empty prefix takes
    // every line that holds a '=' as a value.
    static ProbeProcess run(const std::string& program, const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment, const std::string& workingDirectory,
                            const std::string& valuePrefix);
};
