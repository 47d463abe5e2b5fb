// The installed .NET runtime, hosted once per process (a test or an offline
// tool). Its metadata code runs on the runtime's own platform layer, which only
// the runtime's start-up initialises; after that the exported dispenser opens
// real assemblies.
#pragma once

#include <string>

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class HostedRuntime {
public:
    // Hosts the runtime on first use. Never destroyed: the runtime cannot be
    // shut down and started again in one process.
    static HostedRuntime& instance();

    // Empty when hosting worked, else what went wrong.
    const std::string& error() const { return failure; }
    bool ready() const { return failure.empty(); }

    // Folder of the shared framework, ending in '/'.
    const std::string& frameworkDir() const { return framework; }
    // Full path of libcoreclr.so, as mapped into this process.
    std::string coreclrPath() const { return framework + "libcoreclr.so"; }
    // A new dispenser reference from the runtime's exported entry point.
    AutoCOMPointer<IMetaDataDispenserEx> dispenser() const;

private:
    HostedRuntime();

    std::string framework;
    std::string failure;
    void* library = nullptr;
    void* getDispenser = nullptr;
};
