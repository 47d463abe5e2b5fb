#include "support/ProbeProcess.h"

#include "support/ChildProcess.h"

#include <cstdlib>
#include <sstream>

std::string ProbeProcess::operator[](const std::string& key) const {
    auto found = values.find(key);
    return found != values.end() ? found->second : "<missing>";
}

std::string ProbeProcess::describe() const {
    return "exit status " + std::to_string(exitStatus) + ", output:\n" + output;
}

ProbeProcess ProbeProcess::run(const std::string& program, const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment, const std::string& workingDirectory,
                               const std::string& valuePrefix) {
    std::vector<std::string> commandLine {program};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    // A sanitizer build's children run with the sanitizer's settings of the test.
    std::vector<std::string> childEnvironment = environment;
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        if (const char* value = getenv(name)) childEnvironment.push_back(std::string(name) + "=" + value);
    }
    const ChildProcess child = ChildProcess::run(commandLine, childEnvironment, workingDirectory);
    ProbeProcess result;
    result.exitStatus = child.exitStatus;
    result.output = child.out;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (line.starts_with(valuePrefix) && equals != std::string::npos) {
            result.values[line.substr(valuePrefix.size(), equals - valuePrefix.size())] = line.substr(equals + 1);
        } else {
            result.otherLines.push_back(line);
        }
    }
    return result;
}
