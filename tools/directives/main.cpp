// tarn-directives: which methods of real assemblies a profile's directives
// select, and why, without running the program.
#include <cstdio>
#include <cstring>

#include "directives/DirectiveCheck.h"
#include "platform/BuildInfo.h"
#include "platform/Win32Types.h"

namespace {

void usage(FILE* stream) {
    fprintf(stream,
            "usage: tarn-directives --profile PROFILE [--selected] [--explain Class::Method] [--json] ASSEMBLY...\n"
            "  Prints each method of the assemblies with the profiler's verdict and what decided it, and the\n"
            "  directive lines that the profiler ignores. PROFILE is the properties file that\n"
            "  TMSENV_AGENT_PROFILE names; its directive files are read as the profiler reads them.\n"
            "  --selected  only the methods that would be traced\n"
            "  --explain   only this method, with the answer of every directive group\n"
            "  --json      one JSON object a line\n");
}

}  // namespace

int main(int argc, char** argv) {
    DirectiveCheckOptions options;
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (strcmp(argument, "--profile") == 0 && i + 1 < argc) {
            options.profile = argv[++i];
        } else if (strcmp(argument, "--explain") == 0 && i + 1 < argc) {
            options.explain = argv[++i];
        } else if (strcmp(argument, "--selected") == 0) {
            options.selectedOnly = true;
        } else if (strcmp(argument, "--json") == 0) {
            options.json = true;
        } else if (strcmp(argument, "--version") == 0) {
            printf("tarn-directives %s (%s)\n", BuildInfo::kVersion, BuildInfo::kRevision);
            return 0;
        } else if (strcmp(argument, "--help") == 0 || strcmp(argument, "-h") == 0) {
            usage(stdout);
            return 0;
        } else if (argument[0] == '-') {
            fprintf(stderr, "tarn-directives: unknown option %s\n", argument);
            usage(stderr);
            return 2;
        } else {
            options.assemblies.push_back(argument);
        }
    }
    if (options.profile.empty() || options.assemblies.empty()) {
        usage(stderr);
        return 2;
    }
    return DirectiveCheck::run(options, stdout, stderr);
}
