// What a profile's directives select in real assemblies, decided by the
// profiler's own policy code over the assemblies' metadata, offline: each
// method with its verdict and what decided it, and the directive lines that
// the profiler ignores, with the reason.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

struct DirectiveCheckOptions {
    std::string profile;                  // the properties file, as TMSENV_AGENT_PROFILE names it
    std::vector<std::string> assemblies;  // paths of .dll files
    bool selectedOnly = false;
    std::string explain;                  // "Class::Method": only that method, with every group's answer
    bool json = false;                    // one JSON object a line
};

class DirectiveCheck {
public:
    // 0 when the check ran, 2 when the profile or an assembly cannot be read.
    static int run(const DirectiveCheckOptions& options, FILE* out, FILE* err);
};
