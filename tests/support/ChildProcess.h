// A program run as a process of its own, for tests whose subject is a whole
// process: started with a chosen argv (its first entry is the program), the
// whole environment and a working directory, standard input empty, standard
// output and error kept; killed when it outlives its time limit.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct ChildProcess {
    std::string out;
    std::string err;
    int exitStatus = -1;  // 128 + the signal for a process that one ended
    bool timedOut = false;

    static ChildProcess run(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                            const std::string& workingDirectory, int timeoutSeconds = 120);
    // Waits for a forked child, killing it once the time limit passes; its exit status as above.
    static int wait(pid_t child, int timeoutSeconds, bool* timedOut = nullptr);
};
