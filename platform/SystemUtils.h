// What the process knows about itself, read from /proc. Results only: nothing
// here logs.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

class SystemUtils {
public:
    static int GetPid();

    // The arguments of /proc/self/cmdline, widened, at most 2047 units each.
    // One read of at most 4095 bytes: a line feed inside an argument ends the
    // list there. Nothing is appended if the file cannot be opened.
    static void GetProgramArguments(std::vector<std::basic_string<char16_t>>& args);

    // A path by which another part of the process can append to what stream
    // writes to: /dev/stdout, /dev/stderr, or the file behind the descriptor,
    // which from then on appends (so that neither writer overwrites the
    // other). Empty if there is none.
    static std::string PathOfStream(FILE* stream);

    // Path of the first mapping of /proc/self/maps whose line contains name
    // (any part of a file name will do). False, path untouched, if none does.
    static bool GetFullModulePath(const char16_t* name, std::basic_string<char16_t>& path);
    static bool GetFullModulePathA(const char* name, std::string& path);

    // Creates every directory above the last '/' or '\' of path; the text
    // behind it is a file name and is not created. Prefixes ending in ':' are
    // passed over.
    static bool TryToCreateFullPath(const std::basic_string<char16_t>& path);

    // Address of procedure in the already mapped library whose path contains
    // module, or null.
    static void* LookupProcAddress(const char* module, const char* procedure);
};
