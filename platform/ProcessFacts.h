// Facts about this process that the gate and the policy both decide on: the
// application a `dotnet` host runs, the application pool, and whether the
// process runs in the cloud site layout. Read from the command line, the
// environment and the file system at each call.
#pragma once

#include <string>

#include "platform/Win32Types.h"

class ProcessFacts {
public:
    // The profile folder sits two levels below a site's "applicationHost.xdt".
    static bool isAzure();
    // "NULL" and E_FAIL: this platform has no application pools.
    [[nodiscard]] static HRESULT getAppPoolName(std::u16string& name);
    // The application dll's name without directories and ".dll", or
    // "dotnet.cmd" for a dotnet command without a dll.
    static bool getDotnetApplicationName(std::u16string& name);
    // The first argument holding ".dll" of a dotnet host; *isDotnet is set
    // when the host is dotnet, with or without such an argument.
    static bool getDotnetApplicationDllPath(std::u16string& path, bool* isDotnet);
};
