#include "support/ProbeProcess.h"

#include <cstdlib>

#include "TextFiles.h"

ProbeProcess ProbeProcess::run(const std::string& program, const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment, const std::string& workingDirectory,
                               const std::string& valuePrefix) {
    std::vector<std::string> commandLine {program};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    std::vector<std::string> childEnvironment = environment;
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        if (const char* value = getenv(name)) childEnvironment.push_back(std::string(name) + "=" + value);
    }
    ProbeProcess result;
    static_cast<ChildProcess&>(result) = ChildProcess::run(commandLine, childEnvironment, workingDirectory);
    for (const std::string& line : splitLines(result.out)) {
        const size_t equals = line.find('=');
        if (line.starts_with(valuePrefix) && equals != std::string::npos) {
            result.values[line.substr(valuePrefix.size(), equals - valuePrefix.size())] = line.substr(equals + 1);
        } else {
            result.otherLines.push_back(line);
        }
    }
    return result;
}
